// Arrays of a batch: alignment, initial content, and release.
#include "Common/Def/AlignedArray.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace nq::engine {

TEST(AlignedArrayTest, IsEmptyUntilAllocated) {
  const AlignedArray<uint32_t> array;
  EXPECT_EQ(nullptr, array.Data());
}

TEST(AlignedArrayTest, ElementsStartAtACacheLineAndReadAsZero) {
  // Several times, since reused memory may hold other bytes.
  for (int round = 0; round < 100; ++round) {
    AlignedArray<float> array;
    float* const first = array.Allocate(33);
    ASSERT_EQ(first, array.Data());
    ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(first) % 64);
    for (uint32_t i = 0; i < 33; ++i) {
      ASSERT_EQ(0.0f, array[i]);
      array[i] = 1.5f;
    }
  }
}

TEST(AlignedArrayTest, RawElementsStartAtTheRequestedAlignment) {
  for (const uint32_t alignment : {4u, 8u, 32u, 128u}) {
    AlignedArray<uint8_t> array;
    uint8_t* const first = array.AllocateRaw(100, alignment);
    EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(first) % alignment);
    std::memset(first, 0xA5, 100);
    EXPECT_EQ(0xA5, array[99]);
  }
}

// AddressSanitizer reports what is not freed.
TEST(AlignedArrayTest, AllocatingAgainFreesTheEarlierElements) {
  AlignedArray<uint32_t> array;
  array.Allocate(1000)[999] = 7;
  array.Allocate(2000);
  EXPECT_EQ(0u, array[999]);
}

}  // namespace nq::engine
