// Size classes, chunks, free lists, both indexes of live blocks.
#include "Common/Def/MemoryAllocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace nq::engine {
namespace {

struct SizeClassFact {
  uint32_t blockSize;
  uint32_t blocksPerChunk;
  uint32_t unusedBytes;
};

// 16384 / blockSize and the remainder of a chunk, computed by hand.
constexpr SizeClassFact kSizeClassFacts[] = {
    {16, 1024, 0},  {32, 512, 0},   {64, 256, 0},  {96, 170, 64},  {128, 128, 0},
    {160, 102, 64}, {192, 85, 64},  {224, 73, 32}, {256, 64, 0},   {320, 51, 64},
    {384, 42, 256}, {448, 36, 256}, {512, 32, 0},  {640, 25, 384},
};

class MemoryAllocatorTest : public testing::Test {
 protected:
  static uint8_t* Bytes(const MemoryBlock& block) { return static_cast<uint8_t*>(block.pointer); }

  static void Fill(const MemoryBlock& block, uint8_t value, size_t bytes) {
    std::memset(block.pointer, value, bytes);
  }

  static bool Reads(const uint8_t* from, size_t bytes, uint8_t value) {
    return std::all_of(from, from + bytes, [value](uint8_t byte) { return byte == value; });
  }

  static bool IsNoBlock(const MemoryBlock& block) {
    return block.size == 0 && block.memoryID == 0 && block.pointer == nullptr;
  }

