// The command stream, word by word.
#include "Engine/Entity/EntityCommands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

using Handles = std::vector<uint32_t>;

// Element indices of a batch of ten 3D entities, which is the first: element i has handle 0x1000+i.
class EntityCommandsTest : public WorldTest {
 protected:
  EntityCommandsTest() : e(world.Add3D(10)) {}

  // Runs a stream of these words and `bytes` bytes; the words after it are present as well.
  void Run(const std::vector<uint32_t>& words, uint32_t bytes, bool deep = false) {
    uint32_t* stream = world.CommandWords();
    stream[0] = bytes;
    std::copy(words.begin(), words.end(), stream + 1);
    world.RunCommands(deep);
    EXPECT_EQ(0u, stream[0]);
    EXPECT_TRUE(std::equal(words.begin(), words.end(), stream + 1)) << "the commands stay";
  }

  void Run(const std::vector<uint32_t>& words) {
    Run(words, static_cast<uint32_t>(words.size()) * 4);
  }

  const uint32_t e;
};

}  // namespace

TEST_F(EntityCommandsTest, CommandNumbersAreFixed) {
  EXPECT_EQ(1u, static_cast<uint32_t>(EntityCommand::kAddRoot));
  EXPECT_EQ(2u, static_cast<uint32_t>(EntityCommand::kAddChild));
  EXPECT_EQ(3u, static_cast<uint32_t>(EntityCommand::kInsertChild));
  EXPECT_EQ(4u, static_cast<uint32_t>(EntityCommand::kRemoveFromParent));
  EXPECT_EQ(5u, static_cast<uint32_t>(EntityCommand::kResetSubtree));
  EXPECT_EQ(6u, static_cast<uint32_t>(EntityCommand::kBindToBone));
  EXPECT_EQ(7u, static_cast<uint32_t>(EntityCommand::kBindToBoneBatch));
  EXPECT_EQ(8u, static_cast<uint32_t>(EntityCommand::kUnbindFromBone));
  EXPECT_EQ(9u, static_cast<uint32_t>(EntityCommand::kUnbindFromBoneBatch));
  EXPECT_EQ(10u, static_cast<uint32_t>(EntityCommand::kActivate));
  EXPECT_EQ(11u, static_cast<uint32_t>(EntityCommand::kDeactivate));
}

TEST_F(EntityCommandsTest, ALengthOf0LeavesEverythingUntouched) {
  Run({1, e}, 0);
  EXPECT_EQ(Handles{}, world.Roots());
}

TEST_F(EntityCommandsTest, AThousandWordsOf0DoNothing) {
  world.CommandWords()[1001] = 1;
  world.CommandWords()[1002] = e;
  Run(std::vector<uint32_t>(1000, 0));
  EXPECT_EQ(Handles{}, world.Roots());
}

TEST_F(EntityCommandsTest, CommandsRunInStreamOrder) {
  Run({
      2, e, e + 1,     // 1 below 0
      1, e + 1,        // has a parent: refused
      4, e + 1,        // free again
      1, e + 1,        // a root now
      2, e, e + 2,     //
      3, e, e + 3, 0,  // 3 before 2
      1, e,            //
  });
  EXPECT_EQ((Handles{e + 1, e}), world.Roots());
  EXPECT_EQ((Handles{e + 3, e + 2}), world.ChildrenOf(e));
}

TEST_F(EntityCommandsTest, TheWholeBufferHoldsCommands) {
  // 12287 words: 6143 times AddRoot, and a last word.
  std::vector<uint32_t> words;
  for (uint32_t i = 0; i < 6143; ++i) {
    words.insert(words.end(), {1, e + i % 10});
  }
  words.push_back(0);
  Run(words);
  EXPECT_EQ(6143u, world.Roots().size());
}

TEST_F(EntityCommandsTest, TheOperandsOfAnUnknownCommandAreTakenAsCommands) {
  Run({12, 1, e});
  EXPECT_EQ(Handles{e}, world.Roots());
  // Here the operand 4 of "12" consumes the 1, so that the handle is read as a command, unknown
  // too.
  Run({12, 4, 1, e + 1});
  EXPECT_EQ(Handles{e}, world.Roots());
  Run({0xFFFFFFFFu, 0x80000001u, 0, 1, e + 2});
  EXPECT_EQ((Handles{e, e + 2}), world.Roots());
}

