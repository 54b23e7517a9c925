// Writing streams, and reading them back.
#include "Common/Def/StreamWriter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "Common/Def/StreamReader.h"

namespace nq::engine {
namespace {

constexpr uint8_t kPoison = 0xA5;

class StreamWriterTest : public testing::Test {
 protected:
  StreamWriterTest() : writer(segment) {
    std::memset(segment, kPoison, sizeof(segment));
    writer.reset();
  }

  uint32_t Length() const {
    uint32_t length;
    std::memcpy(&length, segment, 4);
    return length;
  }

  template <typename T>
  T At(size_t offset) const {
    T value;
    std::memcpy(&value, segment + offset, sizeof(T));
    return value;
  }

  void ExpectPoison(size_t from, size_t to) const {
    for (size_t i = from; i < to; ++i) {
      EXPECT_EQ(segment[i], kPoison) << "offset " << i;
    }
  }

  alignas(8) uint8_t segment[128] = {};
  StreamWriter writer;
};

TEST_F(StreamWriterTest, ConstructingAWriterWritesNothing) {
  uint8_t bytes[8] = {9, 0, 0, 0, 1, 2, 3, 4};
  StreamWriter other(bytes);
  EXPECT_EQ(other.totalSize(), 13u) << "the header word is the counter";
  EXPECT_EQ(bytes[4], 1);
}

TEST_F(StreamWriterTest, ResetOnlyClearsTheLength) {
  writer.writeU32(7);
  writer.reset();
  EXPECT_EQ(Length(), 0u);
  EXPECT_EQ(At<uint32_t>(4), 7u);
  EXPECT_EQ(writer.totalSize(), 4u);
}

TEST_F(StreamWriterTest, BytesFollowEachOther) {
  writer.writeU8(0xFF);
  writer.writeI8(-2);
  writer.writeBool(true);
  writer.writeBool(false);
  EXPECT_EQ(Length(), 4u);
  EXPECT_EQ(At<uint32_t>(4), 0x0001FEFFu);
  ExpectPoison(8, 128);
}

TEST_F(StreamWriterTest, AShortWordAtLengthThreeIsStoredAtOffsetEight) {
  writer.advance(3);
  writer.writeU16(0xBEEF);
  EXPECT_EQ(At<uint16_t>(8), 0xBEEFu);
  EXPECT_EQ(Length(), 6u);
  ExpectPoison(4, 8);
  ExpectPoison(10, 128);
}

TEST_F(StreamWriterTest, WordsAreAlignedToFour) {
  for (const uint32_t start : {1u, 2u, 3u, 4u}) {
    SCOPED_TRACE(start);
    writer.reset();
    writer.advance(start);
    writer.writeU32(0x80000000u + start);
    EXPECT_EQ(At<uint32_t>(8), 0x80000000u + start);
    EXPECT_EQ(Length(), 8u);
    writer.reset();
    writer.advance(start);
    writer.writeI32(-static_cast<int32_t>(start));
    EXPECT_EQ(At<int32_t>(8), -static_cast<int32_t>(start));
    EXPECT_EQ(Length(), 8u);
    writer.reset();
    writer.advance(start);
    writer.writeF32(0.5f * static_cast<float>(start));
    EXPECT_EQ(At<float>(8), 0.5f * static_cast<float>(start));
    EXPECT_EQ(Length(), 8u);
  }
  ExpectPoison(4, 8);
  ExpectPoison(12, 128);
}

TEST_F(StreamWriterTest, RawBytesAreNotAligned) {
  writer.writeU8(1);
  const uint8_t bytes[] = {10, 20, 30};
  writer.writeBytes(bytes, 3);
  EXPECT_EQ(segment[5], 10);
  EXPECT_EQ(segment[6], 20);
  EXPECT_EQ(segment[7], 30);
  EXPECT_EQ(Length(), 4u);
  ExpectPoison(8, 128);
  writer.writeBytes(nullptr, 0);
  EXPECT_EQ(Length(), 4u);
}

TEST_F(StreamWriterTest, AReservedWordIsZeroAndCanBePatchedLater) {
  writer.writeU8(1);
  uint32_t* count = writer.reserveU32();
  EXPECT_EQ(reinterpret_cast<uint8_t*>(count), segment + 8);
  EXPECT_EQ(*count, 0u);
  EXPECT_EQ(Length(), 8u);
  writer.writeU32(5);
  *count = 77;
  EXPECT_EQ(At<uint32_t>(8), 77u);
  EXPECT_EQ(At<uint32_t>(12), 5u);
  EXPECT_EQ(Length(), 12u);
  EXPECT_EQ(reinterpret_cast<uint8_t*>(writer.reserveU32()), segment + 16);
}

TEST_F(StreamWriterTest, AdvanceStoresNothingAndReturnsItsArgument) {
  EXPECT_EQ(writer.advance(5), 5u);
  EXPECT_EQ(writer.advance(0), 0u);
  EXPECT_EQ(writer.advance(9), 9u);
  EXPECT_EQ(Length(), 14u);
  EXPECT_EQ(writer.totalSize(), 18u);
  ExpectPoison(4, 128);
}

TEST_F(StreamWriterTest, AlignToRaisesTheLengthToTheNextMultipleOnly) {
  writer.advance(9);
  writer.alignTo(3);
  EXPECT_EQ(Length(), 9u);
  writer.alignTo(4);
  EXPECT_EQ(Length(), 12u);
  writer.alignTo(4);
  EXPECT_EQ(Length(), 12u);
  writer.alignTo(16);
  EXPECT_EQ(Length(), 16u);
  writer.alignTo(1);
  EXPECT_EQ(Length(), 16u);
  ExpectPoison(4, 128);
}

TEST_F(StreamWriterTest, WriterAndReaderDisagreeOnAlignmentsBeyondFour) {
  writer.advance(1);
  writer.alignTo(8);
  EXPECT_EQ(Length(), 8u) << "offset 12 of the segment";
  StreamReader reader(segment, sizeof(segment));
  reader.begin();
  reader.skip(1);
  reader.alignTo(8);
  EXPECT_EQ(reader.Position(), 8u);
}

TEST_F(StreamWriterTest, WritersMayAlternateOnOneSegment) {
  StreamWriter other(segment);
  writer.writeU32(1);
  other.writeU32(2);
  writer.writeU8(3);
  EXPECT_EQ(other.totalSize(), 13u);
  EXPECT_EQ(At<uint32_t>(4), 1u);
  EXPECT_EQ(At<uint32_t>(8), 2u);
  EXPECT_EQ(segment[12], 3);
}

TEST_F(StreamWriterTest, ANestedBlockWithAPatchedLengthReadsBack) {
  writer.writeU8(9);
  uint32_t* length = writer.reserveU32();
  const uint32_t start = writer.totalSize();
  writer.writeU16(300);
  writer.writeF32(1.5f);
  *length = writer.totalSize() - start;
  writer.writeU8(10);

  StreamReader reader(segment, sizeof(segment));
  reader.begin();
  EXPECT_EQ(reader.readU8(), 9);
  reader.pushLimit();
  EXPECT_EQ(reader.readU16(), 300);
  EXPECT_EQ(reader.readF32(), 1.5f);
  EXPECT_TRUE(reader.popLimit());
  EXPECT_EQ(reader.readU8(), 10);
  EXPECT_TRUE(reader.popLimit());
}

TEST_F(StreamWriterTest, AnySequenceOfValuesReadsBack) {
  const uint32_t seed = 815;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    std::vector<uint8_t> bytes(4096, kPoison);
    StreamWriter out(bytes.data());
    out.reset();
    struct Item {
      uint32_t kind;
      uint32_t bits;
    };
    std::vector<Item> items(200);
    uint32_t expectedLength = 0;
    for (Item& item : items) {
      item = {static_cast<uint32_t>(random() % 9), static_cast<uint32_t>(random())};
      const uint32_t sizes[] = {1, 1, 1, 2, 4, 4, 4, 3, 0};
      const uint32_t aligns[] = {1, 1, 1, 2, 4, 4, 4, 1, 1};
      switch (item.kind) {
        case 0:
          out.writeU8(static_cast<uint8_t>(item.bits));
          break;
        case 1:
          out.writeI8(static_cast<int8_t>(item.bits));
          break;
        case 2:
          out.writeBool((item.bits & 1) != 0);
          break;
        case 3:
          out.writeU16(static_cast<uint16_t>(item.bits));
          break;
        case 4:
          out.writeU32(item.bits);
          break;
        case 5:
          out.writeI32(static_cast<int32_t>(item.bits));
          break;
        case 6:
          item.bits &= 0x7F7FFFFFu;  // NaNs would not compare
          float value;
          std::memcpy(&value, &item.bits, 4);
          out.writeF32(value);
          break;
        case 7:
          out.writeBytes(&item.bits, 3);
          break;
        default:
          out.alignTo(4);
          expectedLength = (expectedLength + 3) / 4 * 4;
          break;
      }
      const uint32_t align = aligns[item.kind];
      expectedLength = (expectedLength + align - 1) / align * align + sizes[item.kind];
      ASSERT_EQ(out.totalSize(), expectedLength + 4);
    }

    StreamReader in(bytes.data(), static_cast<uint32_t>(bytes.size()));
    in.begin();
    for (size_t i = 0; i < items.size(); ++i) {
      SCOPED_TRACE(i);
      const Item& item = items[i];
      switch (item.kind) {
        case 0:
          ASSERT_EQ(in.readU8(), static_cast<uint8_t>(item.bits));
          break;
        case 1:
          ASSERT_EQ(in.readI8(), static_cast<int8_t>(item.bits));
          break;
        case 2:
          ASSERT_EQ(in.readBool(), (item.bits & 1) != 0);
          break;
        case 3:
          ASSERT_EQ(in.readU16(), static_cast<uint16_t>(item.bits));
          break;
        case 4:
          ASSERT_EQ(in.readU32(), item.bits);
          break;
        case 5:
          ASSERT_EQ(in.readI32(), static_cast<int32_t>(item.bits));
          break;
        case 6: {
          const float value = in.readF32();
          ASSERT_EQ(std::memcmp(&value, &item.bits, 4), 0);
          break;
        }
        case 7:
          ASSERT_EQ(std::memcmp(in.currentPointer(), &item.bits, 3), 0);
          in.skip(3);
          break;
        default:
          in.alignTo(4);
          break;
      }
    }
    EXPECT_EQ(in.checkRange(1, 1, 0), -1);
    EXPECT_TRUE(in.popLimit());
  }
}

}  // namespace
}  // namespace nq::engine