  MemoryAllocator memory;
};

TEST_F(MemoryAllocatorTest, ASizeOfZeroReturnsNoBlockAndUsesNoMemoryID) {
  EXPECT_TRUE(IsNoBlock(memory.Allocate(0)));
  EXPECT_EQ(memory.ChunkCount(), 0);
  EXPECT_EQ(memory.Allocate(8).memoryID, 0u);
  EXPECT_TRUE(IsNoBlock(memory.Allocate(0)));
  EXPECT_EQ(memory.Allocate(8).memoryID, 1u);
}

TEST_F(MemoryAllocatorTest, TheFirstBlockHasMemoryIDZeroAndAPointer) {
  const MemoryBlock block = memory.Allocate(24);
  EXPECT_EQ(block.memoryID, 0u);
  EXPECT_EQ(block.size, 24u);
  ASSERT_NE(block.pointer, nullptr);

  const MemoryBlock found = memory.Find(0);
  EXPECT_EQ(found.pointer, block.pointer);
  EXPECT_EQ(found.size, 24u);
  EXPECT_EQ(found.memoryID, 0u);
}

TEST_F(MemoryAllocatorTest, AnUnknownMemoryIDFindsNoBlock) {
  EXPECT_TRUE(IsNoBlock(memory.Find(0)));
  memory.Allocate(24);
  EXPECT_TRUE(IsNoBlock(memory.Find(1)));
  EXPECT_TRUE(IsNoBlock(memory.Find(0xFFFFFFFFu)));
}

TEST_F(MemoryAllocatorTest, EveryRequestUsesTheSmallestSizeClassThatFits) {
  uint32_t expected = 0;
  for (uint32_t size = 1; size <= 640; ++size) {
    while (kSizeClassFacts[expected].blockSize < size) {
      ++expected;
    }
    EXPECT_EQ(MemoryAllocator::SizeClass(size), expected) << "size " << size;
  }
  EXPECT_EQ(expected, 13u);
}

TEST_F(MemoryAllocatorTest, OneAndSixteenShareAClassThatSeventeenDoesNot) {
  const MemoryBlock sixteen = memory.Allocate(16);
  const MemoryBlock one = memory.Allocate(1);
  EXPECT_EQ(Bytes(one), Bytes(sixteen) + 16);
  EXPECT_EQ(memory.ChunkCount(), 1);
  memory.Allocate(17);
  EXPECT_EQ(memory.ChunkCount(), 2);
}

TEST_F(MemoryAllocatorTest, SixHundredFortyTakesAChunkAndSixHundredFortyOneTheHeap) {
  const MemoryBlock large = memory.Allocate(641);
  ASSERT_NE(large.pointer, nullptr);
  EXPECT_EQ(memory.ChunkCount(), 0);
  memory.Allocate(640);
  EXPECT_EQ(memory.ChunkCount(), 1);
  memory.Release(large);
}

TEST_F(MemoryAllocatorTest, AChunkIssuesItsBlocksInAddressOrderAndLeavesTheRemainderUnused) {
  int32_t chunks = 0;
  for (const SizeClassFact& fact : kSizeClassFacts) {
    SCOPED_TRACE(fact.blockSize);
    ASSERT_EQ(16384 - fact.blockSize * fact.blocksPerChunk, fact.unusedBytes);
    const MemoryBlock first = memory.Allocate(fact.blockSize);
    ++chunks;
    EXPECT_EQ(memory.ChunkCount(), chunks);
    for (uint32_t i = 1; i < fact.blocksPerChunk; ++i) {
      // Any request of the class: alternately the largest and the smallest.
      const uint32_t size = i % 2 == 0 ? fact.blockSize : fact.blockSize - 15;
      ASSERT_EQ(Bytes(memory.Allocate(size)), Bytes(first) + i * fact.blockSize) << "block " << i;
    }
    EXPECT_EQ(memory.ChunkCount(), chunks);
    memory.Allocate(fact.blockSize);
    ++chunks;
    EXPECT_EQ(memory.ChunkCount(), chunks) << "one block more than a chunk holds";
  }
}

TEST_F(MemoryAllocatorTest, AReleasedBlockIsReusedZeroedUnderANewMemoryID) {
  const MemoryBlock before = memory.Allocate(48);
  Fill(before, 0xAB, 64);
  memory.Release(before);
  EXPECT_TRUE(IsNoBlock(memory.Find(before.memoryID)));

  const MemoryBlock after = memory.Allocate(40);
  EXPECT_EQ(after.pointer, before.pointer);
  EXPECT_EQ(after.memoryID, 1u);
  EXPECT_EQ(after.size, 40u);
  EXPECT_TRUE(Reads(Bytes(after), 40, 0));
}

TEST_F(MemoryAllocatorTest, OnlyTheRequestedBytesAreZeroedAndTheTailKeepsItsContent) {
  const MemoryBlock before = memory.Allocate(32);
  Fill(before, 0xAB, 32);
  memory.Release(before);
  const MemoryBlock after = memory.Allocate(20);
  ASSERT_EQ(after.pointer, before.pointer);
  EXPECT_TRUE(Reads(Bytes(after), 20, 0));
  EXPECT_TRUE(Reads(Bytes(after) + 20, 12, 0xAB));
}

TEST_F(MemoryAllocatorTest, BlocksOfAClassAreReusedLastReleasedFirst) {
  const MemoryBlock a = memory.Allocate(100);
  const MemoryBlock b = memory.Allocate(100);
  const MemoryBlock c = memory.Allocate(100);
  memory.Release(b);
  memory.Release(a);
  memory.Release(c);
  EXPECT_EQ(memory.Allocate(100).pointer, c.pointer);
  EXPECT_EQ(memory.Allocate(100).pointer, a.pointer);
  EXPECT_EQ(memory.Allocate(100).pointer, b.pointer);
  EXPECT_EQ(Bytes(memory.Allocate(100)), Bytes(a) + 3 * 128) << "then the chunk goes on";
}

TEST_F(MemoryAllocatorTest, AReleasedBlockIsReusedByItsOwnClassOnly) {
  const MemoryBlock released = memory.Allocate(64);
  memory.Release(released);
  EXPECT_NE(memory.Allocate(32).pointer, released.pointer);
  EXPECT_NE(memory.Allocate(65).pointer, released.pointer);
  EXPECT_EQ(memory.Allocate(33).pointer, released.pointer);
}

TEST_F(MemoryAllocatorTest, AMemoryIDIsNeverReused) {
  // Small and large alternately, released at once or a little later.
  std::vector<MemoryBlock> live;
  for (uint32_t i = 0; i < 5000; ++i) {
    const MemoryBlock block = memory.Allocate(i % 7 == 0 ? 700 + i : 1 + i % 640);
    ASSERT_EQ(block.memoryID, i);
    live.push_back(block);
    if (i % 3 != 0) {
      memory.Release(live[live.size() / 2]);
      EXPECT_TRUE(IsNoBlock(memory.Find(live[live.size() / 2].memoryID)));
      live.erase(live.begin() + static_cast<std::ptrdiff_t>(live.size() / 2));
    }
  }
  for (const MemoryBlock& block : live) {
    memory.Release(block);
  }
  EXPECT_EQ(memory.Allocate(1).memoryID, 5000u);
}

TEST_F(MemoryAllocatorTest, AfterRetainTheFirstReleaseLeavesTheBlockLiveAndTheSecondFreesIt) {
  const MemoryBlock block = memory.Allocate(100);
  EXPECT_TRUE(memory.Retain(block.pointer));
  Fill(block, 0xCD, 100);

  memory.Release(block);
  EXPECT_EQ(memory.Find(block.memoryID).pointer, block.pointer);
  EXPECT_NE(memory.Allocate(100).pointer, block.pointer);
  EXPECT_TRUE(Reads(Bytes(block), 100, 0xCD));

  memory.Release(block);
  EXPECT_TRUE(IsNoBlock(memory.Find(block.memoryID)));
  EXPECT_FALSE(memory.Retain(block.pointer));
  EXPECT_EQ(memory.Allocate(100).pointer, block.pointer);
}

TEST_F(MemoryAllocatorTest, ALargeBlockIsReferenceCountedToo) {
  const MemoryBlock block = memory.Allocate(100000);
  EXPECT_TRUE(Reads(Bytes(block), 100000, 0));
  EXPECT_TRUE(memory.Retain(block.pointer));
  memory.Release(block);
  Fill(block, 0xCD, 100000);
  EXPECT_EQ(memory.Find(block.memoryID).size, 100000u);
  memory.Release(block);
  EXPECT_TRUE(IsNoBlock(memory.Find(block.memoryID)));
  EXPECT_FALSE(memory.Retain(block.pointer));
}

// Matrices that are contiguous in such a block take one cache line each.
TEST_F(MemoryAllocatorTest, ALargeBlockIsCacheLineAligned) {
  std::vector<MemoryBlock> blocks;
  for (uint32_t size = 641; size < 4000; size += 37) {
    blocks.push_back(memory.Allocate(size));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks.back().pointer) % 64, 0u) << size;
  }
  for (const MemoryBlock& block : blocks) {
    memory.Release(block);
  }
}

