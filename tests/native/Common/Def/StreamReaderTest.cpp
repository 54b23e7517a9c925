// Positions, limits and range checks of the stream cursor.
#include "Common/Def/StreamReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace nq::engine {
namespace {

// A segment of bytes that count upwards from 0x10, after a header word of the test's choice.
class StreamReaderTest : public testing::Test {
 protected:
  StreamReaderTest() : reader(segment, sizeof(segment)) {
    for (size_t i = 4; i < sizeof(segment); ++i) {
      segment[i] = static_cast<uint8_t>(0x10 + i);
    }
    Header(0);
  }

  void Header(uint32_t length) { std::memcpy(segment, &length, 4); }

  template <typename T>
  void Put(size_t offset, T value) {
    std::memcpy(segment + offset, &value, sizeof(T));
  }

  // Begins a stream of `length` payload bytes and moves to `position`.
  void BeginAt(uint32_t length, uint32_t position) {
    Header(length);
    reader.begin();
    reader.skip(position - 4);
    ASSERT_EQ(reader.Position(), position);
  }

  alignas(8) uint8_t segment[128] = {};
  StreamReader reader;
};

TEST_F(StreamReaderTest, ANewReaderIsAtTheHeaderAndHasNoLimits) {
  EXPECT_EQ(reader.Position(), 0u);
  EXPECT_EQ(reader.LimitCount(), 0u);
  EXPECT_EQ(reader.Capacity(), 128u);
}

TEST_F(StreamReaderTest, AHeaderOfZeroIsAnEmptyStream) {
  reader.begin();
  EXPECT_EQ(reader.Position(), 4u);
  EXPECT_EQ(reader.checkRange(1, 1, 0), -1);
  EXPECT_EQ(reader.checkRange(0, 1, 0), 4) << "the limit is 4";
  EXPECT_TRUE(reader.popLimit());
}

TEST_F(StreamReaderTest, AStreamOfOneCommandWordEndsAfterIt) {
  Header(4);
  Put<uint32_t>(4, 0xCAFEBABEu);
  reader.begin();
  EXPECT_EQ(reader.checkRange(1, 1, 0), 5);
  EXPECT_EQ(reader.readU32(), 0xCAFEBABEu);
  EXPECT_EQ(reader.Position(), 8u);
  EXPECT_EQ(reader.checkRange(1, 1, 0), -1);
}

TEST_F(StreamReaderTest, CheckRangeAlignsItsBaseAndMovesNothing) {
  BeginAt(8, 5);
  EXPECT_EQ(reader.checkRange(4, 4, 0), 12);
  EXPECT_EQ(reader.Position(), 5u);
  EXPECT_EQ(reader.checkRange(4, 1, 0), 9);
  EXPECT_EQ(reader.checkRange(4, 2, 0), 10);
  EXPECT_EQ(reader.checkRange(4, 3, 0), 10);
  EXPECT_EQ(reader.checkRange(4, 8, 0), 12);
  EXPECT_EQ(reader.Position(), 5u);
}

TEST_F(StreamReaderTest, CheckRangeRefusesAnEndBeyondTheLimit) {
  BeginAt(7, 5);
  EXPECT_EQ(reader.checkRange(4, 4, 0), -1);
  EXPECT_EQ(reader.checkRange(3, 4, 0), 11);
  EXPECT_EQ(reader.Position(), 5u);
}

TEST_F(StreamReaderTest, CheckRangeKeepsAnAlignedBase) {
  BeginAt(16, 8);
  EXPECT_EQ(reader.checkRange(4, 4, 0), 12);
  EXPECT_EQ(reader.checkRange(12, 8, 0), 20);
  EXPECT_EQ(reader.checkRange(13, 8, 0), -1);
}

TEST_F(StreamReaderTest, CheckRangeAcceptsAnotherPosition) {
  BeginAt(60, 20);
  EXPECT_EQ(reader.checkRange(2, 1, 7), 9);
  EXPECT_EQ(reader.checkRange(2, 4, 7), 10);
  EXPECT_EQ(reader.checkRange(4, 4, 60), 64);
  EXPECT_EQ(reader.checkRange(4, 4, 61), -1);
  EXPECT_EQ(reader.checkRange(2, 1, 0), 22) << "0 always means the position";
  EXPECT_EQ(reader.Position(), 20u);
}

TEST_F(StreamReaderTest, ANegativePositionIsRefusedWhateverTheLimit) {
  BeginAt(0x7FFFFF00, 4);
  EXPECT_EQ(reader.checkRange(0, 1, -1), -1);
  EXPECT_EQ(reader.checkRange(1, 4, INT32_MIN), -1);
  EXPECT_EQ(reader.checkRange(-100, 1, -1), -1);
}

TEST_F(StreamReaderTest, PositionsCompareAsSignedNumbers) {
  // A header word of 0xFFFFFFFF puts the limit at 3; one of 0x80000000 below zero.
  BeginAt(0xFFFFFFFFu, 4);
  EXPECT_EQ(reader.checkRange(1, 1, 0), -1);
  EXPECT_EQ(reader.checkRange(1, 1, 2), 3);
  EXPECT_EQ(reader.checkRange(1, 1, 3), -1);
  Header(0x80000000u);
  reader.begin();
  EXPECT_EQ(reader.checkRange(1, 1, 0), -1);
}

TEST_F(StreamReaderTest, ASumBeyondTheSignedRangeWrapsAndPasses) {
  BeginAt(16, 8);
  EXPECT_EQ(reader.checkRange(INT32_MAX, 1, 0), INT32_MIN + 7);
  EXPECT_EQ(reader.checkRange(-4, 1, 0), 4) << "a negative size goes backwards";
  EXPECT_EQ(reader.checkRange(-9, 1, 0), -1) << "which here is the end itself";
}

TEST_F(StreamReaderTest, AHeaderBeyondTheSegmentIsNotDetected) {
  BeginAt(100000, 4);
  EXPECT_EQ(reader.checkRange(50000, 4, 0), 50004);
  EXPECT_EQ(reader.checkRange(100000, 4, 0), 100004);
  EXPECT_EQ(reader.checkRange(100001, 4, 0), -1);
}

TEST_F(StreamReaderTest, BytesAreReadWithoutAlignment) {
  Put<uint8_t>(5, 0x80);
  Put<uint8_t>(6, 0xFE);
  BeginAt(100, 5);
  EXPECT_EQ(reader.readU8(), 0x80u);
  EXPECT_EQ(reader.Position(), 6u);
  EXPECT_EQ(reader.readI8(), -2);
  EXPECT_EQ(reader.Position(), 7u);
}

TEST_F(StreamReaderTest, AnyNonzeroByteIsTrue) {
  const uint8_t bytes[] = {0, 1, 2, 0x80, 0xFF, 0};
  std::memcpy(segment + 4, bytes, sizeof(bytes));
  BeginAt(100, 4);
  EXPECT_FALSE(reader.readBool());
  EXPECT_TRUE(reader.readBool());
  EXPECT_TRUE(reader.readBool());
  EXPECT_TRUE(reader.readBool());
  EXPECT_TRUE(reader.readBool());
  EXPECT_FALSE(reader.readBool());
  EXPECT_EQ(reader.Position(), 10u);
}

TEST_F(StreamReaderTest, ShortWordsAlignToTwo) {
  Put<uint16_t>(6, 0xF00D);
  Put<uint16_t>(8, 0x8001);
  BeginAt(100, 5);
  EXPECT_EQ(reader.readU16(), 0xF00Du);
  EXPECT_EQ(reader.Position(), 8u);
  EXPECT_EQ(reader.readU16(), 0x8001u) << "without a sign";
  EXPECT_EQ(reader.Position(), 10u);
}

TEST_F(StreamReaderTest, WordsAlignToFour) {
  Put<uint32_t>(8, 0x89ABCDEFu);
  for (const uint32_t start : {5u, 6u, 7u, 8u}) {
    SCOPED_TRACE(start);
    BeginAt(100, start);
    EXPECT_EQ(reader.readU32(), 0x89ABCDEFu);
    EXPECT_EQ(reader.Position(), 12u);
    BeginAt(100, start);
    EXPECT_EQ(reader.readI32(), -0x76543211);
    EXPECT_EQ(reader.Position(), 12u);
  }
}

TEST_F(StreamReaderTest, FloatsAlignToFour) {
  Put<float>(8, -1.25f);
  BeginAt(100, 6);
  EXPECT_EQ(reader.readF32(), -1.25f);
  EXPECT_EQ(reader.Position(), 12u);
}

TEST_F(StreamReaderTest, WordsAreLittleEndian) {
  const uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04};
  std::memcpy(segment + 4, bytes, 4);
  BeginAt(100, 4);
  EXPECT_EQ(reader.readU32(), 0x04030201u);
}

