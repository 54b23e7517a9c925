// Values at any address.
#include "Common/Def/Unaligned.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace nq::engine {

// UndefinedBehaviorSanitizer reports an access by a pointer of the value's own type.
TEST(UnalignedTest, WordsAreReadAtAnyAddressInLittleEndianOrder) {
  const uint8_t bytes[] = {0x99, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  EXPECT_EQ(0x03020199u, ReadUnaligned<uint32_t>(bytes));
  EXPECT_EQ(0x04030201u, ReadUnaligned<uint32_t>(bytes + 1));
  EXPECT_EQ(0x04030201u, ReadWord(bytes + 1, 0));
  EXPECT_EQ(0x08070605u, ReadWord(bytes + 1, 1));
}

TEST(UnalignedTest, WritingChangesOnlyTheValuesBytes) {
  uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  WriteUnaligned(bytes + 3, uint32_t{0xDDCCBBAA});
  const uint8_t expected[8] = {1, 2, 3, 0xAA, 0xBB, 0xCC, 0xDD, 8};
  EXPECT_EQ(0, std::memcmp(expected, bytes, sizeof(bytes)));
  WriteUnaligned(bytes + 1, 1.5f);
  EXPECT_EQ(1.5f, ReadUnaligned<float>(bytes + 1));
}

}  // namespace nq::engine
