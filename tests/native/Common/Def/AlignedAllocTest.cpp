// Aligned heap memory.
#include "Common/Def/AlignedAlloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace nq::engine {
namespace {

uint32_t DistanceAhead(const void* pointer) {
  uint32_t distance;
  std::memcpy(&distance, static_cast<const char*>(pointer) - 4, 4);
  return distance;
}

TEST(AlignedAllocTest, MemoryStartsAtTheFirstMultipleAfterItsDistanceWord) {
  for (const uint32_t alignment : {1u, 2u, 3u, 4u, 6u, 8u, 16u, 24u, 32u, 64u, 128u, 4096u}) {
    for (const uint32_t size : {1u, 3u, 64u, 1000u, 100000u}) {
      SCOPED_TRACE(testing::Message() << "alignment " << alignment << ", size " << size);
      const uint32_t step = std::max(alignment, 4u);
      void* pointer = AlignedAlloc(alignment, size);
      const uintptr_t position = reinterpret_cast<uintptr_t>(pointer);
      EXPECT_EQ(position % step, 0u);
      const uint32_t distance = DistanceAhead(pointer);
      EXPECT_GE(distance, 4u);
      EXPECT_LT(distance, step + 4) << "an earlier multiple would have done";
      EXPECT_EQ((position - distance) % 4, 0u) << "the heap's own address";
      std::memset(pointer, 0xAB, size);
      EXPECT_EQ(DistanceAhead(pointer), distance);
      AlignedFree(pointer);
    }
  }
}

TEST(AlignedAllocTest, AlignmentsBelowFourCountAsFour) {
  for (const uint32_t alignment : {0u, 1u, 2u, 3u}) {
    for (int i = 0; i < 50; ++i) {
      void* pointer = AlignedAlloc(alignment, 10);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 4, 0u);
      EXPECT_EQ(DistanceAhead(pointer), 4u);
      AlignedFree(pointer);
    }
  }
}

TEST(AlignedAllocTest, ASizeOfZeroReturnsAnAddressThatCanBeFreed) {
  void* pointer = AlignedAlloc(64, 0);
  ASSERT_NE(pointer, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(pointer) % 64, 0u);
  AlignedFree(pointer);
}

TEST(AlignedAllocTest, AllocationsDoNotOverlap) {
  char* pieces[64];
  for (int i = 0; i < 64; ++i) {
    pieces[i] = static_cast<char*>(AlignedAlloc(32, 48));
    std::memset(pieces[i], i, 48);
  }
  for (int i = 0; i < 64; ++i) {
    EXPECT_TRUE(std::all_of(pieces[i], pieces[i] + 48, [i](char byte) { return byte == i; })) << i;
    AlignedFree(pieces[i]);
  }
}

}  // namespace
}  // namespace nq::engine
