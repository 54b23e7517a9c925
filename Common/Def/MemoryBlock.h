// The record that describes a block of shared memory.
#ifndef NQ_COMMON_DEF_MEMORYBLOCK_H_
#define NQ_COMMON_DEF_MEMORYBLOCK_H_

#include <cstdint>

namespace nq::engine {

// Plain values, copied freely; owns nothing. All zero means that there is no block. A memoryID of 0
// alone does not: the first block of an allocator has it. Test `pointer`.
struct MemoryBlock {
  uint32_t size = 0;      // bytes that the caller asked for
  uint32_t memoryID = 0;  // the block's number, unique in its allocator and never reused
  void* pointer = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MEMORYBLOCK_H_
