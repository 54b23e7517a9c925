// The allocator of the memory that JavaScript and native code share.
#ifndef NQ_COMMON_DEF_MEMORYALLOCATOR_H_
#define NQ_COMMON_DEF_MEMORYALLOCATOR_H_

#include <cstddef>
#include <cstdint>
#include <map>

#include "Common/Def/BlockTable.h"
#include "Common/Def/MemoryBlock.h"
#include "Common/Def/Mutex.h"

namespace nq::engine {

constexpr uint32_t kMemoryBlockSizeTypesCount = 14;

// The largest request in bytes that a size class serves; larger ones go to the heap.
constexpr uint32_t kMaxSmallBlockBytes = 640;

constexpr uint32_t kChunkBytes = 16384;
constexpr int32_t kChunkTableStep = 128;

// Block size of each class, in bytes.
constexpr uint32_t kMemoryBlockSizes[kMemoryBlockSizeTypesCount] = {
    16, 32, 64, 96, 128, 160, 192, 224, 256, 320, 384, 448, 512, 640};

// Size-class allocator for small blocks in 16 KiB chunks; blocks above 640 bytes come from the
// heap. Every live block is in two indexes: by address, with its reference count, and by memoryID.
//
// Ownership: chunks are kept until Reset or the destructor. Neither frees large blocks that are
// still live.
//
// Thread safety: Allocate, Retain and Release may be called from any thread; `mutex` guards all
// fields. Find takes no lock and must not run concurrently with these three.
//
// Invariants: a free block's first bytes point to the next free block of its class, null at the
// end. The stored size of a live block is its class's block size, or for a large block the
// requested size; so a stored size of at most 640 means that the block belongs to a class. Every
// live block has exactly one entry in each index. A memoryID is never reused.
class MemoryAllocator {
 public:
  MemoryAllocator();
  ~MemoryAllocator();
  MemoryAllocator(const MemoryAllocator&) = delete;
  MemoryAllocator& operator=(const MemoryAllocator&) = delete;

  // Returns a block with reference count 1, its first `size` bytes zeroed; the tail of the class's
  // block keeps its old content. A size of 0 returns the all-zero record and consumes no memoryID.
  // Memory exhaustion is not reported: the first write to the block then faults.
  MemoryBlock Allocate(uint32_t size) NQ_EXCLUDES(mutex);

  // Adds a reference. False if `pointer` is not the start of a live block.
  bool Retain(void* pointer) NQ_EXCLUDES(mutex);

  // Drops a reference and frees the block if it was the last. An unknown address is ignored.
  // Removes the ID entry of `block.memoryID`, whatever ID the block was allocated with.
  void Release(const MemoryBlock& block) NQ_EXCLUDES(mutex);

  // The block of `memoryID`, or all zero. Reads without the lock: look-ups run on the script
  // thread, the only one that allocates and releases.
  MemoryBlock Find(uint32_t memoryID) const NQ_NO_THREAD_SAFETY_ANALYSIS {
    return blocksByID.Find(memoryID);
  }

  // Frees all chunks and clears all free lists. Does not change the indexes, so every small block
  // that is still live dangles afterwards.
  void Reset() NQ_EXCLUDES(mutex);

  // The size class of a request of 1 to 640 bytes: the smallest whose block size is at least
  // `size`.
  static uint32_t SizeClass(uint32_t size);

  int32_t ChunkCount() const NQ_EXCLUDES(mutex);
  int32_t ChunkCapacity() const NQ_EXCLUDES(mutex);

 private:
  struct ChunkEntry {
    uint32_t blockSize;
    char* memory;
  };

  struct BlockEntry {
    uint32_t size;
    uint32_t refCount;
  };

  // Allocates 16 KiB from the heap and links its blocks in address order into the class's free
  // list.
  void AddChunk(uint32_t index) NQ_REQUIRES(mutex);
  void FreeChunks() NQ_REQUIRES(mutex);

  mutable Mutex mutex;
  ChunkEntry* chunks NQ_GUARDED_BY(mutex);
  int32_t chunkCount NQ_GUARDED_BY(mutex) = 0;
  int32_t chunkCapacity NQ_GUARDED_BY(mutex) = kChunkTableStep;
  void* freeLists[kMemoryBlockSizeTypesCount] NQ_GUARDED_BY(mutex) = {};
  std::map<void*, BlockEntry> blocksByPointer NQ_GUARDED_BY(mutex);
  BlockTable blocksByID NQ_GUARDED_BY(mutex);
  uint32_t nextMemoryID NQ_GUARDED_BY(mutex) = 0;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MEMORYALLOCATOR_H_
