// The blocks of memory that script and native code share.
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

// Requests up to this many bytes belong to a size class; larger ones go to the heap.
constexpr uint32_t kMaxSmallBlockBytes = 640;

constexpr uint32_t kChunkBytes = 16384;
constexpr int32_t kChunkTableStep = 128;

// Block size of each class, in bytes.
constexpr uint32_t kMemoryBlockSizes[kMemoryBlockSizeTypesCount] = {
    16, 32, 64, 96, 128, 160, 192, 224, 256, 320, 384, 448, 512, 640};

// Size-class allocator for small blocks over 16 KiB chunks, with the plain heap above 640 bytes.
// Every live block stands in two indexes: by address, with its reference count, and by memoryID.
//
// Ownership: a chunk stays until Reset or the destructor. Large blocks that are live when the
// allocator goes are not freed by it.
//
// Thread safety: Allocate, Retain and Release may be called from any thread; `mutex` guards all
// fields. Find takes no lock and must not run beside the three.
//
// Invariants: a free block's first bytes hold the next free block of its class, null at the end.
// The stored size of a live block is its class's block size, or for a large block the size asked
// for; so a stored size of at most 640 says that the block belongs to a class. Every live block has
// exactly one entry in each index. A memoryID is never given out twice.
class MemoryAllocator {
 public:
  MemoryAllocator();
  ~MemoryAllocator();
  MemoryAllocator(const MemoryAllocator&) = delete;
  MemoryAllocator& operator=(const MemoryAllocator&) = delete;

  // Returns a block with reference count 1, its first `size` bytes zeroed; the tail of the class's
  // block keeps what it held. A size of 0 gives the all-zero record and uses up no memoryID. Memory
  // exhaustion is not reported: the first write to the block then faults.
  MemoryBlock Allocate(uint32_t size) NQ_EXCLUDES(mutex);

  // Adds a reference. False if `pointer` is not the start of a live block.
  bool Retain(void* pointer) NQ_EXCLUDES(mutex);

  // Drops a reference and frees the block when none is left. An unknown address is ignored. The ID
  // entry that goes is that of `block.memoryID`, whatever ID the block was given out with.
  void Release(const MemoryBlock& block) NQ_EXCLUDES(mutex);

  // The block of `memoryID`, or all zero. Reads without the lock: look-ups run on the script
  // thread, which alone allocates and releases.
  MemoryBlock Find(uint32_t memoryID) const NQ_NO_THREAD_SAFETY_ANALYSIS {
    return blocksByID.Find(memoryID);
  }

  // Frees all chunks and empties all free lists. Leaves both indexes alone, so every small block
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

  // Takes 16 KiB from the heap and links its blocks in address order into the class's free list.
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