TEST_F(MemoryAllocatorTest, ALargeBlockIsZeroedThoughTheHeapReusesMemory) {
  for (int i = 0; i < 20; ++i) {
    const MemoryBlock block = memory.Allocate(2000);
    EXPECT_TRUE(Reads(Bytes(block), 2000, 0));
    Fill(block, 0xEE, 2000);
    memory.Release(block);
  }
}

TEST_F(MemoryAllocatorTest, OnlyTheStartOfALiveBlockCanBeRetained) {
  const MemoryBlock block = memory.Allocate(100);
  const MemoryBlock large = memory.Allocate(1000);
  int elsewhere = 0;
  EXPECT_FALSE(memory.Retain(nullptr));
  EXPECT_FALSE(memory.Retain(&elsewhere));
  EXPECT_FALSE(memory.Retain(Bytes(block) + 4));
  EXPECT_FALSE(memory.Retain(Bytes(block) + 128)) << "the next block is still free";
  EXPECT_FALSE(memory.Retain(Bytes(large) + 640));
  memory.Release(large);
  EXPECT_FALSE(memory.Retain(large.pointer));
}

TEST_F(MemoryAllocatorTest, ReleasingTwiceIsHarmless) {
  const MemoryBlock block = memory.Allocate(16);
  memory.Release(block);
  memory.Release(block);
  const MemoryBlock first = memory.Allocate(16);
  const MemoryBlock second = memory.Allocate(16);
  EXPECT_EQ(first.pointer, block.pointer);
  EXPECT_NE(second.pointer, block.pointer);
}

TEST_F(MemoryAllocatorTest, ReleasingAnUnknownAddressChangesNeitherIndex) {
  const MemoryBlock block = memory.Allocate(16);
  uint8_t elsewhere[16];
  MemoryBlock stranger = block;
  stranger.pointer = elsewhere;
  memory.Release(stranger);
  memory.Release(MemoryBlock());
  EXPECT_EQ(memory.Find(block.memoryID).pointer, block.pointer);
  EXPECT_NE(memory.Allocate(16).pointer, static_cast<void*>(elsewhere));
  memory.Release(block);
  EXPECT_TRUE(IsNoBlock(memory.Find(block.memoryID)));
}

