// Run-time type records of wrapped classes.
#ifndef JSBINDING_V8_TYPE_INFO_H_
#define JSBINDING_V8_TYPE_INFO_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vx::internal {

// What is known of a class at run time: a name that identifies it, and its ancestors, flat.
struct TypeInfo {
  std::string name;
  std::vector<TypeInfo> bases;  // each with empty `bases` of its own

  // Adds `base` and its ancestors, each name once.
  void AddBase(const TypeInfo& base) {
    bool known = false;
    for (const TypeInfo& present : bases) {
      known = known || present.name == base.name;
    }
    if (!known) {
      bases.push_back(TypeInfo{base.name, {}});
    }
    for (const TypeInfo& ancestor : base.bases) {
      AddBase(ancestor);
    }
  }

  // True if this is `other`'s class or one derived from it. `other`'s ancestors play no part.
  bool IsKindOf(const TypeInfo& other) const {
    if (name == other.name) {
      return true;
    }
    for (const TypeInfo& base : bases) {
      if (base.name == other.name) {
        return true;
      }
    }
    return false;
  }
};

// An address that is T's own; the key of T in the registries of a thread.
template <typename T>
const void* TypeKey() {
  static const char key = 0;
  return &key;
}

// A text that differs by type; nothing shows it to script.
template <typename T>
const char* TypeName() {
  return __PRETTY_FUNCTION__;
}

// The calling thread's record of T, created at first use and freed when the thread ends.
template <typename T>
TypeInfo* type_id();

// Records of the calling thread. Their addresses are stable.
inline std::map<const void*, std::unique_ptr<TypeInfo>>& ThreadTypeInfos() {
  static thread_local std::map<const void*, std::unique_ptr<TypeInfo>> records;
  return records;
}

template <typename T>
TypeInfo* type_id() {
  std::unique_ptr<TypeInfo>& record = ThreadTypeInfos()[TypeKey<T>()];
  if (record == nullptr) {
    record = std::make_unique<TypeInfo>();
    record->name = TypeName<T>();
  }
  return record.get();
}

}  // namespace vx::internal

#endif  // JSBINDING_V8_TYPE_INFO_H_
