// Target lists of bindings, and look-ups in them.
#include <gtest/gtest.h>

#include <vector>

#include "Engine/Animation/AnimationClipBinding.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

class AnimationBindingTargetsTest : public ControllerSceneTest {
 protected:
  AnimationBindingTargetsTest()
      : entities(scene.Add3D(4)),
        clip(scene.AddClip(10, {Constant(0, 1, 1)})),
        otherClip(scene.AddClip(10, {Constant(0, 1, 1)})) {
    for (uint32_t i = 0; i < 4; ++i) {
      scene.MoveTo(entities + i, static_cast<float>(i + 1), 0, 0);
    }
  }

  uint32_t Target(uint32_t binding, uint32_t clipHandle, uint32_t index) {
    const Entity* target = scene.BindingOf(binding)->FindTarget(clipHandle, index);
    return target == nullptr ? 0 : target->handle;
  }
  uint32_t Root(uint32_t binding) {
    const Entity* root = scene.BindingOf(binding)->rootEntity();
    return root == nullptr ? 0 : root->handle;
  }

  const uint32_t entities;
  const uint32_t clip;
  const uint32_t otherClip;
};

TEST_F(AnimationBindingTargetsTest, WithoutClipsOrWordsThereIsNoBinding) {
  const uint32_t words[] = {clip, 1, entities};
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(words);
  EXPECT_EQ(0u, scene.Core()->CreateAnimationClipBinding(bytes, 0, 0, 2, 1));
  EXPECT_EQ(0u, scene.Core()->CreateAnimationClipBinding(bytes, 0, 1, 0, 1));
  const uint32_t binding = scene.Core()->CreateAnimationClipBinding(bytes, 0, 1, 2, 1);
  EXPECT_EQ(0x1000u, binding);
  EXPECT_EQ(1u, scene.BindingOf(binding)->clipCount);
  EXPECT_EQ(2u, scene.BindingOf(binding)->targetWords);
  scene.Core()->ReleaseAnimationClipBinding(binding);
  EXPECT_EQ(nullptr, scene.BindingOf(binding));
}

TEST_F(AnimationBindingTargetsTest, AListWithoutTargetsBindsNoEntity) {
  const uint32_t binding = scene.Bind(Groups{{clip, {kHole, kHole, kHole}}});
  EXPECT_EQ(0u, Root(binding));
  EXPECT_TRUE(scene.KeysOf(binding).empty());
  EXPECT_TRUE(scene.BindingOf(binding)->HasList(clip));
  EXPECT_EQ(0u, Target(binding, clip, 1));
}

