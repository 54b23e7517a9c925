// Run-time type records of wrapped classes.
#ifndef JSBINDING_V8_TYPE_INFO_H_
#define JSBINDING_V8_TYPE_INFO_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vx::internal {

// Run-time type information of a class: a name that identifies it, and the flat list of its
// ancestors.
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

  // True if this is `other`'s class or derived from it. `other`'s ancestors are ignored.
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

// A unique address per T; the key of T in the registries of a thread.
template <typename T>
const void* TypeKey() {
  static const char key = 0;
  return &key;
}

// A unique name per type; never visible to JavaScript.
template <typename T>
const char* TypeName() {
  return __PRETTY_FUNCTION__;
}

// The calling thread's record of T, created lazily and freed when the thread ends.
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
