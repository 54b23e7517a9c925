// Size classes, chunks and the two indexes of live blocks.
#include "Common/Def/MemoryAllocator.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "Common/Def/AlignedAlloc.h"
#include "Common/Def/Assert.h"

namespace nq::engine {

namespace {

using SizeClassTable = std::array<uint8_t, kMaxSmallBlockBytes + 1>;

// Built at compile time, not lazily by the first allocator: a worker thread of the host and its
// main thread may create their first engines concurrently.
constexpr SizeClassTable BuildSizeClassTable() {
  SizeClassTable table = {};
  uint32_t j = 0;
  for (uint32_t size = 1; size <= kMaxSmallBlockBytes; ++size) {
    if (size > kMemoryBlockSizes[j]) {
      ++j;
    }
    table[size] = static_cast<uint8_t>(j);
  }
  return table;
}

constexpr SizeClassTable kSizeClassTable = BuildSizeClassTable();

static_assert(kSizeClassTable[1] == 0 && kSizeClassTable[16] == 0 && kSizeClassTable[17] == 1,
              "class 0 takes 1 to 16 bytes");
static_assert(kSizeClassTable[kMaxSmallBlockBytes] == kMemoryBlockSizeTypesCount - 1,
              "the last class takes the largest small request");

}  // namespace

MemoryAllocator::MemoryAllocator()
    : chunks(static_cast<ChunkEntry*>(std::calloc(kChunkTableStep, sizeof(ChunkEntry)))) {
  for (uint32_t size = 1; size <= kMaxSmallBlockBytes; ++size) {
    const uint32_t j = kSizeClassTable[size];
    NQ_ASSERT(j < kMemoryBlockSizeTypesCount, "Common/Def/MemoryAllocator");
  }
}

MemoryAllocator::~MemoryAllocator() {
  MutexLock lock(mutex);
  FreeChunks();
  std::free(chunks);
}

uint32_t MemoryAllocator::SizeClass(uint32_t size) {
  return kSizeClassTable[size];
}

MemoryBlock MemoryAllocator::Allocate(uint32_t size) {
  MutexLock lock(mutex);
  if (size == 0) {
    return MemoryBlock();
  }

  void* pointer;
  uint32_t storedSize;
  if (size > kMaxSmallBlockBytes) {
    // Aligned to a cache line, so that matrices of 64 bytes that JavaScript lays out from the start
    // of a large block do not straddle two cache lines. The result is not checked: if out of memory
    // the pointer is null, and the write below faults.
    pointer = CacheLineAlloc(size);
    storedSize = size;
  } else {
    const uint32_t index = kSizeClassTable[size];
    NQ_ASSERT(index < kMemoryBlockSizeTypesCount, "Common/Def/MemoryAllocator");
    if (freeLists[index] == nullptr) {
      AddChunk(index);
    }
    pointer = freeLists[index];
    std::memcpy(&freeLists[index], pointer, sizeof(void*));
    storedSize = kMemoryBlockSizes[index];
  }

  MemoryBlock block;
  block.size = size;
  block.memoryID = nextMemoryID++;
  block.pointer = pointer;
  std::memset(pointer, 0, size);
  blocksByPointer[pointer] = BlockEntry{storedSize, 1};
  blocksByID.Enter(block);
  return block;
}

void MemoryAllocator::AddChunk(uint32_t index) {
  if (chunkCount == chunkCapacity) {
    const size_t capacity = static_cast<size_t>(chunkCapacity) + kChunkTableStep;
    ChunkEntry* grown = static_cast<ChunkEntry*>(std::calloc(capacity, sizeof(ChunkEntry)));
    std::memcpy(grown, chunks, static_cast<size_t>(chunkCount) * sizeof(ChunkEntry));
    std::free(chunks);
    chunks = grown;
    chunkCapacity += kChunkTableStep;
  }

  const uint32_t blockSize = kMemoryBlockSizes[index];
  char* memory = static_cast<char*>(std::malloc(kChunkBytes));
  chunks[chunkCount] = ChunkEntry{blockSize, memory};
  ++chunkCount;

  const uint32_t blockCount = kChunkBytes / blockSize;
  for (uint32_t i = 0; i < blockCount; ++i) {
    char* block = memory + static_cast<size_t>(i) * blockSize;
    void* next = i + 1 < blockCount ? block + blockSize : nullptr;
    std::memcpy(block, &next, sizeof(void*));
  }
  freeLists[index] = memory;
}

bool MemoryAllocator::Retain(void* pointer) {
  MutexLock lock(mutex);
  const auto found = blocksByPointer.find(pointer);
  if (found == blocksByPointer.end()) {
    return false;
  }
  ++found->second.refCount;
  return true;
}

void MemoryAllocator::Release(const MemoryBlock& block) {
  MutexLock lock(mutex);
  const auto found = blocksByPointer.find(block.pointer);
  if (found == blocksByPointer.end()) {
    return;
  }
  if (found->second.refCount-- > 1) {
    return;
  }

  const uint32_t storedSize = found->second.size;
  blocksByPointer.erase(found);
  // Kept on purpose: the ID comes from the caller's record. A view's record has 0, so the last
  // release through a view removes the entry of block 0 and leaves that of its own block. Programs
  // rely on which IDs resolve.
  blocksByID.Remove(block.memoryID);

  if (storedSize > kMaxSmallBlockBytes) {
    CacheLineFree(block.pointer);
    return;
  }
  const uint32_t index = kSizeClassTable[storedSize];
  NQ_ASSERT(index < kMemoryBlockSizeTypesCount, "Common/Def/MemoryAllocator");
  std::memcpy(block.pointer, &freeLists[index], sizeof(void*));
  freeLists[index] = block.pointer;
}

void MemoryAllocator::Reset() {
  MutexLock lock(mutex);
  FreeChunks();
}

void MemoryAllocator::FreeChunks() {
  for (int32_t i = 0; i < chunkCount; ++i) {
    std::free(chunks[i].memory);
  }
  chunkCount = 0;
  std::memset(chunks, 0, static_cast<size_t>(chunkCapacity) * sizeof(ChunkEntry));
  std::memset(freeLists, 0, sizeof(freeLists));
}

int32_t MemoryAllocator::ChunkCount() const {
  MutexLock lock(mutex);
  return chunkCount;
}

int32_t MemoryAllocator::ChunkCapacity() const {
  MutexLock lock(mutex);
  return chunkCapacity;
}

}  // namespace nq::engine
