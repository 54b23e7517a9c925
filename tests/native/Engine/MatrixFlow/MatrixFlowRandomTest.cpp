// Random command buffers, in the engine and in the reference.
#include <gtest/gtest.h>

#include "tests/native/Engine/Entity/World.h"
#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

namespace nq::engine {
namespace {

TEST(MatrixFlowRandomTest, RandomRunsMatchTheReference) {
  const uint32_t games = static_cast<uint32_t>(Rounds(24000));
  PlayTally tally;
  for (uint32_t seed = 1; seed <= games; ++seed) {
    Choices choices(seed);
    ASSERT_EQ("", PlayMatrixFlow(&choices, &tally)) << "seed " << seed;
  }
  // Coverage: every command, every result code, and the special cases must be frequent.
  EXPECT_LT(2 * games, tally.runs);
  EXPECT_LT(tally.undefined, games / 2);
  for (const ReferenceCommand& command : kReferenceCommands) {
    EXPECT_LT(games / 100, tally.performed[command.type]) << command.type;
  }
  for (int32_t code = 0; code <= 5; ++code) {
    EXPECT_LT(games / 20, tally.codes[code]) << code;
  }
  EXPECT_LT(games / 10, tally.selfWrites);
  EXPECT_LT(games / 200, tally.slackWrites);
  EXPECT_LT(games / 20, tally.reentries);
  EXPECT_LT(games / 200, tally.wraps);
  EXPECT_LT(games / 10, tally.resizes);
}

TEST(MatrixFlowRandomTest, ADifferenceIsNoticed) {
  // Guards the comparison: the engine's memory changes without the reference's.
  MatrixFlowScene scene;
  const uint32_t block = scene.AddBlock(13);
  const uint32_t buffer = scene.AddBuffer(64);
  int32_t code;
  EXPECT_TRUE(scene.Execute(buffer, &code));
  EXPECT_EQ("", scene.Problem());
  static_cast<uint8_t*>(scene.Runtime()->FindBlock(block).pointer)[15] ^= 1;
  EXPECT_TRUE(scene.Execute(buffer, &code));
  EXPECT_EQ("block 0 of 13 bytes differs at 15: 5D for 5C (mark 0)", scene.Problem());
}

TEST(MatrixFlowRandomTest, TheSameBytesGiveTheSameRun) {
  for (uint32_t seed = 1; seed <= 50; ++seed) {
    PlayTally first;
    Choices random(seed);
    ASSERT_EQ("", PlayMatrixFlow(&random, &first));
    PlayTally second;
    Choices again(random.Made().data(), random.Made().size());
    ASSERT_EQ("", PlayMatrixFlow(&again, &second));
    EXPECT_EQ(random.Made(), again.Made());
    EXPECT_EQ(first.performed, second.performed);
    EXPECT_EQ(first.codes, second.codes);
  }
}

}  // namespace
}  // namespace nq::engine
