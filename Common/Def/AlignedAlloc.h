// Heap memory at a wanted alignment.
#ifndef NQ_COMMON_DEF_ALIGNEDALLOC_H_
#define NQ_COMMON_DEF_ALIGNEDALLOC_H_

#include <cstdint>

namespace nq::engine {

// Returns `size` bytes at a multiple of the larger of `alignment` and 4, uninitialised, from the
// general heap. The distance from the raw address stands in the four bytes ahead of the result. The
// heap's answer is used unchecked. Any thread.
void* AlignedAlloc(uint32_t alignment, uint32_t size);

// Frees what AlignedAlloc returned. `pointer` must not be null. Any thread.
void AlignedFree(void* pointer);

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_ALIGNEDALLOC_H_
