// The intrusive reference count of the objects at the root of the native side.
#ifndef NQ_COMMON_DEF_REFCOUNTED_H_
#define NQ_COMMON_DEF_REFCOUNTED_H_

#include <cstdint>

namespace nq::engine {

// Base of objects that are shared by counted pointers. The creator holds the first reference;
// whoever drops the last one deletes the object inside that very call, and nobody may touch it
// afterwards.
//
// Thread safety: the count is not atomic. Only the script thread changes it; worker threads reach
// these objects by plain pointer while the script thread waits for them.
class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;
  virtual ~RefCounted() = default;

  void AddReference() { ++referenceCount_; }

  // Gives one reference back; deletes the object when it was the last.
  void DropReference() {
    if (--referenceCount_ == 0) {
      delete this;
    }
  }

  uint32_t ReferenceCount() const { return referenceCount_; }

 private:
  uint32_t referenceCount_ = 1;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_REFCOUNTED_H_
