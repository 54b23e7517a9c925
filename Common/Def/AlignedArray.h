// A cache-line aligned array, for the columns of a batch.
#ifndef NQ_COMMON_DEF_ALIGNEDARRAY_H_
#define NQ_COMMON_DEF_ALIGNEDARRAY_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "Common/Def/AlignedAlloc.h"

namespace nq::engine {

// Owns the memory of `T`s that need no destructor; initially empty. The elements are raw bytes,
// zeroed by Allocate, until the owner stores or constructs values there.
template <typename T>
class AlignedArray {
 public:
  static_assert(std::is_trivially_destructible<T>::value, "only the memory is freed");

  AlignedArray() = default;
  ~AlignedArray() { Free(); }
  AlignedArray(const AlignedArray&) = delete;
  AlignedArray& operator=(const AlignedArray&) = delete;

  // Frees the old elements and allocates `count` zeroed elements, the first aligned to a cache
  // line. Returns it.
  T* Allocate(uint32_t count) {
    T* const first = AllocateRaw(count, kCacheLineBytes);
    // If T has constructors, the owner calls them afterwards.
    std::memset(static_cast<void*>(first), 0, size_t{count} * sizeof(T));
    return first;
  }

  // The same uninitialised, and with the first element aligned to `alignment` bytes.
  T* AllocateRaw(uint32_t count, uint32_t alignment) {
    Free();
    elements = static_cast<T*>(AlignedAlloc(alignment, count * static_cast<uint32_t>(sizeof(T))));
    return elements;
  }

  // The first element; null while empty.
  T* Data() const { return elements; }
  T& operator[](uint32_t index) const { return elements[index]; }

 private:
  void Free() {
    if (elements != nullptr) {
      AlignedFree(elements);
    }
  }

  T* elements = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_ALIGNEDARRAY_H_
