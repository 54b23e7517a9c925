// The parts of a handle.
#include "Common/Def/Handle.h"

#include <gtest/gtest.h>

namespace nq::engine {
namespace {

TEST(HandleTest, AHandleIsASlotAndAnElement) {
  EXPECT_EQ(HandleKey(0x12345678u), 0x12345000u);
  EXPECT_EQ(HandleSlot(0x12345678u), 0x12345u);
  EXPECT_EQ(HandleElement(0x12345678u), 0x678u);
}

TEST(HandleTest, TheHighestHandleIsTheLastElementOfTheLastSlot) {
  EXPECT_EQ(HandleKey(0xFFFFFFFFu), 0xFFFFF000u);
  EXPECT_EQ(HandleSlot(0xFFFFFFFFu), 0xFFFFFu);
  EXPECT_EQ(HandleElement(0xFFFFFFFFu), 4095u);
}

TEST(HandleTest, AKeyIsItsOwnKeyWithElementZero) {
  EXPECT_EQ(HandleKey(0x2000u), 0x2000u);
  EXPECT_EQ(HandleElement(0x2000u), 0u);
  EXPECT_EQ(HandleSlot(0x2000u), 2u);
}

TEST(HandleTest, TheLimitsAreWhatTheBitsHold) {
  EXPECT_EQ(kHandleSlotLimit, 0x100000u);
  EXPECT_EQ(kMaxBatchCount, 4095);
}

}  // namespace
}  // namespace nq::engine
