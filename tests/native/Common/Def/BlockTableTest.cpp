// Blocks by memoryID: pages that are created and freed, and IDs that were never issued.
#include "Common/Def/BlockTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "Common/Def/MemoryAllocator.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {
namespace {

// The page size, for numbers around its ends.
constexpr uint32_t kPage = 256;

// The number of pages of a table, which nothing but memory shows. An explicit instantiation may
// name private members.
size_t PageCount(const BlockTable& table);

template <auto pages>
struct PageAccess {
  friend size_t PageCount(const BlockTable& table) {
    return (table.*pages).size() -
           static_cast<size_t>(std::count((table.*pages).begin(), (table.*pages).end(), nullptr));
  }
};
template struct PageAccess<&BlockTable::pages>;

class BlockTableTest : public testing::Test {
 protected:
  // A block whose fields follow from its number.
  static MemoryBlock BlockOf(uint32_t memoryID) {
    MemoryBlock block;
    block.size = 2 * memoryID + 1;
    block.memoryID = memoryID;
    block.pointer = reinterpret_cast<void*>(static_cast<uintptr_t>(memoryID) * 16 + 4096);
    return block;
  }
  void Enter(uint32_t memoryID) { table.Enter(BlockOf(memoryID)); }
  void EnterUpTo(uint32_t end) {
    for (; next < end; ++next) {
      Enter(next);
    }
  }

  static bool Same(const MemoryBlock& a, const MemoryBlock& b) {
    return a.size == b.size && a.memoryID == b.memoryID && a.pointer == b.pointer;
  }
  bool Has(uint32_t memoryID) const { return Same(table.Find(memoryID), BlockOf(memoryID)); }
  bool HasNot(uint32_t memoryID) const { return Same(table.Find(memoryID), MemoryBlock()); }