TEST_F(EntityCommandsTest, ATruncatedCommandReadsTheWordsAfterTheLimit) {
  Run({1, e, 3, e, e + 1, 0}, 12);
  EXPECT_EQ(Handles{e}, world.Roots());
  EXPECT_EQ(Handles{e + 1}, world.ChildrenOf(e));
  // The command before the limit reads them, and no further one begins.
  Run({2, e, e + 2, 1, e + 3}, 4);
  EXPECT_EQ((Handles{e + 1, e + 2}), world.ChildrenOf(e));
  EXPECT_EQ(Handles{e}, world.Roots());
}

TEST_F(EntityCommandsTest, ALengthThatIsNoMultipleOf4ReadsOneMoreWord) {
  for (uint32_t more = 1; more <= 4; ++more) {
    Run({0, 1, e + more, 1, e + 9}, 4 + more);
  }
  EXPECT_EQ((Handles{e + 1, e + 2, e + 3, e + 4}), world.Roots());
  Run({0, 1, e + 5}, 4);
  EXPECT_EQ(4u, world.Roots().size());
}

TEST_F(EntityCommandsTest, AddChildRefusesDifferentKindsAndOneEntityTwice) {
  const uint32_t flat = world.Add2D(2);
  Run({2, e, flat});
  Run({2, flat, e});
  Run({2, e, e});
  Run({2, flat, flat});
  EXPECT_EQ(Handles{}, world.ChildrenOf(e));
  EXPECT_EQ(Handles{}, world.ChildrenOf(flat));
  Run({2, flat, flat + 1});
  EXPECT_EQ(Handles{flat + 1}, world.ChildrenOf(flat));
}

TEST_F(EntityCommandsTest, InsertChildLinksAcrossKindsButNotAnEntityToItself) {
  const uint32_t flat = world.Add2D(2);
  Run({3, flat, e, 0});
  EXPECT_EQ(Handles{e}, world.ChildrenOf(flat));
  Run({3, e, flat + 1, 0});
  EXPECT_EQ(Handles{flat + 1}, world.ChildrenOf(e));
  Run({3, e + 1, e + 1, 0});
  EXPECT_EQ(0u, world.ParentOf(e + 1));
}

TEST_F(EntityCommandsTest, InsertChildTakesItsOperandsInOrder) {
  Run({2, e, e + 1, 2, e, e + 2, 3, e, e + 3, 1});
  EXPECT_EQ((Handles{e + 1, e + 3, e + 2}), world.ChildrenOf(e));
}

TEST_F(EntityCommandsTest, CommandsWithUnknownHandlesReadTheirOperandsAndDoNothing) {
  const uint32_t none = e + 10;
  Run({
      1,    none, 2,    none, e,    2,    e,    none, 3,    none, e, 0, 3,
      e,    none, 0,    4,    none, 5,    none,  //
      6,    none, e,    6,    e,    none, 7,    1,    none, e,    7, 1, e,
      none, 8,    none, 9,    1,    none, 10,   none, 11,   none, 1, e,
  });
  EXPECT_EQ(Handles{e}, world.Roots());
  EXPECT_EQ(0u, world.BoneOf(e));
  EXPECT_EQ(Handles{}, world.ChildrenOf(e));
}

TEST_F(EntityCommandsTest, BindAndUnbind) {
  Run({6, e + 1, e});
  EXPECT_EQ(e, world.BoneOf(e + 1));
  EXPECT_EQ(0u, world.BoneOf(e));
  Run({8, e + 1});
  EXPECT_EQ(0u, world.BoneOf(e + 1));
}

TEST_F(EntityCommandsTest, BindToBoneBatchReadsEntitiesFirstAndThenBones) {
  Run({7, 2, e + 1, e + 2, e + 3, e + 4, 1, e});
  EXPECT_EQ(e + 3, world.BoneOf(e + 1));
  EXPECT_EQ(e + 4, world.BoneOf(e + 2));
  EXPECT_EQ(0u, world.BoneOf(e + 3));
  EXPECT_EQ(Handles{e}, world.Roots());
}

TEST_F(EntityCommandsTest, BindToBoneBatchBindsInOrder) {
  // The second pair closes a cycle because the first is there already; the third moves 1 away.
  testing::internal::CaptureStdout();
  Run({7, 3, e + 1, e + 2, e + 1, e + 2, e + 1, e + 3});
  EXPECT_EQ("[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4098 to bone: 4097\n",
            testing::internal::GetCapturedStdout());
  EXPECT_EQ(e + 3, world.BoneOf(e + 1));
  EXPECT_EQ(0u, world.BoneOf(e + 2));
}