// Kept on purpose: the ID entry that is removed is the one in the caller's record. Programs rely on
// which IDs resolve.
TEST_F(MemoryAllocatorTest, TheRecordPassedInDecidesWhichIDEntryIsRemoved) {
  const MemoryBlock first = memory.Allocate(16);
  const MemoryBlock second = memory.Allocate(16);
  MemoryBlock record;
  record.pointer = second.pointer;
  ASSERT_EQ(record.memoryID, first.memoryID);
  memory.Release(record);
  EXPECT_TRUE(IsNoBlock(memory.Find(first.memoryID)));
  EXPECT_EQ(memory.Find(second.memoryID).pointer, second.pointer);
  EXPECT_TRUE(memory.Retain(first.pointer)) << "the first block itself is live";
  EXPECT_FALSE(memory.Retain(second.pointer));
}

TEST_F(MemoryAllocatorTest, TheChunkTableGrowsBy128EntriesWithTheOldOnesIntact) {
  EXPECT_EQ(memory.ChunkCapacity(), 128);
  std::vector<MemoryBlock> blocks;
  const auto addChunk = [&] {
    for (int i = 0; i < 25; ++i) {
      blocks.push_back(memory.Allocate(640));
      std::memset(blocks.back().pointer, static_cast<int>(blocks.size() % 251), 640);
    }
  };
  for (int chunk = 0; chunk < 128; ++chunk) {
    addChunk();
  }
  EXPECT_EQ(memory.ChunkCount(), 128);
  EXPECT_EQ(memory.ChunkCapacity(), 128);
  addChunk();
  EXPECT_EQ(memory.ChunkCount(), 129);
  EXPECT_EQ(memory.ChunkCapacity(), 256);
  for (int chunk = 129; chunk < 257; ++chunk) {
    addChunk();
  }
  EXPECT_EQ(memory.ChunkCount(), 257);
  EXPECT_EQ(memory.ChunkCapacity(), 384);

  std::set<void*> addresses;
  for (size_t i = 0; i < blocks.size(); ++i) {
    addresses.insert(blocks[i].pointer);
    ASSERT_TRUE(Reads(Bytes(blocks[i]), 640, static_cast<uint8_t>((i + 1) % 251))) << i;
    ASSERT_EQ(memory.Find(static_cast<uint32_t>(i)).pointer, blocks[i].pointer);
  }
  EXPECT_EQ(addresses.size(), blocks.size());
  // That the entries are intact shows when all chunks are freed: the leak checker knows their
  // number, and a wrong address would end the process.
  memory.Reset();
  EXPECT_EQ(memory.ChunkCount(), 0);
  EXPECT_EQ(memory.ChunkCapacity(), 384);
}

TEST_F(MemoryAllocatorTest, ChunksAreKeptWhenTheirBlocksAreReleased) {
  std::vector<MemoryBlock> blocks;
  for (int i = 0; i < 60; ++i) {
    blocks.push_back(memory.Allocate(640));
  }
  EXPECT_EQ(memory.ChunkCount(), 3);
  for (const MemoryBlock& block : blocks) {
    memory.Release(block);
  }
  EXPECT_EQ(memory.ChunkCount(), 3);
  for (int i = 0; i < 75; ++i) {
    memory.Allocate(640);
  }
  EXPECT_EQ(memory.ChunkCount(), 3);
}

TEST_F(MemoryAllocatorTest, ResetClearsTheFreeListsAndKeepsBothIndexes) {
  const MemoryBlock live = memory.Allocate(16);
  const MemoryBlock released = memory.Allocate(500);
  memory.Release(released);
  ASSERT_EQ(memory.ChunkCount(), 2);

  memory.Reset();
  EXPECT_EQ(memory.ChunkCount(), 0);
  EXPECT_EQ(memory.ChunkCapacity(), 128);
  EXPECT_EQ(memory.Find(live.memoryID).pointer, live.pointer);
  EXPECT_TRUE(memory.Retain(live.pointer));

  // The free list of the released block's class is empty: a chunk has to be taken.
  EXPECT_EQ(memory.Allocate(500).memoryID, 2u);
  EXPECT_EQ(memory.ChunkCount(), 1);
}