  BlockTable table;
  uint32_t next = 0;
};

TEST_F(BlockTableTest, AnEmptyTableFindsNothing) {
  for (const uint32_t memoryID : {0u, 1u, kPage - 1, kPage, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_TRUE(HasNot(memoryID)) << memoryID;
    table.Remove(memoryID);
  }
}

TEST_F(BlockTableTest, ABlockIsFoundUnderItsNumberOnly) {
  Enter(0);
  EXPECT_TRUE(Has(0));
  for (const uint32_t memoryID : {1u, kPage - 1, kPage, 2 * kPage, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(HasNot(memoryID)) << memoryID;
  }
}

TEST_F(BlockTableTest, NumbersAroundTheEndOfAPageAreDistinct) {
  EnterUpTo(2 * kPage + 1);
  for (const uint32_t memoryID : {kPage - 1, kPage, kPage + 1, 2 * kPage - 1, 2 * kPage}) {
    EXPECT_TRUE(Has(memoryID));
    table.Remove(memoryID);
    EXPECT_TRUE(HasNot(memoryID));
    EXPECT_TRUE(Has(memoryID - 5));
  }
  EXPECT_TRUE(HasNot(2 * kPage + 1));
  EXPECT_TRUE(Has(0));
}

TEST_F(BlockTableTest, RemovingTwiceOrAnAbsentNumberChangesNothing) {
  EnterUpTo(kPage + 2);
  table.Remove(5);
  table.Remove(5);
  table.Remove(kPage + 2);
  table.Remove(100 * kPage);
  table.Remove(0xFFFFFFFFu);
  for (uint32_t memoryID = 0; memoryID < kPage + 2; ++memoryID) {
    EXPECT_TRUE(memoryID == 5 ? HasNot(5) : Has(memoryID)) << memoryID;
  }
  // Removals of absent numbers must not be counted: the page is freed with its last block only.
  for (uint32_t memoryID = 0; memoryID < kPage - 1; ++memoryID) {
    table.Remove(memoryID);
    ASSERT_TRUE(Has(kPage - 1)) << memoryID;
  }
  table.Remove(kPage - 1);
  EXPECT_TRUE(HasNot(kPage - 1));
  EXPECT_TRUE(Has(kPage));
}

TEST_F(BlockTableTest, AFullPageIsFreedWithItsLastBlockInAnyOrder) {
  for (const bool fromTheEnd : {false, true}) {
    BlockTable own;
    for (uint32_t memoryID = 0; memoryID <= kPage; ++memoryID) {
      own.Enter(BlockOf(memoryID));
    }
    for (uint32_t i = 0; i < kPage; ++i) {
      const uint32_t memoryID = fromTheEnd ? kPage - 1 - i : i;
      own.Remove(memoryID);
      EXPECT_TRUE(Same(own.Find(memoryID), MemoryBlock()));
    }
    EXPECT_TRUE(Same(own.Find(kPage), BlockOf(kPage)));
  }
}

TEST_F(BlockTableTest, ThePageThatIsBeingFilledOutlivesItsBlocks) {
  EnterUpTo(10);
  for (uint32_t memoryID = 0; memoryID < 10; ++memoryID) {
    table.Remove(memoryID);
  }
  EXPECT_TRUE(HasNot(9));
  EnterUpTo(12);
  EXPECT_TRUE(Has(10));
  EXPECT_TRUE(Has(11));
  EXPECT_TRUE(HasNot(0));
  // It is empty when the next page starts, and is freed then.
  table.Remove(10);
  table.Remove(11);
  next = kPage;
  EnterUpTo(kPage + 1);
  EXPECT_TRUE(HasNot(11));
  EXPECT_TRUE(Has(kPage));
}

TEST_F(BlockTableTest, AFreedPageCanBeInsertedIntoAgain) {
  EnterUpTo(2 * kPage);
  for (uint32_t memoryID = 0; memoryID < kPage; ++memoryID) {
    table.Remove(memoryID);
  }
  Enter(7);
  EXPECT_TRUE(Has(7));
  EXPECT_TRUE(HasNot(6));
  EXPECT_TRUE(HasNot(8));
  table.Remove(7);
  EXPECT_TRUE(HasNot(7));
  EXPECT_TRUE(Has(kPage));
}

TEST_F(BlockTableTest, OnlyPagesWithBlocksAndTheOneBeingFilledUseMemory) {
  EXPECT_EQ(0u, PageCount(table));
  EnterUpTo(3 * kPage + 1);
  EXPECT_EQ(4u, PageCount(table));
  for (uint32_t memoryID = kPage; memoryID < 2 * kPage; ++memoryID) {
    EXPECT_EQ(4u, PageCount(table));
    table.Remove(memoryID);
  }
  EXPECT_EQ(3u, PageCount(table));
  // The last page stays without blocks, until it is no longer the last.
  table.Remove(3 * kPage);
  EXPECT_EQ(3u, PageCount(table));
  next = 4 * kPage;
  EnterUpTo(4 * kPage + 1);
  EXPECT_EQ(3u, PageCount(table));
  EXPECT_TRUE(Has(0));
  EXPECT_TRUE(Has(3 * kPage - 1));
  // One block at a time, many times.
  for (uint32_t i = 0; i < 20 * kPage; ++i) {
    EnterUpTo(next + 1);
    table.Remove(next - 2);
    ASSERT_GE(4u, PageCount(table));
  }
}

TEST_F(BlockTableTest, NumbersMaySkipPages) {
  Enter(3);
  Enter(50 * kPage + 9);
  EXPECT_TRUE(Has(3));
  EXPECT_TRUE(Has(50 * kPage + 9));
  for (uint32_t page = 1; page < 50; ++page) {
    EXPECT_TRUE(HasNot(page * kPage + 9));
    table.Remove(page * kPage + 9);
  }
}

TEST_F(BlockTableTest, RandomUseMatchesAnOrderedMap) {
  const uint32_t seed = 20240917;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::map<uint32_t, MemoryBlock> model;
  for (int step = 0; step < Rounds(120000); ++step) {
    // Waves: mostly insertions, then mostly removals.
    const uint32_t coming = step / 20000 % 2 == 0 ? 7 : 2;
    if (random() % 10 < coming || model.empty()) {
      model[next] = BlockOf(next);
      Enter(next);
      ++next;
    } else {
      auto chosen = model.lower_bound(random() % next);
      if (chosen == model.end()) {
        chosen = model.begin();
      }
      table.Remove(chosen->first);
      model.erase(chosen);
    }
    const uint32_t asked = random() % (next + 300);
    const auto found = model.find(asked);
    ASSERT_TRUE(Same(table.Find(asked), found == model.end() ? MemoryBlock() : found->second))
        << "step " << step << " number " << asked;
  }
  for (uint32_t memoryID = 0; memoryID < next + 300; ++memoryID) {
    ASSERT_EQ(model.count(memoryID) != 0, Has(memoryID)) << memoryID;
  }
}

// The same through the allocator.

class BlockTableOfAllocatorTest : public testing::Test {
 protected:
  bool Finds(const MemoryBlock& block) const {
    const MemoryBlock found = memory.Find(block.memoryID);
    return found.pointer == block.pointer && found.size == block.size &&
           found.memoryID == block.memoryID;
  }
  bool FindsNone(uint32_t memoryID) const {
    const MemoryBlock found = memory.Find(memoryID);
    return found.pointer == nullptr && found.size == 0 && found.memoryID == 0;
  }

  MemoryAllocator memory;
};

TEST_F(BlockTableOfAllocatorTest, TensOfThousandsOfBlocksAreFoundAndRemoved) {
  constexpr uint32_t kCount = 40000;
  std::vector<MemoryBlock> blocks;
  for (uint32_t i = 0; i < kCount; ++i) {
    blocks.push_back(memory.Allocate(1 + i % 32));
    ASSERT_EQ(i, blocks.back().memoryID);
  }
  for (const MemoryBlock& block : blocks) {
    ASSERT_TRUE(Finds(block)) << block.memoryID;
  }
  EXPECT_TRUE(FindsNone(kCount));
  // All but every hundredth are released; then the rest.
  for (const MemoryBlock& block : blocks) {
    if (block.memoryID % 100 != 0) {
      memory.Release(block);
    }
  }
  for (const MemoryBlock& block : blocks) {
    ASSERT_TRUE(block.memoryID % 100 == 0 ? Finds(block) : FindsNone(block.memoryID))
        << block.memoryID;
  }
  for (uint32_t i = 0; i < kCount; i += 100) {
    memory.Release(blocks[i]);
  }
  for (uint32_t i = 0; i < kCount; ++i) {
    ASSERT_TRUE(FindsNone(i));
  }
  const MemoryBlock next = memory.Allocate(8);
  EXPECT_EQ(kCount, next.memoryID);
  EXPECT_TRUE(Finds(next));
}

TEST_F(BlockTableOfAllocatorTest, NumbersAreNeverReusedThoughPagesAreFreed) {
  for (uint32_t i = 0; i < 2000; ++i) {
    const MemoryBlock block = memory.Allocate(16);
    ASSERT_EQ(i, block.memoryID);
    ASSERT_TRUE(Finds(block));
    memory.Release(block);
    ASSERT_TRUE(FindsNone(i));
    ASSERT_TRUE(FindsNone(0));
  }
}

TEST_F(BlockTableOfAllocatorTest, AnOldBlockIsFoundWhenAllAroundItAreReleased) {
  const MemoryBlock first = memory.Allocate(16);
  MemoryBlock middle;
  for (uint32_t i = 1; i < 3000; ++i) {
    const MemoryBlock block = memory.Allocate(16);
    if (i == 1500) {
      middle = block;
    } else {
      memory.Release(block);
    }
    ASSERT_TRUE(Finds(first));
  }
  EXPECT_TRUE(Finds(middle));
  EXPECT_TRUE(FindsNone(1499));
  EXPECT_TRUE(FindsNone(1501));
  memory.Release(first);
  EXPECT_TRUE(FindsNone(0));
  EXPECT_TRUE(Finds(middle));
}

TEST_F(BlockTableOfAllocatorTest, TheLastReleaseByARecordOfNumber0RemovesTheEntryOf0) {
  const MemoryBlock first = memory.Allocate(16);
  const MemoryBlock viewed = memory.Allocate(32);
  ASSERT_TRUE(memory.Retain(viewed.pointer));
  memory.Release(viewed);
  EXPECT_TRUE(Finds(viewed));
  MemoryBlock view = viewed;
  view.memoryID = 0;
  memory.Release(view);
  EXPECT_TRUE(FindsNone(0)) << "though block 0 is live";
  EXPECT_TRUE(Finds(viewed)) << "though its memory is free";
  EXPECT_TRUE(memory.Retain(first.pointer));
  memory.Release(first);
  memory.Release(first);
  EXPECT_TRUE(FindsNone(0));
  EXPECT_EQ(2u, memory.Allocate(16).memoryID);
}

TEST_F(BlockTableOfAllocatorTest, ARecordOfNumber0IsHarmlessAfterThePageOf0IsFreed) {
  std::vector<MemoryBlock> blocks;
  for (uint32_t i = 0; i < 600; ++i) {
    blocks.push_back(memory.Allocate(16));
  }
  for (uint32_t i = 0; i < kPage; ++i) {
    memory.Release(blocks[i]);
  }
  MemoryBlock view = blocks[300];
  view.memoryID = 0;
  memory.Release(view);
  EXPECT_TRUE(FindsNone(0));
  EXPECT_TRUE(Finds(blocks[300]));
  EXPECT_TRUE(Finds(blocks[599]));
}

}  // namespace
}  // namespace nq::engine
