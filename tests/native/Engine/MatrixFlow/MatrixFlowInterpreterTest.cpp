// Runs of command buffers: streams, operands, what each command does, and where a run ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "Engine/MatrixFlow/MatrixFlowCommand.h"
#include "tests/native/Common/Def/ChildProcess.h"
#include "tests/native/Engine/MatrixFlow/MatrixFlowScene.h"

namespace nq::engine {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr uint32_t kNoBlock = 12345;  // a memoryID never issued here
const float kInfinity = std::numeric_limits<float>::infinity();
const float kNone = std::numeric_limits<float>::quiet_NaN();

const char kOverflow[] = "[NQ_WARN][MatrixFlow]: Command buffer overflow\n";
const char kNoMatch[] = "[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match";

constexpr uint32_t kFirstCommand = 4;  // position after the header word

class MatrixFlowInterpreterTest : public testing::Test {
 protected:
  void SetUp() override { buffer = scene.AddBuffer(512); }
  void TearDown() override { EXPECT_EQ("", scene.Problem()); }

  // Runs a stream, which must have a defined result.
  int32_t Run(const std::vector<uint32_t>& words) {
    scene.Write(buffer, words);
    return Again();
  }
  int32_t Again() { return Execute(buffer); }
  int32_t Execute(uint32_t handle) {
    int32_t code = -1;
    EXPECT_TRUE(scene.Execute(handle, &code)) << "no defined result";
    return code;
  }
  uint32_t Position() { return scene.Reader(buffer).Position(); }

  // A block of distinct bytes.
  uint32_t Pattern(uint32_t size) {
    const uint32_t memoryID = scene.AddBlock(size);
    for (uint32_t i = 0; i < size; ++i) {
      scene.SetByte(memoryID, i, static_cast<uint8_t>(7 * i + 11 * memoryID + 3));
    }
    return memoryID;
  }
  std::vector<uint8_t> Bytes(uint32_t memoryID, uint32_t offset, uint32_t count) {
    std::vector<uint8_t> bytes;
    for (uint32_t i = 0; i < count; ++i) {
      bytes.push_back(scene.Byte(memoryID, offset + i));
    }
    return bytes;
  }

  MatrixFlowScene scene;
  uint32_t buffer = 0;
};

// Streams.

TEST_F(MatrixFlowInterpreterTest, ANewBufferIsEmptyAndRuns) {
  EXPECT_EQ(0, Again());
  EXPECT_EQ("", scene.Log());
  EXPECT_EQ(kFirstCommand, Position());
}

TEST_F(MatrixFlowInterpreterTest, AHandleThatNamesNoBufferIsReportedAndGives1) {
  EXPECT_EQ(1, Execute(0x7000));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 28672\n", scene.Log());
  EXPECT_EQ(1, Execute(0));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 0\n", scene.Log());
  EXPECT_EQ(1, Execute(0xFFFFF005u));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: -4091\n", scene.Log());
  EXPECT_EQ(1, Execute(5));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 5\n", scene.Log());
}

TEST_F(MatrixFlowInterpreterTest, AReleasedHandleIsReportedAndGives1) {
  const uint32_t other = scene.AddBuffer(64);
  EXPECT_EQ(0, Execute(other));
  scene.ReleaseBuffer(other);
  EXPECT_EQ(1, Execute(other));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 8192\n", scene.Log());
}

TEST_F(MatrixFlowInterpreterTest, AHandleWithAnElementPartFindsTheBufferOfItsKey) {
  const uint32_t block = scene.AddFloats({1, 2});
  scene.Write(buffer, {1001, block, 0, block, 4, block, 0});
  EXPECT_EQ(0, Execute(buffer + 1));
  EXPECT_EQ(0, Execute(buffer + 0xFFF));
  EXPECT_EQ(5.0f, scene.Float(block, 0));
  EXPECT_EQ(2u, scene.Reader(buffer).LimitCount());
}

TEST_F(MatrixFlowInterpreterTest, ATypeWithoutItsOperandsGives2) {
  EXPECT_EQ(2, Run({1000}));
  EXPECT_EQ(kOverflow, scene.Log());
  EXPECT_EQ(kFirstCommand + 4, Position()) << "just behind the type";
}

TEST_F(MatrixFlowInterpreterTest, EveryTruncatedCommandGives2AndHasNoEffect) {
  const uint32_t from = Pattern(64);
  const uint32_t to = Pattern(64);
  for (const ReferenceCommand& command : kReferenceCommands) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(command.type)};
    if (command.operation == '@') {
      words.push_back(0x9000);
    } else if (command.operation == 'b') {
      words.insert(words.end(), {4, to, 0, from, 0});
    } else if (command.operation == 'c') {
      words.insert(words.end(), {to, 0, from, 0});
    } else if (command.operation == 'i') {
      words.insert(words.end(), {from, 0, to, 0});
    } else {
      words.insert(words.end(), {from, 0, from, 0, to, 0});
    }
    const std::vector<uint8_t> before = Bytes(to, 0, 64);
    scene.Write(buffer, words);
    const uint32_t length = static_cast<uint32_t>(4 * words.size());
    // Any first byte of the type is enough for it to be read.
    for (uint32_t cut = 0; cut < length; ++cut) {
      SCOPED_TRACE(std::to_string(command.type) + " cut at " + std::to_string(cut));
      scene.SetWord(scene.IDOf(buffer), 0, cut);
      EXPECT_EQ(cut == 0 ? 0 : 2, Again());
      EXPECT_EQ(cut == 0 ? "" : kOverflow, scene.Log());
      EXPECT_EQ(cut == 0 ? 4u : 8u, Position());
      EXPECT_EQ(before, Bytes(to, 0, 64));
    }
    scene.SetWord(scene.IDOf(buffer), 0, length);
    EXPECT_EQ(command.operation == '@' ? 1 : 0, Again()) << command.type;
    EXPECT_EQ(4 + length, Position()) << command.type;
  }
}

TEST_F(MatrixFlowInterpreterTest, UnknownTypesGive3AndAreNamed) {
  const uint32_t types[] = {0,
                            2,
                            7,
                            999,
                            1005,
                            1999,
                            2005,
                            2999,
                            3005,
                            4005,
                            5004,
                            5005,
                            6005,
                            7000,
                            8999,
                            9001,
                            10000,
                            0x7FFFFFFF,
                            1000 + 65536,
                            1000u << 16,
                            0x80000000u,
                            1u << 31 | 1000};
  for (const uint32_t type : types) {
    EXPECT_EQ(3, Run({type, 0, 0, 0, 0, 0, 0, 0})) << type;
    EXPECT_EQ("[NQ_FATAL][MatrixFlow]: Command type invalid, type: " +
                  std::to_string(static_cast<int32_t>(type)) + "\n",
              scene.Log());
    EXPECT_EQ(8u, Position());
  }
  EXPECT_EQ(3, Run({static_cast<uint32_t>(-1000)}));
  EXPECT_EQ("[NQ_FATAL][MatrixFlow]: Command type invalid, type: -1000\n", scene.Log());
}

TEST_F(MatrixFlowInterpreterTest, OneByteOfATypeIsEnoughForAllFourToBeRead) {
  for (uint32_t length = 1; length <= 3; ++length) {
    scene.Write(buffer, {0x01020307});
    scene.SetWord(scene.IDOf(buffer), 0, length);
    EXPECT_EQ(3, Again());
    EXPECT_EQ("[NQ_FATAL][MatrixFlow]: Command type invalid, type: 16909063\n", scene.Log());
    EXPECT_EQ(8u, Position());
  }
}

