// Heap memory at a wanted alignment.
#ifndef NQ_COMMON_DEF_ALIGNEDALLOC_H_
#define NQ_COMMON_DEF_ALIGNEDALLOC_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "Common/Def/Platform.h"

namespace nq::engine {

// Returns `size` bytes at a multiple of the larger of `alignment` and 4, uninitialised, from the
// general heap. The distance from the raw address stands in the four bytes ahead of the result. The
// heap's answer is used unchecked. Any thread.
void* AlignedAlloc(uint32_t alignment, uint32_t size);

// Frees what AlignedAlloc returned. `pointer` must not be null. Any thread.
void AlignedFree(void* pointer);

constexpr size_t kCacheLineBytes = 64;

// Returns `size` bytes at the start of a cache line, uninitialised, from the general heap, or null
// where that has none. Any thread.
inline void* CacheLineAlloc(size_t size) {
#if NQ_HAS_POSIX_MEMALIGN
  void* pointer = nullptr;
  const int unchecked = posix_memalign(&pointer, kCacheLineBytes, size);
  static_cast<void>(unchecked);  // without memory the pointer stays null
  return pointer;
#else
  return ::operator new (size, std::align_val_t{kCacheLineBytes}, std::nothrow);
#endif
}

// Frees what CacheLineAlloc returned. Any thread.
inline void CacheLineFree(void* pointer) {
#if NQ_HAS_POSIX_MEMALIGN
  std::free(pointer);
#else
  ::operator delete (pointer, std::align_val_t{kCacheLineBytes});
#endif
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_ALIGNEDALLOC_H_