TEST_F(StreamReaderTest, AReadPastTheLimitStillMovesThePosition) {
  BeginAt(1, 5);
  EXPECT_EQ(reader.checkRange(4, 4, 0), -1);
  reader.readU32();
  EXPECT_EQ(reader.Position(), 12u);
}

TEST_F(StreamReaderTest, AlignToRaisesThePositionToTheNextMultipleOnly) {
  BeginAt(100, 9);
  reader.alignTo(1);
  EXPECT_EQ(reader.Position(), 9u);
  reader.alignTo(3);
  EXPECT_EQ(reader.Position(), 9u);
  reader.alignTo(4);
  EXPECT_EQ(reader.Position(), 12u);
  reader.alignTo(4);
  EXPECT_EQ(reader.Position(), 12u);
  reader.alignTo(16);
  EXPECT_EQ(reader.Position(), 16u);
  reader.alignTo(7);
  EXPECT_EQ(reader.Position(), 21u);
}

TEST_F(StreamReaderTest, SkipMovesByAnyAmountWithoutAligning) {
  BeginAt(100, 4);
  reader.skip(3);
  EXPECT_EQ(reader.Position(), 7u);
  reader.skip(0);
  EXPECT_EQ(reader.Position(), 7u);
  reader.skip(0xFFFFFFFEu);
  EXPECT_EQ(reader.Position(), 5u) << "positions wrap as 32-bit numbers";
}