TEST_F(MatrixFlowInterpreterTest, APartialWordAfterACommandIsReadWithTheBytesThatFollow) {
  const uint32_t block = scene.AddFloats({1, 2});
  for (uint32_t rest = 1; rest <= 3; ++rest) {
    scene.Write(buffer, {1000, block, 0, block, 4, 77, 88});
    scene.SetWord(scene.IDOf(buffer), 0, 20 + rest);
    EXPECT_EQ(3, Again());
    EXPECT_EQ("[NQ_FATAL][MatrixFlow]: Command type invalid, type: 77\n", scene.Log());
    EXPECT_EQ(2.0f, scene.Float(block, 0));
  }
}

TEST_F(MatrixFlowInterpreterTest, AHeaderBeyondTheBlockReadsWhatFollows) {
  // 20 bytes of a class of 32: the second command is after the block's size.
  const uint32_t inner = scene.AddBuffer(64);
  const uint32_t small = scene.AddBuffer(20);
  scene.SetWord(scene.IDOf(small), 0, 16);
  const uint32_t words[] = {1, inner, 1, inner};
  for (uint32_t i = 0; i < 4; ++i) {
    scene.SetWord(scene.IDOf(small), 4 + 4 * i, words[i]);
  }
  scene.SetWord(scene.IDOf(small), 20, 1);
  scene.SetWord(scene.IDOf(small), 24, inner);
  scene.SetWord(scene.IDOf(small), 0, 24);
  EXPECT_EQ(0, Execute(small));
  EXPECT_EQ(3u, scene.Reader(inner).LimitCount());
}

// Products prefetch operands of later commands. A header beyond the block's end must not make them
// read there; the sanitizer checks large blocks.
TEST_F(MatrixFlowInterpreterTest, PrefetchingProductsDoesNotReadPastTheBlock) {
  constexpr uint32_t kProducts = 30;
  constexpr uint32_t kBytes = 4 + 28 * kProducts + 4;
  const uint32_t a = scene.AddFloats({2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 4, 0, 0, 0, 0, 5});
  const uint32_t out = scene.AddBlock(64 * kProducts);
  const uint32_t large = scene.AddBuffer(kBytes);
  std::vector<uint32_t> words;
  for (uint32_t i = 0; i < kProducts; ++i) {
    words.insert(words.end(), {6003, a, 0, a, 0, out, 64 * i});
  }
  words.push_back(7);
  for (const uint32_t header : {kBytes - 4, kBytes + 1000, 0x7FFFFFFBu}) {
    scene.Write(large, words);
    scene.SetWord(scene.IDOf(large), 0, header);
    EXPECT_EQ(3, Execute(large)) << header;
    EXPECT_EQ("[NQ_FATAL][MatrixFlow]: Command type invalid, type: 7\n", scene.Log());
    for (uint32_t i = 0; i < kProducts; ++i) {
      EXPECT_THAT(scene.Floats(out, 64 * i, 6), ElementsAre(4, 0, 0, 0, 0, 9));
    }
  }
}

// The block of each operand position is cached, hence: same block, another, an unknown one, and
// that of the stream itself.
TEST_F(MatrixFlowInterpreterTest, EachReferenceIsResolvedWhateverBlockIsCached) {
  const uint32_t a = scene.AddFloats({1, 2, 3, 4});
  const uint32_t b = scene.AddFloats({10, 20});
  const uint32_t own = scene.IDOf(buffer);
  std::vector<uint32_t> words = {1001, a,   0,   b, 0, a, 8,   // a[2] = 1 + 10
                                 1001, b,   4,   a, 4, b, 0,   // b[0] = 20 + 2
                                 1001, b,   0,   a, 8, a, 12,  // a[3] = 22 + 11
                                 1000, own, 500, a, 12};       // 33, into the stream's own block
  EXPECT_EQ(0, Run(words));
  EXPECT_THAT(scene.Floats(a, 0, 4), ElementsAre(1, 2, 11, 33));
  EXPECT_THAT(scene.Floats(b, 0, 2), ElementsAre(22, 20));
  EXPECT_EQ(33.0f, scene.Float(own, 500));

  // `b` is smaller than the block cached there.
  EXPECT_EQ(4, Run({1000, a, 0, a, 12, 1000, a, 4, b, 8}));
  EXPECT_THAT(scene.Floats(a, 0, 4), ElementsAre(33, 2, 11, 33));
  EXPECT_EQ(4, Run({1000, a, 0, a, 4, 1000, kNoBlock, 0, a, 4}));
  EXPECT_EQ(4, Run({1000, a, 0, a, 4, 1000, a, 0, kNoBlock, 0}));
  scene.ReleaseBlock(b);
  EXPECT_EQ(4, Run({1000, b, 0, a, 0}));
}

