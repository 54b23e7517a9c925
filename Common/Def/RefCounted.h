// Intrusive reference count of the root objects of the native side.
#ifndef NQ_COMMON_DEF_REFCOUNTED_H_
#define NQ_COMMON_DEF_REFCOUNTED_H_

#include <cstdint>

namespace nq::engine {

// Base of objects shared by counted references. The creator holds the first one; dropping the last
// one deletes the object within that call: do not use it afterwards.
//
// Thread safety: the count is not atomic. Only the script thread changes it; worker threads use
// plain pointers to these objects while the script thread waits for them.
class RefCounted {
 public:
  RefCounted() = default;
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;
  virtual ~RefCounted() = default;

  void AddReference() { ++referenceCount_; }

  // Drops one reference; deletes the object if it was the last.
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