TEST_F(StreamReaderTest, AnAlignmentAtTheVeryEndOfTheRangeWrapsToZero) {
  reader.SetPosition(0xFFFFFFFDu);
  reader.alignTo(4);
  EXPECT_EQ(reader.Position(), 0u);
  reader.SetPosition(0xFFFFFFFEu);
  EXPECT_EQ(reader.readU32(), 0u) << "the header word";
  EXPECT_EQ(reader.Position(), 4u);
}

TEST_F(StreamReaderTest, CurrentPointerIsTheByteAtThePosition) {
  BeginAt(100, 11);
  EXPECT_EQ(reader.currentPointer(), segment + 11);
  EXPECT_EQ(*reader.currentPointer(), 0x10 + 11);
}

//  0        4        8        12       16       20
//  | header | length | block of 8      | after  |
//  |   16   |    8   |                 |        |
TEST_F(StreamReaderTest, ANestedBlockEndsAtItsOwnLimit) {
  Header(16);
  Put<uint32_t>(4, 8);
  reader.begin();
  reader.pushLimit();
  EXPECT_EQ(reader.LimitCount(), 2u);
  EXPECT_EQ(reader.Position(), 8u);
  EXPECT_EQ(reader.checkRange(8, 4, 0), 16);
  EXPECT_EQ(reader.checkRange(9, 4, 0), -1);
  reader.skip(8);
  EXPECT_TRUE(reader.popLimit());
  EXPECT_EQ(reader.LimitCount(), 1u);
  EXPECT_EQ(reader.checkRange(4, 4, 0), 20);
  EXPECT_EQ(reader.checkRange(5, 4, 0), -1);
  reader.skip(4);
  EXPECT_TRUE(reader.popLimit());
}

TEST_F(StreamReaderTest, TheLengthOfANestedBlockIsReadAligned) {
  Put<uint32_t>(8, 6);
  BeginAt(100, 5);
  reader.pushLimit();
  EXPECT_EQ(reader.Position(), 12u);
  EXPECT_EQ(reader.checkRange(6, 1, 0), 18);
  EXPECT_EQ(reader.checkRange(7, 1, 0), -1);
}

TEST_F(StreamReaderTest, ANestedBlockIsNotClippedToTheOneAroundIt) {
  Header(8);
  Put<uint32_t>(4, 1000);
  reader.begin();
  reader.pushLimit();
  EXPECT_EQ(reader.checkRange(1000, 4, 0), 1008);
  EXPECT_FALSE(reader.popLimit());
  EXPECT_EQ(reader.checkRange(1000, 4, 0), -1);
}

TEST_F(StreamReaderTest, PopLimitIsFalseOffTheLimitAndPopsAnyway) {
  BeginAt(8, 11);
  EXPECT_FALSE(reader.popLimit()) << "one byte short";
  EXPECT_EQ(reader.LimitCount(), 0u);
  EXPECT_EQ(reader.Position(), 11u);
  BeginAt(8, 13);
  EXPECT_FALSE(reader.popLimit()) << "one byte past";
  EXPECT_EQ(reader.LimitCount(), 0u);
  EXPECT_EQ(reader.Position(), 13u);
}

TEST_F(StreamReaderTest, BeginningTwiceLeavesTwoLimitsAndUsesTheSecond) {
  Header(40);
  reader.begin();
  reader.skip(20);
  Header(8);
  reader.begin();
  EXPECT_EQ(reader.Position(), 4u);
  EXPECT_EQ(reader.LimitCount(), 2u);
  EXPECT_EQ(reader.checkRange(8, 1, 0), 12);
  EXPECT_EQ(reader.checkRange(9, 1, 0), -1);
  reader.popLimit();
  EXPECT_EQ(reader.checkRange(40, 1, 0), 44) << "the first is still below";
  EXPECT_EQ(reader.checkRange(41, 1, 0), -1);
}

TEST_F(StreamReaderTest, CheckRangeAgreesWithArithmeticInSixtyFourBits) {
  const uint32_t seed = 4711;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t length = random() % 200;
    const uint32_t position = 4 + random() % 150;
    const int32_t size = static_cast<int32_t>(random() % 100);
    const uint32_t alignment = 1 + random() % 17;
    const int32_t at = static_cast<int32_t>(random() % 220) - 20;
    BeginAt(length, position);
    int64_t base = at == 0 ? position : at;
    while (base % alignment != 0) {
      ++base;
    }
    const int64_t end = base + size;
    const int64_t expected = at < 0 || end > static_cast<int64_t>(length) + 4 ? -1 : end;
    ASSERT_EQ(reader.checkRange(size, alignment, at), expected)
        << "length " << length << " position " << position << " size " << size << " alignment "
        << alignment << " at " << at;
    reader.popLimit();
  }
}

}  // namespace
}  // namespace nq::engine