TEST_F(MatrixFlowInterpreterTest, AHeaderWhoseLimitIsNegativeEndsTheRunAtOnce) {
  const uint32_t block = scene.AddFloats({1, 2});
  scene.Write(buffer, {1000, block, 0, block, 4});
  // 0xFFFFFFFC wraps to a limit of 0, 0xFFFFFFFF to 3.
  for (const uint32_t header : {0x7FFFFFFCu, 0x80000000u, 0xFFFFFFFBu, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
    scene.SetWord(scene.IDOf(buffer), 0, header);
    EXPECT_EQ(0, Again()) << header;
    EXPECT_EQ(4u, Position());
    EXPECT_EQ(header + 4, scene.Reader(buffer).Limit());
  }
  EXPECT_EQ(1.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, EveryRunStartsOverAndPushesOneLimit) {
  const uint32_t block = scene.AddFloats({1, 2, 3});
  EXPECT_EQ(0u, scene.Reader(buffer).LimitCount());
  scene.Write(buffer, {1001, block, 0, block, 4, block, 8});
  for (size_t run = 1; run <= 5; ++run) {
    EXPECT_EQ(0, Again());
    EXPECT_EQ(run, scene.Reader(buffer).LimitCount());
    EXPECT_EQ(32u, scene.Reader(buffer).Limit());
    EXPECT_EQ(32u, Position());
    EXPECT_THAT(scene.Floats(block, 0, 3), ElementsAre(1, 2, 3));
  }
  EXPECT_EQ(3, Run({5}));
  EXPECT_EQ(6u, scene.Reader(buffer).LimitCount()) << "also when it fails";
  EXPECT_EQ(0, Run({}));
  EXPECT_EQ(7u, scene.Reader(buffer).LimitCount()) << "also when there is nothing";
}

TEST_F(MatrixFlowInterpreterTest, TheHeaderIsReadAnewByEachRun) {
  const uint32_t block = scene.AddFloats({1, 1});
  const std::vector<uint32_t> add = {1001, block, 0, block, 4, block, 0};
  std::vector<uint32_t> both = add;
  both.insert(both.end(), add.begin(), add.end());
  EXPECT_EQ(0, Run(both));
  EXPECT_EQ(3.0f, scene.Float(block, 0));
  scene.SetWord(scene.IDOf(buffer), 0, 28);
  EXPECT_EQ(0, Again());
  EXPECT_EQ(4.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, ResultsBeforeAFailureRemain) {
  const uint32_t block = scene.AddFloats({1, 2, 0});
  const std::vector<uint32_t> add = {1001, block, 0, block, 4, block, 0};
  const struct {
    std::vector<uint32_t> rest;
    int32_t code;
  } kEnds[] = {{{1, 0x9000}, 1},
               {{1003, block}, 2},
               {{42}, 3},
               {{1000, kNoBlock, 0, block, 0}, 4},
               {{1004, block, 0, block, 8, block, 0}, 5}};
  float expected = 1;
  for (const auto& end : kEnds) {
    std::vector<uint32_t> words = add;
    words.insert(words.end(), end.rest.begin(), end.rest.end());
    // Never reached.
    words.insert(words.end(), {1000, block, 0, block, 8});
    if (end.code == 2) {
      words.resize(9);
    }
    EXPECT_EQ(end.code, Run(words));
    expected += 2;
    EXPECT_EQ(expected, scene.Float(block, 0)) << "code " << end.code;
  }
  EXPECT_EQ(0, Run(add)) << "the buffer stays usable";
}

TEST_F(MatrixFlowInterpreterTest, ALineIsTwoWrites) {
  const uint32_t block = scene.AddFloats({0});
  EngineCore* core = scene.Core();
  const auto writes = [&] { return WritesOf([&] { core->ExecuteCommandBuffer(buffer); }); };
  scene.Write(buffer, {1, 0x9000});
  EXPECT_THAT(writes(),
              ElementsAre("[NQ_WARN][MatrixFlow]: ", "Command buffer invalid, handler: 36864\n"));
  scene.Write(buffer, {1});
  // Without buffering, a compiler may write the line feed of a plain text separately.
  const std::vector<std::string> overflow = writes();
  ASSERT_LE(2u, overflow.size());
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: ", overflow[0]);
  EXPECT_EQ("Command buffer overflow", overflow[1].substr(0, 23));
  scene.Write(buffer, {7});
  EXPECT_THAT(writes(), ElementsAre("[NQ_FATAL][MatrixFlow]: ", "Command type invalid, type: 7\n"));
  scene.Write(buffer, {1000, kNoBlock, 0, block, 0});
  EXPECT_THAT(writes(),
              ElementsAre("[NQ_WARN][MatrixFlow]: ", "Memory Error (id, offset, len) not match"))
      << "without a line feed";
  scene.Write(buffer, {1004, block, 0, block, 0, block, 0});
  EXPECT_THAT(writes(), ElementsAre());
}

// References.

TEST_F(MatrixFlowInterpreterTest, AnUnknownBlockGives4WhateverTheOffset) {
  const uint32_t block = scene.AddFloats({1});
  for (const uint32_t offset : {0u, 4u, 0x7FFFFFFFu, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
    for (const uint32_t memoryID : {kNoBlock, 0xFFFFFFFFu, block + 1}) {
      EXPECT_EQ(4, Run({1000, block, 0, memoryID, offset}));
      EXPECT_EQ(kNoMatch, scene.Log());
    }
  }
}

TEST_F(MatrixFlowInterpreterTest, AValueMayEndWhereItsBlockEndsAndNotOneByteBeyond) {
  for (const ReferenceCommand& command : kReferenceCommands) {
    if (command.operation == '@' || command.operation == 'b') {
      continue;
    }
    const uint32_t count = command.operation == 'c' || command.operation == 'i' ? 2 : 3;
    for (uint32_t place = 0; place < count; ++place) {
      SCOPED_TRACE(std::to_string(command.type) + " operand " + std::to_string(place));
      std::vector<uint32_t> words = {static_cast<uint32_t>(command.type)};
      uint32_t ids[3];
      for (uint32_t i = 0; i < count; ++i) {
        // 8 more than the value: the tested one ends at the block's end, the others well within.
        ids[i] = scene.AddBlock(command.bytes + 8);
        for (uint32_t at = 0; at < command.bytes + 8; at += 4) {
          scene.SetFloat(ids[i], at, 1.5f);
        }
        words.insert(words.end(), {ids[i], 0});
      }
      uint32_t* offset = &words[2 + 2 * place];
      *offset = command.bytes + 8 - command.proves;
      if (command.proves == command.bytes) {
        EXPECT_EQ(0, Run(words));
      }
      for (uint32_t i = 0; i < count; ++i) {
        for (uint32_t at = 0; at < command.bytes + 8; at += 4) {
          scene.SetFloat(ids[i], at, 1.5f);
        }
      }
      ++*offset;
      EXPECT_EQ(4, Run(words));
      EXPECT_EQ(kNoMatch, scene.Log());
      EXPECT_EQ(8 + 8 * (place + 1), Position());
      EXPECT_THAT(scene.Floats(ids[count - 1], 0, command.bytes / 4 + 2), testing::Each(1.5f));
      for (uint32_t i = 0; i < count; ++i) {
        scene.ReleaseBlock(ids[i]);
      }
    }
  }
}

TEST_F(MatrixFlowInterpreterTest, TheFirstInvalidReferenceStopsReadingAndNothingIsWritten) {
  const uint32_t block = scene.AddFloats({1, 2, 3});
  const uint32_t position = kFirstCommand + 4;
  EXPECT_EQ(4, Run({1001, kNoBlock, 0, block, 0, block, 8}));
  EXPECT_EQ(position + 8, Position());
  EXPECT_EQ(4, Run({1001, block, 0, kNoBlock, 0, block, 8}));
  EXPECT_EQ(position + 16, Position());
  EXPECT_EQ(4, Run({1001, block, 0, block, 4, kNoBlock, 8}));
  EXPECT_EQ(position + 24, Position());
  EXPECT_EQ(4, Run({1000, kNoBlock, 0, kNoBlock, 0}));
  EXPECT_EQ(position + 8, Position());
  EXPECT_EQ(kNoMatch, scene.Log()) << "once";
  EXPECT_EQ(4, Run({9000, 1, block, 0, block, 9}));
  EXPECT_EQ(position + 20, Position());
  EXPECT_EQ(4, Run({9000, 1, block, 9, block, 9}));
  EXPECT_EQ(position + 12, Position());
  EXPECT_THAT(scene.Floats(block, 0, 3), ElementsAre(1, 2, 3));
}

TEST_F(MatrixFlowInterpreterTest, OffsetsNeedNoAlignment) {
  const uint32_t from = Pattern(40);
  const uint32_t to = Pattern(40);
  for (uint32_t shift = 0; shift < 4; ++shift) {
    EXPECT_EQ(0, Run({4000, to, 8 + shift, from, 3 - shift}));
    EXPECT_EQ(Bytes(from, 3 - shift, 16), Bytes(to, 8 + shift, 16));
  }
  const uint32_t numbers = scene.AddBlock(64);
  scene.SetFloat(numbers, 1, 1.25f);
  scene.SetFloat(numbers, 6, 2.5f);
  EXPECT_EQ(0, Run({1001, numbers, 1, numbers, 6, numbers, 11}));
  EXPECT_EQ(3.75f, scene.Float(numbers, 11));
}

TEST_F(MatrixFlowInterpreterTest, TheEndOfAReferenceWrapsAs32Bits) {
  // The result is checked but, the divisor being rejected, not written.
  const uint32_t block = scene.AddFloats({1, 0});
  EXPECT_EQ(5, Run({1004, block, 0, block, 4, block, 0xFFFFFFFCu})) << "ends at 0";
  EXPECT_EQ(5, Run({1004, block, 0, block, 4, block, 0xFFFFFFFFu})) << "ends at 3";
  EXPECT_EQ(4, Run({1004, block, 0, block, 4, block, 0xFFFFFFFBu})) << "ends at 0xFFFFFFFF";
  // If the first reference passes, the second is read: the position shows it.
  EXPECT_EQ(4, Run({1000, block, 0xFFFFFFFCu, kNoBlock, 0}));
  EXPECT_EQ(kFirstCommand + 4 + 16, Position());
  EXPECT_EQ(4, Run({6001, block, 0xFFFFFFC0u, kNoBlock, 0, kNoBlock, 0}));
  EXPECT_EQ(kFirstCommand + 4 + 16, Position());
  EXPECT_EQ(4, Run({6001, block, 0xFFFFFFBFu, kNoBlock, 0, kNoBlock, 0}));
  EXPECT_EQ(kFirstCommand + 4 + 8, Position());
}

TEST_F(MatrixFlowInterpreterTest, ABlockMayBeTheBuffersOwnOrAnotherBuffers) {
  const uint32_t other = scene.AddBuffer(64);
  scene.SetFloat(scene.IDOf(other), 40, 3);
  scene.SetFloat(scene.IDOf(buffer), 400, 4);
  EXPECT_EQ(0,
            Run({1003, scene.IDOf(other), 40, scene.IDOf(buffer), 400, scene.IDOf(buffer), 404}));
  EXPECT_EQ(12.0f, scene.Float(scene.IDOf(buffer), 404));
}

TEST_F(MatrixFlowInterpreterTest, ReferencesToAReleasedBlockGive4) {
  const uint32_t block = scene.AddFloats({1, 2});
  scene.Write(buffer, {1000, block, 0, block, 4});
  EXPECT_EQ(0, Again());
  scene.ReleaseBlock(block);
  EXPECT_EQ(4, Again());
  const uint32_t next = scene.AddFloats({5, 6});
  ASSERT_NE(block, next);
  EXPECT_EQ(4, Again()) << "the same memory under a new number";
}

// Streams that write to themselves.

TEST_F(MatrixFlowInterpreterTest, AHeaderWrittenByItsOwnRunTakesEffectInTheNext) {
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({1, 1});
  const uint32_t header = scene.AddBlock(4);
  scene.SetWord(header, 0, 20);  // the first command alone
  EXPECT_EQ(0, Run({1000, own, 0, header, 0, 1001, block, 0, block, 4, block, 0}));
  EXPECT_EQ(2.0f, scene.Float(block, 0)) << "the limit stays as it was taken";
  EXPECT_EQ(20u, scene.Word(own, 0));
  EXPECT_EQ(0, Again());
  EXPECT_EQ(2.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, ALaterCommandWrittenByItsOwnRunIsTheOneThatRuns) {
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({6, 3, 0});
  const uint32_t type = scene.AddBlock(4);
  scene.SetWord(type, 0, 1002);
  // Position 24 holds the second command's type.
  EXPECT_EQ(0, Run({1000, own, 24, type, 0, 1001, block, 0, block, 4, block, 8}));
  EXPECT_EQ(3.0f, scene.Float(block, 8));
}

TEST_F(MatrixFlowInterpreterTest, LaterOperandsWrittenByTheirOwnRunAreUsed) {
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({6, 3, 0, 0});
  const uint32_t offset = scene.AddBlock(4);
  scene.SetWord(offset, 0, 12);
  EXPECT_EQ(0, Run({1000, own, 48, offset, 0, 1001, block, 0, block, 4, block, 8}));
  EXPECT_THAT(scene.Floats(block, 0, 4), ElementsAre(6, 3, 0, 9));
}

TEST_F(MatrixFlowInterpreterTest, ACommandThatOverwritesItsOwnOperandsHasReadThem) {
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = Pattern(20);
  const std::vector<uint8_t> expected = Bytes(block, 0, 16);
  EXPECT_EQ(0, Run({4000, own, 8, block, 0}));
  EXPECT_EQ(expected, Bytes(own, 8, 16));
  EXPECT_EQ(4, Again()) << "what it left is no reference";
}

// Calls.

TEST_F(MatrixFlowInterpreterTest, ACallRunsTheOtherBufferAndReturns) {
  const uint32_t block = scene.AddFloats({1, 2, 0});
  const uint32_t callee = scene.AddBuffer(64);
  scene.Write(callee, {1001, block, 0, block, 4, block, 8});
  EXPECT_EQ(0, Run({1, callee, 1003, block, 8, block, 8, block, 8}));
  EXPECT_EQ(9.0f, scene.Float(block, 8));
  EXPECT_EQ(1u, scene.Reader(callee).LimitCount());
  EXPECT_EQ(32u, scene.Reader(callee).Position());
  EXPECT_EQ(0, Run({1, callee + 5}));
  EXPECT_EQ(2u, scene.Reader(callee).LimitCount());
}

TEST_F(MatrixFlowInterpreterTest, ACallOfABadHandleIsReportedOnce) {
  const uint32_t block = scene.AddFloats({1, 2});
  EXPECT_EQ(1, Run({1, 0x123000, 1000, block, 0, block, 4}));
  EXPECT_EQ("[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 1191936\n", scene.Log());
  EXPECT_EQ(12u, Position());
  EXPECT_EQ(1.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, AFailingCalledBufferEndsAllItsCallers) {
  const uint32_t block = scene.AddFloats({1, 0});
  const uint32_t middle = scene.AddBuffer(64);
  const uint32_t inner = scene.AddBuffer(64);
  const struct {
    std::vector<uint32_t> words;
    int32_t code;
    std::string text;
  } kEnds[] = {{{1, 0x9000}, 1, "[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 36864\n"},
               {{1000, block}, 2, kOverflow},
               {{3}, 3, "[NQ_FATAL][MatrixFlow]: Command type invalid, type: 3\n"},
               {{1000, kNoBlock, 0, block, 0}, 4, kNoMatch},
               {{1004, block, 0, block, 4, block, 0}, 5, ""}};
  scene.Write(middle, {1, inner, 1000, block, 0, block, 4});
  for (const auto& end : kEnds) {
    scene.Write(inner, end.words);
    EXPECT_EQ(end.code, Run({1, middle, 1000, block, 0, block, 4}));
    EXPECT_EQ(end.text, scene.Log());
    EXPECT_EQ(12u, Position());
    EXPECT_EQ(12u, scene.Reader(middle).Position());
    EXPECT_EQ(1.0f, scene.Float(block, 0));
  }
}

TEST_F(MatrixFlowInterpreterTest, ADeepChainOfCallsRuns) {
  const uint32_t block = scene.AddFloats({0, 1});
  uint32_t callee = scene.AddBuffer(64);
  scene.Write(callee, {1001, block, 0, block, 4, block, 0});
  for (int depth = 0; depth < 20; ++depth) {
    const uint32_t caller = scene.AddBuffer(64);
    scene.Write(caller, {1, callee, 1001, block, 0, block, 4, block, 0});
    callee = caller;
  }
  EXPECT_EQ(0, Execute(callee));
  EXPECT_EQ(21.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, ARecursiveCallOverwrittenBeforeItRunsIsNotMade) {
  //  4: bulk copy of 3 words to 28
  // 28: call of itself, and the rest of what becomes block[0] = block[0] + block[2]
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({0, 0, 1});
  const uint32_t words = scene.AddBlock(12);
  scene.SetWord(words, 0, 1001);
  scene.SetWord(words, 4, block);
  scene.SetWord(words, 8, 0);
  EXPECT_EQ(0, Run({9000, 3, own, 28, words, 0, 1, buffer, 0, block, 8, block, 0}));
  EXPECT_EQ(1.0f, scene.Float(block, 0));
  EXPECT_EQ(1u, scene.Reader(buffer).LimitCount());
  EXPECT_EQ(0u, scene.Reference().reentries);
}

TEST_F(MatrixFlowInterpreterTest, ABufferThatCallsItselfSharesItsReaderWithTheNestedRun) {
  // call of a helper, which chooses the next callee: first this buffer, then an empty one
  // 12: call of that
  // 20: block[0] = block[0] + block[1]
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({0, 1});
  const uint32_t helper = scene.AddBuffer(128);
  const uint32_t empty = scene.AddBuffer(16);
  const uint32_t callees = scene.AddBlock(8);
  scene.SetWord(callees, 0, buffer);
  scene.SetWord(callees, 4, empty);
  scene.Write(helper, {1000, own, 16, callees, 0, 1000, callees, 0, callees, 4});
  EXPECT_EQ(0, Run({1, helper, 1, 0, 1001, block, 0, block, 4, block, 0}));
  // The nested run reaches the end; the outer run, at the same position, finds nothing left.
  EXPECT_EQ(1.0f, scene.Float(block, 0));
  EXPECT_EQ(48u, Position());
  EXPECT_EQ(2u, scene.Reader(buffer).LimitCount());
  EXPECT_EQ(1u, scene.Reader(empty).LimitCount());
  EXPECT_EQ(1u, scene.Reference().reentries);
}

TEST_F(MatrixFlowInterpreterTest, AnOuterRunContinuesWithTheLimitOfTheNestedRun) {
  // 4: call helper, which makes the header longer and the next call one of an empty buffer
  // 12: call helper's choice: itself first
  // 20: add 1 to block[0]; within the longer limit only
  const uint32_t own = scene.IDOf(buffer);
  const uint32_t block = scene.AddFloats({0, 1});
  const uint32_t helper = scene.AddBuffer(128);
  const uint32_t empty = scene.AddBuffer(16);
  const uint32_t words = scene.AddBlock(16);
  scene.SetWord(words, 0, buffer);
  scene.SetWord(words, 4, empty);
  scene.SetWord(words, 8, 16 + 28);
  scene.Write(helper, {1000, own, 16, words, 0, 1000, words, 0, words, 4, 1000, own, 0, words, 8});
  scene.Write(buffer, {1, helper, 1, 0, 1001, block, 0, block, 4, block, 0});
  scene.SetWord(own, 0, 16);
  EXPECT_EQ(0, Again());
  EXPECT_EQ(1.0f, scene.Float(block, 0));
  EXPECT_EQ(48u, scene.Reader(buffer).Limit());
  EXPECT_EQ(2u, scene.Reader(buffer).LimitCount());
}

// Only the end of the stack stops it, which is made small.
TEST(MatrixFlowInterpreterDeathTest, EndlessRecursionOverflowsTheStack) {
  MatrixFlowScene scene;
  const uint32_t buffer = scene.AddBuffer(16);
  scene.Write(buffer, {1, buffer});
  EXPECT_DEATH(
      {
        struct rlimit stack;
        getrlimit(RLIMIT_STACK, &stack);
        stack.rlim_cur = 1 << 20;
        setrlimit(RLIMIT_STACK, &stack);
        scene.Core()->ExecuteCommandBuffer(buffer);
      },
      "");
}

// Scalars.

TEST_F(MatrixFlowInterpreterTest, ScalarsAreCopiedAddedSubtractedMultipliedAndDivided) {
  const uint32_t block = scene.AddFloats({7, 2, 0});
  EXPECT_EQ(0, Run({1001, block, 0, block, 4, block, 8}));
  EXPECT_EQ(9.0f, scene.Float(block, 8));
  EXPECT_EQ(0, Run({1002, block, 0, block, 4, block, 8}));
  EXPECT_EQ(5.0f, scene.Float(block, 8));
  EXPECT_EQ(0, Run({1003, block, 0, block, 4, block, 8}));
  EXPECT_EQ(14.0f, scene.Float(block, 8));
  EXPECT_EQ(0, Run({1004, block, 0, block, 4, block, 8}));
  EXPECT_EQ(3.5f, scene.Float(block, 8));
  EXPECT_EQ(0, Run({1000, block, 8, block, 0}));
  EXPECT_EQ(7.0f, scene.Float(block, 8));
}

TEST_F(MatrixFlowInterpreterTest, AResultMayReplaceAnInput) {
  const uint32_t block = scene.AddFloats({1, 2});
  scene.Write(buffer, {1001, block, 0, block, 4, block, 0});
  for (const float expected : {3.0f, 5.0f, 7.0f}) {
    EXPECT_EQ(0, Again());
    EXPECT_EQ(expected, scene.Float(block, 0));
  }
  EXPECT_EQ(0, Run({1002, block, 0, block, 4, block, 4}));
  EXPECT_EQ(5.0f, scene.Float(block, 4));
  EXPECT_EQ(0, Run({1003, block, 0, block, 0, block, 0}));
  EXPECT_EQ(49.0f, scene.Float(block, 0));
}

TEST_F(MatrixFlowInterpreterTest, ADivisorBelowTheSmallestNormalNumberEndsTheRunWith5) {
  const uint32_t block = scene.AddFloats({1, 1, 0, 42});
  for (const float divisor : {0.0f, -0.0f, -2.0f, 1.0e-39f, std::nextafter(0x1p-126f, 0.0f),
                              -1.17549435e-38f, -kInfinity}) {
    scene.SetFloat(block, 8, divisor);
    scene.SetFloat(block, 0, 1);
    EXPECT_EQ(5, Run({1001, block, 0,  block, 4,     block, 0,     1004, block, 4, block,
                      8,    block, 12, 1001,  block, 0,     block, 4,    block, 0}))
        << divisor;
    EXPECT_EQ("", scene.Log());
    EXPECT_EQ(2.0f, scene.Float(block, 0)) << "what came before is done, what follows is not";
    EXPECT_EQ(42.0f, scene.Float(block, 12));
    EXPECT_EQ(60u, Position());
  }
}

TEST_F(MatrixFlowInterpreterTest, AnyOtherDivisorDivides) {
  const uint32_t block = scene.AddFloats({1, 0, 42});
  const std::vector<uint32_t> divide = {1004, block, 0, block, 4, block, 8};
  scene.SetFloat(block, 4, 1.17549435e-38f);
  EXPECT_EQ(0, Run(divide));
  EXPECT_EQ(0x1p126f, scene.Float(block, 8));
  scene.SetFloat(block, 4, kInfinity);
  EXPECT_EQ(0, Run(divide));
  EXPECT_EQ(0.0f, scene.Float(block, 8));
  scene.SetFloat(block, 4, kNone);
  EXPECT_EQ(0, Run(divide));
  EXPECT_TRUE(std::isnan(scene.Float(block, 8)));
  scene.SetFloat(block, 4, -kNone);
  scene.SetFloat(block, 8, 42);
  EXPECT_EQ(0, Run(divide));
  EXPECT_TRUE(std::isnan(scene.Float(block, 8)));
}

TEST_F(MatrixFlowInterpreterTest, ADivisionChecksAllReferencesBeforeItsDivisor) {
  const uint32_t block = scene.AddFloats({1, 0});
  EXPECT_EQ(4, Run({1004, block, 0, block, 4, kNoBlock, 0}));
  EXPECT_EQ(4, Run({1004, block, 0, block, 4, block, 5}));
  EXPECT_EQ(4, Run({1004, kNoBlock, 0, block, 4, block, 0}));
  EXPECT_EQ(2, Run({1004, block, 0, block, 4, block}));
}

// Vectors and matrices by component.

TEST_F(MatrixFlowInterpreterTest, VectorCommandsWorkByComponentAndChangeNothingElse) {
  const struct {
    uint32_t family;
    uint32_t count;
  } kFamilies[] = {{1000, 1}, {2000, 2}, {3000, 3}, {4000, 4}, {5000, 9}, {6000, 16}};
  for (const auto& family : kFamilies) {
    const uint32_t bytes = 4 * family.count;
    const bool isMatrix = family.family >= 5000;
    const uint32_t a = scene.AddBlock(bytes + 8);
    const uint32_t b = scene.AddBlock(bytes + 8);
    const uint32_t r = scene.AddBlock(bytes + 8);
    for (uint32_t i = 0; i < family.count; ++i) {
      scene.SetFloat(a, 4 + 4 * i, static_cast<float>(10 * (i + 1)));
      scene.SetFloat(b, 4 + 4 * i, static_cast<float>(1u << (i % 4)));
    }
    for (uint32_t slot = 0; slot < 5; ++slot) {
      if (isMatrix && slot >= 3) {
        continue;
      }
      SCOPED_TRACE(family.family + slot);
      for (uint32_t at = 0; at < bytes + 8; at += 4) {
        scene.SetFloat(r, at, -777);
      }
      if (slot == 0) {
        EXPECT_EQ(0, Run({family.family, r, 4, a, 4}));
      } else {
        EXPECT_EQ(0, Run({family.family + slot, a, 4, b, 4, r, 4}));
      }
      std::vector<float> expected = {-777};
      for (uint32_t i = 0; i < family.count; ++i) {
        const float x = static_cast<float>(10 * (i + 1));
        const float y = static_cast<float>(1u << (i % 4));
        const float results[] = {x, x + y, x - y, x * y, x / y};
        expected.push_back(results[slot]);
      }
      expected.push_back(-777);
      EXPECT_THAT(scene.Floats(r, 0, family.count + 2), ElementsAreArray(expected));
    }
  }
}

TEST_F(MatrixFlowInterpreterTest, DivisionsOfVectorsDoNotCheckDivisors) {
  const uint32_t a = scene.AddFloats({1, -1, 0, 6});
  const uint32_t b = scene.AddFloats({0, 0, 0, -2});
  const uint32_t r = scene.AddBlock(16);
  EXPECT_EQ(0, Run({2004, a, 0, b, 0, r, 0}));
  EXPECT_THAT(scene.Floats(r, 0, 2), ElementsAre(kInfinity, -kInfinity));
  EXPECT_EQ(0, Run({3004, a, 0, b, 0, r, 0}));
  EXPECT_TRUE(std::isnan(scene.Float(r, 8)));
  EXPECT_EQ(0, Run({4004, a, 0, b, 0, r, 0, 1000, a, 0, b, 12}));
  EXPECT_EQ(-3.0f, scene.Float(r, 12));
  EXPECT_EQ(-2.0f, scene.Float(a, 0)) << "the run goes on";
  scene.SetFloat(b, 0, 1.0e-39f);
  scene.SetFloat(a, 0, 1.0e-39f);
  EXPECT_EQ(0, Run({2004, a, 0, b, 0, r, 0}));
  EXPECT_EQ(1.0f, scene.Float(r, 0)) << "denormal numbers are numbers";
}

TEST_F(MatrixFlowInterpreterTest, ResultsMayOverlapInputsInAnyWay) {
  const uint32_t block = scene.AddBlock(256);
  const struct {
    uint32_t type;
    uint32_t count;
  } kTypes[] = {{2001, 2}, {3001, 3}, {4001, 4}, {5001, 9}, {6001, 16}};
  for (const auto& type : kTypes) {
    for (int32_t shift = -static_cast<int32_t>(type.count);
         shift <= static_cast<int32_t>(type.count); ++shift) {
      for (uint32_t i = 0; i < 64; ++i) {
        scene.SetFloat(block, 4 * i, static_cast<float>(i * i));
      }
      // A from 20, B from 22, R around A.
      const uint32_t r = static_cast<uint32_t>(20 + shift);
      ASSERT_EQ(0, Run({type.type, block, 4 * 20, block, 4 * 22, block, 4 * r}));
      for (uint32_t i = 0; i < type.count; ++i) {
        const float sum = static_cast<float>((20 + i) * (20 + i) + (22 + i) * (22 + i));
        EXPECT_EQ(sum, scene.Float(block, 4 * (r + i))) << type.type << " shift " << shift;
      }
    }
  }
}

// Copies.

TEST_F(MatrixFlowInterpreterTest, CopiesTakeTheDestinationFirst) {
  for (const uint32_t type : {1000u, 2000u, 3000u, 4000u, 5000u, 6000u}) {
    const uint32_t to = Pattern(72);
    const uint32_t from = Pattern(72);
    const std::vector<uint8_t> before = Bytes(to, 0, 72);
    uint32_t bytes = 0;
    for (const ReferenceCommand& command : kReferenceCommands) {
      bytes = command.type == static_cast<int32_t>(type) ? command.bytes : bytes;
    }
    EXPECT_EQ(0, Run({type, to, 3, from, 5}));
    EXPECT_EQ(Bytes(from, 5, bytes), Bytes(to, 3, bytes)) << type;
    EXPECT_EQ(std::vector<uint8_t>(before.begin(), before.begin() + 3), Bytes(to, 0, 3));
    EXPECT_EQ(std::vector<uint8_t>(before.begin() + 3 + bytes, before.end()),
              Bytes(to, 3 + bytes, 69 - bytes));
  }
}

TEST_F(MatrixFlowInterpreterTest, CopiesKeepTheBytesOfNaNs) {
  const uint32_t from = scene.AddBlock(16);
  const uint32_t to = scene.AddBlock(16);
  const uint32_t payloads[] = {0x7F800001u, 0xFFC12345u, 0x7FFFFFFFu, 0xFF800001u};
  for (uint32_t i = 0; i < 4; ++i) {
    scene.SetWord(from, 4 * i, payloads[i]);
  }
  EXPECT_EQ(0, Run({4000, to, 0, from, 0}));
  EXPECT_EQ(Bytes(from, 0, 16), Bytes(to, 0, 16));
  EXPECT_EQ(0, Run({1000, to, 4, from, 0}));
  EXPECT_EQ(0x7F800001u, scene.Word(to, 4));
}

TEST_F(MatrixFlowInterpreterTest, ACopyOfTwoChecks4BytesAndMoves8) {
  // 12 bytes of a class of 16: there is room for a value at 8.
  const uint32_t from = Pattern(12);
  const uint32_t to = Pattern(12);
  scene.SetWord(from, 12, 0xA1B2C3D4u);
  EXPECT_EQ(0, Run({2000, to, 8, from, 8}));
  EXPECT_EQ(Bytes(from, 8, 8), Bytes(to, 8, 8));
  EXPECT_EQ(0xA1B2C3D4u, scene.Word(to, 12)) << "behind the block's end";
  EXPECT_EQ(4, Run({2000, to, 9, from, 8}));
  EXPECT_EQ(4, Run({2000, to, 8, from, 9}));
  const uint32_t sum = scene.AddBlock(12);
  EXPECT_EQ(4, Run({2001, from, 0, from, 0, sum, 8})) << "an addition proves all 8";
  EXPECT_EQ(0, Run({2001, from, 0, from, 0, sum, 4}));
}

TEST_F(MatrixFlowInterpreterTest, ACopyOfThreeChecks4BytesAndMoves12) {
  // 8 bytes of a class of 16, 20 of 32.
  const uint32_t from = Pattern(8);
  const uint32_t to = Pattern(20);
  scene.SetWord(from, 8, 0x11223344u);
  scene.SetWord(from, 12, 0x55667788u);
  EXPECT_EQ(0, Run({3000, to, 16, from, 4}));
  EXPECT_EQ(Bytes(from, 4, 12), Bytes(to, 16, 12));
  EXPECT_EQ(0x55667788u, scene.Word(to, 24));
  EXPECT_EQ(0x5C5C5C5Cu, scene.Word(to, 28)) << "and not more";
  EXPECT_EQ(4, Run({3000, to, 17, from, 4}));
  EXPECT_EQ(4, Run({3000, to, 16, from, 5}));
  EXPECT_EQ(4, Run({3001, to, 0, to, 0, to, 16}));
}

TEST_F(MatrixFlowInterpreterTest, ACopyOfFourChecksAll16) {
  const uint32_t from = Pattern(20);
  const uint32_t to = Pattern(20);
  EXPECT_EQ(4, Run({4000, to, 5, from, 0}));
  EXPECT_EQ(4, Run({4000, to, 0, from, 5}));
  EXPECT_EQ(0, Run({4000, to, 4, from, 4}));
}

TEST_F(MatrixFlowInterpreterTest, BulkCopiesMoveWords) {
  const uint32_t from = Pattern(700);
  const uint32_t to = Pattern(700);
  const std::vector<uint8_t> before = Bytes(to, 0, 700);
  EXPECT_EQ(0, Run({9000, 7, to, 5, from, 2}));
  EXPECT_EQ(Bytes(from, 2, 28), Bytes(to, 5, 28));
  EXPECT_EQ(before[4], scene.Byte(to, 4));
  EXPECT_EQ(before[33], scene.Byte(to, 33));
  EXPECT_EQ(0, Run({9000, 175, to, 0, from, 0}));
  EXPECT_EQ(Bytes(from, 0, 700), Bytes(to, 0, 700));
  EXPECT_EQ(4, Run({9000, 175, to, 1, from, 0}));
  EXPECT_EQ(4, Run({9000, 175, to, 0, from, 1}));
  EXPECT_EQ(4, Run({9000, 176, to, 0, from, 0}));
}

TEST_F(MatrixFlowInterpreterTest, ABulkCopyOf0WordsStillNeedsItsBlocks) {
  const uint32_t block = Pattern(20);
  const uint32_t numbers = scene.AddFloats({1, 2});
  const std::vector<uint8_t> before = Bytes(block, 0, 32);
  EXPECT_EQ(0, Run({9000, 0, block, 4, block, 4, 1000, numbers, 0, numbers, 4}));
  EXPECT_EQ(2.0f, scene.Float(numbers, 0)) << "the run goes on";
  EXPECT_EQ(0, Run({9000, 0, block, 20, block, 20})) << "at the end of a block";
  EXPECT_EQ(4, Run({9000, 0, block, 21, block, 0}));
  EXPECT_EQ(4, Run({9000, 0, block, 0, block, 21}));
  EXPECT_EQ(4, Run({9000, 0, kNoBlock, 0, block, 0}));
  EXPECT_EQ(4, Run({9000, 0, block, 0, kNoBlock, 0}));
  EXPECT_EQ(4, Run({9000, 0, block, 0xFFFFFFFFu, block, 0}));
  EXPECT_EQ(before, Bytes(block, 0, 32));
}

TEST_F(MatrixFlowInterpreterTest, TheLengthOfABulkCopyWrapsAs32Bits) {
  const uint32_t from = Pattern(16);
  const uint32_t to = Pattern(16);
  const std::vector<uint8_t> before = Bytes(to, 0, 16);
  EXPECT_EQ(0, Run({9000, 0x40000000u, to, 0, from, 0})) << "0 bytes";
  EXPECT_EQ(0, Run({9000, 0x80000000u, to, 16, from, 16}));
  EXPECT_EQ(0, Run({9000, 0xC0000000u, to, 16, from, 16}));
  EXPECT_EQ(4, Run({9000, 0x40000000u, to, 17, from, 0}));
  EXPECT_EQ(before, Bytes(to, 0, 16));
  EXPECT_EQ(0, Run({9000, 0x40000001u, to, 4, from, 8})) << "4 bytes";
  EXPECT_EQ(Bytes(from, 8, 4), Bytes(to, 4, 4));
  EXPECT_EQ(scene.Byte(to, 8), before[8]);
  // 0xFFFFFFFC bytes at 4 end at 0; the second reference is then read, as the position shows.
  EXPECT_EQ(4, Run({9000, 0x3FFFFFFFu, to, 4, kNoBlock, 0}));
  EXPECT_EQ(kFirstCommand + 24, Position());
  EXPECT_EQ(4, Run({9000, 0x3FFFFFFFu, to, 0, kNoBlock, 0}));
  EXPECT_EQ(kFirstCommand + 16, Position());
}

// Matrices.

TEST_F(MatrixFlowInterpreterTest, MatricesOf3MultiplyByColumns) {
  //     1 4 7       2 0 1           49 4  8
  // A = 2 5 8   B = 3 1 0   A B = 59 5 10
  //     3 6 9       5 0 1           69 6 12
  const uint32_t a = scene.AddFloats({1, 2, 3, 4, 5, 6, 7, 8, 9});
  const uint32_t b = scene.AddFloats({2, 3, 5, 0, 1, 0, 1, 0, 1});
  const uint32_t r = scene.AddBlock(36);
  EXPECT_EQ(0, Run({5003, a, 0, b, 0, r, 0}));
  EXPECT_THAT(scene.Floats(r, 0, 9), ElementsAre(49, 59, 69, 4, 5, 6, 8, 10, 12));
}

TEST_F(MatrixFlowInterpreterTest, MultiplyingByTheIdentityOf3ReturnsTheMatrix) {
  const std::vector<float> values = {1, 2, 3, -4, 0.5f, 6, 7.25f, 8, 9};
  const uint32_t a = scene.AddFloats(values);
  const uint32_t one = scene.AddFloats({1, 0, 0, 0, 1, 0, 0, 0, 1});
  const uint32_t r = scene.AddBlock(36);
  EXPECT_EQ(0, Run({5003, a, 0, one, 0, r, 0}));
  EXPECT_THAT(scene.Floats(r, 0, 9), ElementsAreArray(values));
  EXPECT_EQ(0, Run({5003, one, 0, a, 0, a, 0}));
  EXPECT_THAT(scene.Floats(a, 0, 9), ElementsAreArray(values));
}

TEST_F(MatrixFlowInterpreterTest, SumsOfProductsAreTakenFromLeftToRight) {
  // 1e8 * 1 + -1e8 * 1 + 1 * 1 is 1 from the left and 0 from the right, where 1 is lost in 1e8.
  const uint32_t a3 = scene.AddFloats({1e8f, 0, 0, -1e8f, 0, 0, 1, 0, 0});
  const uint32_t b3 = scene.AddFloats({1, 1, 1, 0, 0, 0, 0, 0, 0});
  const uint32_t r = scene.AddBlock(64);
  EXPECT_EQ(0, Run({5003, a3, 0, b3, 0, r, 0}));
  EXPECT_EQ(1.0f, scene.Float(r, 0));
  // ((1e8 + 1) - 1e8) + 1 is 1; in pairs, (1e8 + 1) + (-1e8 + 1), it is 0.
  std::vector<float> a(16, 0.0f);
  a[0] = 1e8f;
  a[4] = 1;
  a[8] = -1e8f;
  a[12] = 1;
  std::vector<float> b(16, 0.0f);
  b[0] = b[1] = b[2] = b[3] = 1;
  EXPECT_EQ(0, Run({6003, scene.AddFloats(a), 0, scene.AddFloats(b), 0, r, 0}));
  EXPECT_EQ(1.0f, scene.Float(r, 0));
}

TEST_F(MatrixFlowInterpreterTest, MatricesOf4MultiplyByColumns) {
  // Column-major: A translates by (1, 2, 3), B doubles, so that A B doubles first.
  const uint32_t a = scene.AddFloats({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
  const uint32_t b = scene.AddFloats({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 10, 20, 30, 1});
  const uint32_t r = scene.AddBlock(64);
  EXPECT_EQ(0, Run({6003, a, 0, b, 0, r, 0}));
  EXPECT_THAT(scene.Floats(r, 0, 16),
              ElementsAre(2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 11, 22, 33, 1));
  EXPECT_EQ(0, Run({6003, b, 0, a, 0, r, 0}));
  EXPECT_THAT(scene.Floats(r, 0, 16),
              ElementsAre(2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 12, 24, 36, 1));
}

TEST_F(MatrixFlowInterpreterTest, AProductMayReplaceOrOverlapEitherInput) {
  std::vector<float> values;
  for (int i = 0; i < 16; ++i) {
    values.push_back(static_cast<float>(i + 1));
  }
  // The square of 1 to 16 by columns, computed by hand.
  const float square[] = {90,  100, 110, 120, 202, 228, 254, 280,
                          314, 356, 398, 440, 426, 484, 542, 600};
  const uint32_t a = scene.AddFloats(values);
  const uint32_t b = scene.AddFloats(values);
  EXPECT_EQ(0, Run({6003, a, 0, b, 0, a, 0}));
  EXPECT_THAT(scene.Floats(a, 0, 16), ElementsAreArray(square));
  EXPECT_THAT(scene.Floats(b, 0, 16), ElementsAreArray(values));
  EXPECT_EQ(0, Run({6003, b, 0, b, 0, b, 0}));
  EXPECT_THAT(scene.Floats(b, 0, 16), ElementsAreArray(square));
  for (const uint32_t offset : {4u, 8u, 12u, 20u, 36u, 60u}) {
    const uint32_t block = scene.AddBlock(128);
    for (uint32_t i = 0; i < 16; ++i) {
      scene.SetFloat(block, 32 + 4 * i, values[i]);
    }
    EXPECT_EQ(0, Run({6003, block, 32, block, 32, block, offset}));
    EXPECT_THAT(scene.Floats(block, offset, 16), ElementsAreArray(square)) << offset;
  }
  // 1 to 9 by columns, over itself.
  const uint32_t small = scene.AddFloats({1, 2, 3, 4, 5, 6, 7, 8, 9});
  EXPECT_EQ(0, Run({5003, small, 0, small, 0, small, 0}));
  EXPECT_THAT(scene.Floats(small, 0, 9), ElementsAre(30, 36, 42, 66, 81, 96, 102, 126, 150));
}

// All distances of the result from either operand, in bytes. A compiler that moves loads of an
// operand behind stores of the result fails here: vectorisers of some do, for other targets.
TEST_F(MatrixFlowInterpreterTest, AProductOf3x3MatricesMayOverlapEitherOperandAtAnyDistance) {
  constexpr int32_t kBytes = 36;
  constexpr uint32_t kOperand = 64;
  const uint32_t a = scene.AddFloats({1, 2, 3, 4, 5, 6, 7, 8, 9});
  // a x b, computed by hand: column j of the product is the columns of a, weighted by column j of
  // b.
  const std::vector<float> b = {2, 0, 1, 1, 3, 0, 0, 1, 2};
  const std::vector<float> product = {9, 12, 15, 13, 17, 21, 18, 21, 24};
  // b x a.
  const std::vector<float> reverse = {4, 9, 7, 13, 21, 16, 22, 33, 25};
  for (int32_t distance = -kBytes - 4; distance <= kBytes + 4; ++distance) {
    const uint32_t r = static_cast<uint32_t>(static_cast<int32_t>(kOperand) + distance);
    for (const bool overlapsSecond : {false, true}) {
      const uint32_t block = scene.AddBlock(160);
      for (uint32_t i = 0; i < 9; ++i) {
        scene.SetFloat(block, kOperand + 4 * i, b[i]);
      }
      if (overlapsSecond) {
        ASSERT_EQ(0, Run({5003, a, 0, block, kOperand, block, r}));
      } else {
        ASSERT_EQ(0, Run({5003, block, kOperand, a, 0, block, r}));
      }
      EXPECT_THAT(scene.Floats(block, r, 9), ElementsAreArray(overlapsSecond ? product : reverse))
          << (overlapsSecond ? "second" : "first") << " operand, distance " << distance;
    }
  }
}

TEST_F(MatrixFlowInterpreterTest, AnInversionCopiesAndTakesTheSourceFirst) {
  const std::vector<float> values = {2, 0, 0, 0, 0, 4, 0, 0, 0, 0, 8, 0, 1, 2, 3, 1};
  const uint32_t from = scene.AddFloats(values);
  const uint32_t to = scene.AddBlock(64);
  EXPECT_EQ(0, Run({6004, from, 0, to, 0}));
  EXPECT_THAT(scene.Floats(to, 0, 16), ElementsAreArray(values));
  EXPECT_THAT(scene.Floats(from, 0, 16), ElementsAreArray(values));
  // A singular matrix, and one of NaNs, byte by byte.
  const uint32_t zeros = scene.AddBlock(64);
  EXPECT_EQ(0, Run({6004, zeros, 0, to, 0}));
  EXPECT_THAT(scene.Floats(to, 0, 16), testing::Each(0.0f));
  const uint32_t pattern = Pattern(64);
  scene.SetWord(pattern, 0, 0x7F800001u);
  EXPECT_EQ(0, Run({6004, pattern, 0, to, 0}));
  EXPECT_EQ(Bytes(pattern, 0, 64), Bytes(to, 0, 64));
}

TEST_F(MatrixFlowInterpreterTest, AnInversionOntoItselfOrAnOverlapCopiesToo) {
  const uint32_t block = Pattern(100);
  const std::vector<uint8_t> before = Bytes(block, 0, 64);
  EXPECT_EQ(0, Run({6004, block, 0, block, 0}));
  EXPECT_EQ(before, Bytes(block, 0, 64));
  EXPECT_EQ(0, Run({6004, block, 0, block, 7}));
  EXPECT_EQ(before, Bytes(block, 7, 64));
  EXPECT_EQ(0, Run({6004, block, 7, block, 2}));
  EXPECT_EQ(before, Bytes(block, 2, 64));
}

}  // namespace
}  // namespace nq::engine