TEST_F(AnimationBindingTargetsTest, TheRootIsFoundInTheFirstListThatIsNotEmpty) {
  const uint32_t binding = scene.Bind(Groups{{otherClip, {entities + 2}}, {clip, {}}});
  ASSERT_LT(clip, otherClip);
  EXPECT_TRUE(scene.BindingOf(binding)->HasList(clip));
  EXPECT_EQ(entities + 2, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, TheRootFollowsTheOrderOfClipsNotThatOfTheLists) {
  const uint32_t binding =
      scene.Bind(Groups{{otherClip, {entities + 2}}, {clip, {entities + 1, entities}}});
  EXPECT_EQ(entities + 1, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, AMissingFirstTargetLeavesNoRoot) {
  const uint32_t binding =
      scene.Bind(Groups{{clip, {kHole, entities}}, {otherClip, {entities + 1}}});
  EXPECT_EQ(0u, Root(binding));
}

// 2D
//  '- 3D top
//      '- 3D middle
//          '- 3D bound
TEST_F(AnimationBindingTargetsTest, TheRootIsTheTopmost3DAncestor) {
  const uint32_t flat = scene.Add2D();
  scene.Insert(flat, entities, 0);
  scene.Link(entities, entities + 1);
  scene.Link(entities + 1, entities + 2);
  scene.RunCommands();
  EXPECT_EQ(entities, Root(scene.Bind(Groups{{clip, {entities + 2}}})));
}

TEST_F(AnimationBindingTargetsTest, TheRootStaysUntilListsAreAcceptedAgain) {
  const uint32_t binding = scene.Bind(Groups{{clip, {entities + 1}}});
  EXPECT_EQ(entities + 1, Root(binding));
  scene.Link(entities, entities + 1);
  scene.RunCommands();
  EXPECT_EQ(entities + 1, Root(binding));
  EXPECT_FALSE(scene.Rebind(binding, Groups{{0x9000, {entities + 1}}}, 0, 0, 0));
  EXPECT_EQ(entities + 1, Root(binding));
  EXPECT_TRUE(scene.Rebind(binding, Groups{{clip, {entities + 1}}}, 0, 0, 0));
  EXPECT_EQ(entities, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, TheRootIsDroppedWithItsBatchAndNotFoundAgain) {
  const uint32_t top = scene.Add3D();
  scene.Link(top, entities);
  scene.RunCommands();
  const uint32_t binding = scene.Bind(Groups{{clip, {entities}}});
  EXPECT_EQ(top, Root(binding));
  scene.Release(top);
  EXPECT_EQ(0u, Root(binding));
  EXPECT_EQ(top, scene.Add3D());
  EXPECT_EQ(0u, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, AnEntryOneWordPastTheAreaIsRead) {
  const TargetLists lists(Groups{{clip, {entities, entities + 1}}});
  ASSERT_EQ(3u, lists.TargetWords());
  const uint32_t binding = scene.Bind(lists, 1, 2);
  EXPECT_EQ(entities + 1, Target(binding, clip, 1));
  EXPECT_EQ((std::vector<uint32_t>{entities, entities + 1}), scene.KeysOf(binding));
}

TEST_F(AnimationBindingTargetsTest, AnEntryTwoWordsPastTheAreaIsRefused) {
  const TargetLists lists(Groups{{clip, {entities, entities + 1}}});
  const uint32_t binding = scene.Bind(lists, 1, 1);
  EXPECT_NE(0u, binding);
  EXPECT_FALSE(scene.BindingOf(binding)->HasList(clip));
  EXPECT_TRUE(scene.KeysOf(binding).empty());
  EXPECT_EQ(0u, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, TheCountOfAGroupMustBeInsideTheArea) {
  const TargetLists lists(Groups{{clip, {entities}}, {otherClip, {}}});
  ASSERT_EQ(3u, lists.TargetWords());
  EXPECT_TRUE(scene.BindingOf(scene.Bind(lists, 1, 3))->HasList(otherClip));
  EXPECT_FALSE(scene.BindingOf(scene.Bind(lists, 1, 2))->HasList(clip));
}

TEST_F(AnimationBindingTargetsTest, AGroupWithoutEntriesIsOneWord) {
  const uint32_t binding = scene.Bind(Groups{{clip, {}}, {otherClip, {entities + 3}}});
  EXPECT_EQ(0u, Target(binding, clip, 0));
  EXPECT_EQ(entities + 3, Target(binding, otherClip, 0));
}

TEST_F(AnimationBindingTargetsTest, AnUnknownClipLeavesABindingWithoutLists) {
  const uint32_t binding = scene.Bind(Groups{{clip, {entities}}, {0x9000, {entities}}});
  EXPECT_NE(0u, binding);
  EXPECT_FALSE(scene.BindingOf(binding)->HasList(clip));
  EXPECT_TRUE(scene.KeysOf(binding).empty());
}

TEST_F(AnimationBindingTargetsTest, Entities2DAreNeverBound) {
  const uint32_t flat = scene.Add2D();
  const uint32_t binding = scene.Bind(Groups{{clip, {flat, entities}}});
  EXPECT_EQ(0u, Target(binding, clip, 0));
  EXPECT_EQ(entities, Target(binding, clip, 1));
  EXPECT_EQ(std::vector<uint32_t>({entities}), scene.KeysOf(binding));
  EXPECT_EQ(0u, Root(binding));
}

TEST_F(AnimationBindingTargetsTest, AClipListedTwiceUsesItsFirstListAndBindsTheEntitiesOfBoth) {
  const uint32_t binding = scene.Bind(Groups{{clip, {entities}}, {clip, {entities + 1}}});
  EXPECT_EQ(entities, Target(binding, clip, 0));
  EXPECT_EQ((std::vector<uint32_t>{entities, entities + 1}), scene.KeysOf(binding));
}

TEST_F(AnimationBindingTargetsTest, ClipsWithTheSameTargetsShareTheirMemory) {
  const uint32_t third = scene.AddClip(10, {Constant(0, 1, 1)});
  AnimationClipBinding* binding = scene.BindingOf(scene.Bind(
      Groups{{clip, {entities, kHole}}, {otherClip, {entities}}, {third, {entities, kHole}}}));
  EXPECT_EQ(binding->SlotsOf(clip), binding->SlotsOf(third));
  EXPECT_NE(binding->SlotsOf(clip), binding->SlotsOf(otherClip));
  EXPECT_EQ(2u, binding->SlotsOf(clip)->size());
}

TEST_F(AnimationBindingTargetsTest, ATargetNeedsListIndexEntityAndClip) {
  const uint32_t other = scene.Add3D();
  const uint32_t binding =
      scene.Bind(Groups{{clip, {entities, kHole, other}}, {otherClip, {entities}}});
  EXPECT_EQ(entities, Target(binding, clip, 0));
  EXPECT_EQ(0u, Target(binding, clip, 1));
  EXPECT_EQ(other, Target(binding, clip, 2));
  EXPECT_EQ(0u, Target(binding, clip, 3));
  EXPECT_EQ(0u, Target(binding, clip, 0xFFFFFFFFu));
  EXPECT_EQ(0u, Target(binding, 0x9000, 0));
  scene.Release(other);
  EXPECT_EQ(0u, Target(binding, clip, 2));
  scene.ReleaseClip(clip);
  EXPECT_EQ(0u, Target(binding, clip, 0));
  EXPECT_EQ(entities, Target(binding, otherClip, 0));
}

TEST_F(AnimationBindingTargetsTest, AnEntityThatIsNow2DIsNoTarget) {
  const uint32_t other = scene.Add3D();
  const uint32_t binding = scene.Bind(Groups{{clip, {other}}});
  scene.Release(other);
  EXPECT_EQ(other, scene.Add2D());
  EXPECT_EQ(0u, Target(binding, clip, 0));
}

TEST_F(AnimationBindingTargetsTest, OnlyModeOneTakesSnapshots) {
  for (const uint32_t mode : {0u, 2u, 3u, 4u, 0xFFFFFFFFu}) {
    EXPECT_TRUE(scene.KeysOf(scene.Bind(Groups{{clip, {entities}}}, mode)).empty()) << mode;
  }
  EXPECT_EQ(1u, scene.KeysOf(scene.Bind(Groups{{clip, {entities}}}, 1)).size());
}

TEST_F(AnimationBindingTargetsTest, SnapshotsHoldTheRecordInItsRotationMode) {
  scene.MoveTo(entities, 1, 2, 3);
  scene.ScaleTo(entities, 4, 5, 6);
  scene.Turn(entities, 0.1f, 0.2f, 0.3f);
  scene.Turn(entities + 1, 0.1f, 0.2f, 0.3f, 0.4f);
  const uint32_t binding = scene.Bind(Groups{{clip, {entities, entities + 1}}});
  const RestPoses& defaults = scene.BindingOf(binding)->defaults;
  const TransformValue& ofAngles = defaults.Value(defaults.Find(entities));
  EXPECT_TRUE(SameFloats({3, 2, 1}, ofAngles.position));
  EXPECT_TRUE(SameFloats({6, 5, 4}, ofAngles.scale));
  EXPECT_FALSE(ofAngles.storedAsQuaternion);
  EXPECT_TRUE(SameFloats({0.3f, 0.2f, 0.1f}, ofAngles.euler()));
  const TransformValue& ofQuaternion = defaults.Value(defaults.Find(entities + 1));
  EXPECT_TRUE(ofQuaternion.storedAsQuaternion);
  EXPECT_TRUE(SameFloats({0.4f, 0.3f, 0.2f, 0.1f}, ofQuaternion.quaternion()));
}

TEST_F(AnimationBindingTargetsTest, RestPosesAreWrittenToLivingEntities) {
  const uint32_t other = scene.Add3D();
  scene.Turn(entities, 0.5f, 0.25f, 0.125f);
  scene.Turn(entities + 1, 0, 0, 1, 0);
  const uint32_t binding = scene.Bind(Groups{{clip, {entities, entities + 1, other}}});
  for (uint32_t i = 0; i < 3; ++i) {
    scene.MoveTo(entities + i, 50, 50, 50);
    scene.Turn(entities + i, 9, 9, 9, 9);
  }
  scene.Record3D(entities + 1).rotationMode = 0;
  scene.Release(other);
  scene.Capture();
  scene.BindingOf(binding)->WriteDefaults();
  scene.stage.WriteDefaults(binding);
  EXPECT_TRUE(scene.Same(true));
  EXPECT_EQ(std::vector<float>({1, 0, 0}), scene.Position(entities));
  EXPECT_EQ(0, scene.Record3D(entities).rotationMode);
  EXPECT_EQ(std::vector<float>({0.5f, 0.25f, 0.125f, 9}), scene.Rotation(entities));
  EXPECT_EQ(std::vector<float>({2, 0, 0}), scene.Position(entities + 1));
  EXPECT_EQ(1, scene.Record3D(entities + 1).rotationMode);
  EXPECT_EQ(std::vector<float>({0, 0, 1, 0}), scene.Rotation(entities + 1));
  EXPECT_EQ(std::vector<float>({50, 50, 50}), scene.Position(entities + 2));
}

}  // namespace
}  // namespace nq::engine
