// Aligned heap memory.
#ifndef NQ_COMMON_DEF_ALIGNEDALLOC_H_
#define NQ_COMMON_DEF_ALIGNEDALLOC_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "Common/Def/Platform.h"

namespace nq::engine {

// Returns `size` bytes aligned to the larger of `alignment` and 4, uninitialised, from the general
// heap. The four bytes before the result hold its distance from the raw address. The result of
// malloc is not checked. Any thread.
void* AlignedAlloc(uint32_t alignment, uint32_t size);

// Frees what AlignedAlloc returned. `pointer` must not be null. Any thread.
void AlignedFree(void* pointer);

constexpr size_t kCacheLineBytes = 64;

// Returns `size` bytes aligned to a cache line, uninitialised, from the general heap, or null if it
// is exhausted. Any thread.
inline void* CacheLineAlloc(size_t size) {
#if NQ_HAS_POSIX_MEMALIGN
  void* pointer = nullptr;
  const int unchecked = posix_memalign(&pointer, kCacheLineBytes, size);
  static_cast<void>(unchecked);  // if out of memory, the pointer stays null
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