TEST_F(EntityCommandsTest, UnbindFromBoneBatchUnbindsEach) {
  Run({7, 3, e + 1, e + 2, e + 3, e, e, e});
  EXPECT_EQ((Handles{e + 1, e + 2, e + 3}), world.BoundTo(e));
  Run({9, 2, e + 1, e + 3, 1, e + 4});
  EXPECT_EQ(Handles{e + 2}, world.BoundTo(e));
  EXPECT_EQ(Handles{e + 4}, world.Roots());
}

TEST_F(EntityCommandsTest, BatchesOf0DoNothingAndSkipNoWords) {
  Run({7, 0, 1, e, 9, 0, 1, e + 1});
  EXPECT_EQ((Handles{e, e + 1}), world.Roots());
}

TEST_F(EntityCommandsTest, ArraysOfBatchesAreSkippedEvenWhereTheyLookLikeCommands) {
  // The arrays would read "AddRoot 0, AddRoot 1" and so on if they were not skipped.
  Run({7, 2, 1, e, 1, e + 1, 9, 4, 1, e + 2, 1, e + 3, 1, e + 4});
  EXPECT_EQ(Handles{e + 4}, world.Roots());
  EXPECT_EQ(e + 1, world.BoneOf(e));
}

TEST_F(EntityCommandsTest, ATruncatedBatchReadsItsArraysAfterTheLimit) {
  Run({7, 2, e + 1, e + 2, e + 3, e + 4, 1, e}, 4);
  EXPECT_EQ(e + 3, world.BoneOf(e + 1));
  EXPECT_EQ(e + 4, world.BoneOf(e + 2));
  EXPECT_EQ(Handles{}, world.Roots());
}

//   0
//   `- 1
//      `- 2
TEST_F(EntityCommandsTest, ActivateMarksDescendantsIfThePassIsDeep) {
  struct Case {
    bool deep;
    uint32_t marks[3];
  };
  for (const Case& each : {Case{false, {1, 2, 0}}, Case{true, {1, 2, 2}}}) {
    const uint32_t b = world.Add3D(3);
    world.Link(b, b + 1);
    world.Link(b + 1, b + 2);
    world.AddRoot(b);
    world.Settle({b, b + 1, b + 2});
    Run({11, b + 1});
    EXPECT_FALSE(world.At(b + 1).active());
    EXPECT_EQ(0u, world.At(b + 1).dirtyState());
    Run({10, b + 1}, 8, each.deep);
    EXPECT_TRUE(world.At(b + 1).active());
    for (uint32_t i = 0; i < 3; ++i) {
      EXPECT_EQ(each.marks[i], world.At(b + i).dirtyState()) << i;
    }
  }
}

TEST_F(EntityCommandsTest, ActivateOfAnActiveEntityMarksNothing) {
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  Run({10, e + 1}, 8, true);
  EXPECT_EQ(0u, world.At(e).dirtyState());
  EXPECT_EQ(0u, world.At(e + 1).dirtyState());
  // Twice from settling, by the parent's entry and its own.
  EXPECT_EQ(2u, world.At(e + 1).localVersion());
}

TEST_F(EntityCommandsTest, DeactivateTwiceAndActivateOnce) {
  Run({11, e, 11, e});
  EXPECT_FALSE(world.At(e).active());
  Run({10, e});
  EXPECT_TRUE(world.At(e).active());
}

TEST_F(EntityCommandsTest, ResetSubtreeActivatesAndUnlinks) {
  Run({2, e, e + 1, 2, e + 1, e + 2, 11, e + 2, 5, e + 1});
  EXPECT_EQ(Handles{}, world.ChildrenOf(e));
  EXPECT_EQ(Handles{}, world.ChildrenOf(e + 1));
  EXPECT_TRUE(world.At(e + 2).active());
}

TEST_F(EntityCommandsTest, RefreshRunsTheCommandsBeforeTheDirtyList) {
  world.MoveTo(e, 1, 0, 0);
  world.MoveTo(e + 1, 0, 2, 0);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  EXPECT_EQ(0u, world.CommandWords()[0]);
  EXPECT_EQ((std::vector<float>{1, 2, 0}), world.WorldPosition(e + 1));
  // The bump includes the child that this frame's commands link.
  world.Link(e, e + 2);
  world.Settle({e});
  EXPECT_EQ(1u, world.At(e + 2).localVersion());
}

}  // namespace nq::engine