TEST_F(MemoryAllocatorTest, ALargeBlockThatIsLiveOutlivesTheAllocator) {
  void* pointer;
  {
    MemoryAllocator shortLived;
    shortLived.Allocate(640);
    pointer = shortLived.Allocate(641).pointer;
  }
  std::memset(pointer, 0xAB, 641);
  EXPECT_TRUE(Reads(static_cast<uint8_t*>(pointer), 641, 0xAB));
  std::free(pointer);
}

TEST_F(MemoryAllocatorTest, BlocksNeverOverlapAndKeepTheirBytes) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);

  struct Live {
    MemoryBlock block;
    uint8_t fill;
    int references;
  };
  std::map<uint8_t*, Live> live;  // by address
  uint32_t nextID = 0;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t action = random() % 10;
    if (action < 5 || live.empty()) {
      const uint32_t size = random() % 16 == 0 ? 641 + random() % 3000 : 1 + random() % 640;
      const MemoryBlock block = memory.Allocate(size);
      ASSERT_EQ(block.memoryID, nextID++);
      ASSERT_EQ(block.size, size);
      ASSERT_TRUE(Reads(Bytes(block), size, 0));
      const auto after = live.lower_bound(Bytes(block));
      ASSERT_TRUE(after == live.end() || Bytes(block) + size <= after->first);
      if (after != live.begin()) {
        const auto before = std::prev(after);
        ASSERT_LE(before->first + before->second.block.size, Bytes(block));
      }
      const uint8_t fill = static_cast<uint8_t>(1 + random() % 255);
      Fill(block, fill, size);
      live[Bytes(block)] = {block, fill, 1};
      continue;
    }
    auto chosen = live.begin();
    std::advance(chosen, random() % std::min<size_t>(live.size(), 32));
    Live& entry = chosen->second;
    if (action < 6) {
      ASSERT_TRUE(memory.Retain(entry.block.pointer));
      ++entry.references;
      continue;
    }
    ASSERT_TRUE(Reads(chosen->first, entry.block.size, entry.fill));
    memory.Release(entry.block);
    if (--entry.references == 0) {
      ASSERT_TRUE(IsNoBlock(memory.Find(entry.block.memoryID)));
      live.erase(chosen);
    } else {
      ASSERT_EQ(memory.Find(entry.block.memoryID).pointer, entry.block.pointer);
    }
  }
  for (const auto& [address, entry] : live) {
    ASSERT_TRUE(Reads(address, entry.block.size, entry.fill));
    for (int i = 0; i < entry.references; ++i) {
      memory.Release(entry.block);
    }
    ASSERT_FALSE(memory.Retain(address));
  }
}

TEST_F(MemoryAllocatorTest, SeveralThreadsCanAllocateAndReleaseConcurrently) {
  constexpr int kRounds = 3000;
  std::vector<std::vector<uint32_t>> ids(4);
  std::vector<int> spoiled(4, 0);
  std::vector<std::thread> threads;
  for (uint32_t worker = 0; worker < 4; ++worker) {
    threads.emplace_back([&, worker] {
      for (int round = 0; round < kRounds; ++round) {
        const MemoryBlock block = memory.Allocate(32);
        Fill(block, static_cast<uint8_t>(worker + 1), 32);
        ids[worker].push_back(block.memoryID);
        const bool retained = memory.Retain(block.pointer);
        memory.Release(block);
        if (!retained || !Reads(Bytes(block), 32, static_cast<uint8_t>(worker + 1))) {
          ++spoiled[worker];
        }
        memory.Release(block);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_THAT(spoiled, testing::Each(0));
  std::set<uint32_t> all;
  for (const std::vector<uint32_t>& some : ids) {
    all.insert(some.begin(), some.end());
  }
  EXPECT_EQ(all.size(), 4u * kRounds);
  EXPECT_EQ(*all.rbegin(), 4u * kRounds - 1);
  EXPECT_EQ(memory.ChunkCount(), 1);
}

}  // namespace
}  // namespace nq::engine
