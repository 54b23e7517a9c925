// Updating the lists of a binding, and the effect on its rest poses.
#include <gtest/gtest.h>

#include <vector>

#include "Engine/Animation/AnimationClipBinding.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

constexpr float kOld = 10;  // position x of rest poses
constexpr float kNow = 20;  // position x of entities when new lists are set

class AnimationBindingUpdateTest : public ControllerSceneTest {
 protected:
  AnimationBindingUpdateTest()
      : left(scene.Add3D(3)),
        stayed(left + 1),
        came(left + 2),
        gone(scene.Add3D()),
        clip(scene.AddClip(10, {Constant(0, 1, 1)})) {}

  // A binding of three entities, which have moved since; one is released.
  uint32_t Prepare() {
    for (const uint32_t handle : {left, stayed, came, gone}) {
      scene.MoveTo(handle, kOld, 0, 0);
    }
    const uint32_t binding = scene.Bind(Groups{{clip, {left, stayed, gone}}});
    for (const uint32_t handle : {left, stayed, came, gone}) {
      scene.MoveTo(handle, kNow, 0, 0);
    }
    scene.Settle({left, stayed, came, gone});
    return binding;
  }

  float X(uint32_t handle) { return scene.Position(handle)[0]; }

  // The x of a rest pose; 0 for none.
  float RestX(uint32_t binding, uint32_t handle) {
    const RestPoses& defaults = scene.BindingOf(binding)->defaults;
    const uint32_t slot = defaults.Find(handle);
    return slot == RestPoses::kNoSlot ? 0 : defaults.Value(slot).position[2];
  }

  const uint32_t left;
  const uint32_t stayed;
  const uint32_t came;
  const uint32_t gone;
  const uint32_t clip;
};

TEST_F(AnimationBindingUpdateTest, EachModeAffectsItsRestPoses) {
  for (const uint32_t handle : {left, stayed, came, gone}) {
    scene.AddRoot(handle);
  }
  struct Outcome {
    float rest;  // 0 for none
    float record;
  };
  const Outcome ofLeft[] = {{kOld, kNow}, {0, kNow}, {kOld, kOld}, {0, kOld}};
  // Mode 3: the new rest pose is a snapshot from before the old one was written back.
  const Outcome ofStayed[] = {{kOld, kNow}, {kNow, kNow}, {kOld, kOld}, {kNow, kOld}, {0, kNow}};
  const Outcome ofCome[] = {{0, kNow}, {kNow, kNow}, {0, kNow}, {0, kNow}};
  for (uint32_t removedMode = 0; removedMode < 4; ++removedMode) {
    for (uint32_t keptMode = 0; keptMode < 5; ++keptMode) {
      for (uint32_t addedMode = 0; addedMode < 4; ++addedMode) {
        SCOPED_TRACE(::testing::Message()
                     << "modes " << removedMode << ", " << keptMode << ", " << addedMode);
        const uint32_t binding = Prepare();
        ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {stayed, came, gone}}}, removedMode,
                                 keptMode, addedMode));
        EXPECT_EQ(ofLeft[removedMode].rest, RestX(binding, left));
        EXPECT_EQ(ofLeft[removedMode].record, X(left));
        EXPECT_EQ(ofStayed[keptMode].rest, RestX(binding, stayed));
        EXPECT_EQ(ofStayed[keptMode].record, X(stayed));
        EXPECT_EQ(ofCome[addedMode].rest, RestX(binding, came));
        EXPECT_EQ(ofCome[addedMode].record, X(came));
        // Entities that were written are rebuilt and marked, no others.
        EXPECT_EQ(removedMode >= 2 ? 2u : 0u, scene.At(left).dirtyState());
        EXPECT_EQ(removedMode >= 2 ? kOld : kNow, scene.At(left).localMatrix()[12]);
        EXPECT_EQ(keptMode == 2 || keptMode == 3 ? 2u : 0u, scene.At(stayed).dirtyState());
        EXPECT_EQ(0u, scene.At(came).dirtyState());
      }
    }
  }
}

TEST_F(AnimationBindingUpdateTest, SequencesOfAllModesMatchTheModelsRestPoses) {
  scene.AddRoot(left);
  scene.AddRoot(gone);
  scene.Link(left, stayed);
  scene.RunCommands();
  const uint32_t binding = Prepare();
  const std::vector<uint32_t> lists[] = {{left, stayed}, {stayed, came}, {came, gone, kHole}};
  AnimationRandom random(7);
  for (int round = 0; round < 6; ++round) {
    for (uint32_t combination = 0; combination < 80; ++combination) {
      scene.MoveTo(left + random.Below(3), random.Real(-5, 5), random.Real(-5, 5),
                   random.Real(-5, 5));
      if (random.Chance(50)) {
        scene.Turn(left + random.Below(3), random.Real(-3, 3), random.Real(-3, 3),
                   random.Real(-3, 3));
      } else {
        scene.Turn(left + random.Below(3), random.Real(-1, 1), 0.5f, random.Real(-1, 1), 0.25f);
      }
      const std::vector<uint32_t>& list = lists[random.Below(3)];
      ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, list}}, combination % 4, combination / 4 % 5,
                               combination / 20));
      ASSERT_FALSE(HasFailure()) << "round " << round << ", combination " << combination;
    }
  }
}

TEST_F(AnimationBindingUpdateTest, HighBitsOfModesAreNotIgnored) {
  const uint32_t binding = Prepare();
  ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {stayed, came}}}, 0x80000002u, 0xFFFFFFFFu, 5));
  EXPECT_EQ(kOld, X(left));
  EXPECT_EQ(kOld, X(stayed));
  EXPECT_TRUE(scene.KeysOf(binding).empty());
}

TEST_F(AnimationBindingUpdateTest, RefusedListsChangeNothing) {
  const uint32_t binding = Prepare();
  const std::vector<uint32_t> before = scene.KeysOf(binding);
  EXPECT_FALSE(scene.Rebind(binding, Groups{{clip, {came}}, {0x9000, {}}}, 3, 3, 1));
  EXPECT_EQ(before, scene.KeysOf(binding));
  EXPECT_EQ(kOld, RestX(binding, stayed));
  EXPECT_EQ(kNow, X(left));
  EXPECT_EQ(kNow, X(stayed));
  EXPECT_EQ(left, scene.BindingOf(binding)->FindTarget(clip, 0)->handle);
}

TEST_F(AnimationBindingUpdateTest, AReleasedEntityLosesItsRestPose) {
  const uint32_t binding = Prepare();
  scene.Release(gone);
  ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {stayed}}}, 0, 0, 0));
  EXPECT_EQ((std::vector<uint32_t>{left, stayed}), scene.KeysOf(binding));
}

TEST_F(AnimationBindingUpdateTest, AnEntityThatIsNow2DLosesItsRestPose) {
  const uint32_t binding = Prepare();
  scene.Release(gone);
  ASSERT_EQ(gone, scene.Add2D());
  ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {stayed}}}, 2, 0, 0));
  EXPECT_EQ((std::vector<uint32_t>{left, stayed}), scene.KeysOf(binding));
}

TEST_F(AnimationBindingUpdateTest, MoreWordsThanAtCreationDoNotRaiseTheBound) {
  const uint32_t binding = scene.Bind(Groups{{clip, {left, stayed}}});                // 3 words
  EXPECT_TRUE(scene.Rebind(binding, Groups{{clip, {left, stayed, came}}}, 0, 0, 1));  // 4
  EXPECT_EQ(came, scene.BindingOf(binding)->FindTarget(clip, 2)->handle);
  EXPECT_FALSE(scene.Rebind(binding, Groups{{clip, {left, stayed, came, gone}}}, 0, 0, 1));  // 5
  EXPECT_EQ(came, scene.BindingOf(binding)->FindTarget(clip, 2)->handle);
  EXPECT_EQ(3u, scene.BindingOf(binding)->targetWords);
}

TEST_F(AnimationBindingUpdateTest, FewerWordsThanAtCreationDoNotLowerTheBound) {
  const uint32_t binding = scene.Bind(Groups{{clip, {left, stayed, came}}});
  EXPECT_TRUE(scene.Rebind(binding, Groups{{clip, {left}}}, 0, 0, 1));
  EXPECT_TRUE(scene.Rebind(binding, Groups{{clip, {left, stayed, came}}}, 0, 0, 1));
  EXPECT_EQ(4u, scene.BindingOf(binding)->targetWords);
  EXPECT_EQ(1u, scene.BindingOf(binding)->clipCount);
}

TEST_F(AnimationBindingUpdateTest, GroupsStartAfterTheNumberOfClipsPassedNow) {
  const uint32_t other = scene.AddClip(10, {Constant(0, 1, 1)});
  const uint32_t binding = scene.Bind(Groups{{clip, {left, stayed, came}}});
  EXPECT_TRUE(scene.Rebind(binding, Groups{{clip, {left}}, {other, {stayed}}}, 0, 0, 1));
  EXPECT_EQ(stayed, scene.BindingOf(binding)->FindTarget(other, 0)->handle);
}

TEST_F(AnimationBindingUpdateTest, NoClipsAtAllAreAccepted) {
  const uint32_t binding = Prepare();
  EXPECT_TRUE(scene.Rebind(binding, Groups{}, 1, 0, 1));
  EXPECT_FALSE(scene.BindingOf(binding)->HasList(clip));
  EXPECT_EQ(nullptr, scene.BindingOf(binding)->rootEntity());
  EXPECT_TRUE(scene.KeysOf(binding).empty());
}

TEST_F(AnimationBindingUpdateTest, TheNextRefreshComputesWorldMatricesOfWrittenPoses) {
  scene.AddRoot(left);
  scene.Link(left, stayed);
  const uint32_t binding = Prepare();
  ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {stayed}}}, 3, 2, 0));
  EXPECT_EQ(2u, scene.At(left).dirtyState());
  scene.Refresh();
  EXPECT_EQ(std::vector<float>({2 * kOld, 0, 0}), scene.WorldPosition(stayed));
}

// Blending inserts numbers into the rest poses; one that is an entity's handle counts as its rest
// pose.
TEST_F(AnimationBindingUpdateTest, NumbersInsertedByBlendingCountAsEntities) {
  const uint32_t binding = Prepare();
  for (const uint32_t number : {5u, came}) {
    scene.BindingOf(binding)->defaults.Ensure(number);
    scene.stage.bindings.at(binding).defaults[number];
  }
  ASSERT_TRUE(scene.Rebind(binding, Groups{{clip, {left}}}, 2, 0, 0));
  EXPECT_EQ((std::vector<uint32_t>{left, stayed, came, gone}), scene.KeysOf(binding));
  EXPECT_EQ(0.0f, X(came));
  EXPECT_EQ(1, scene.Record3D(came).rotationMode);
  EXPECT_EQ(std::vector<float>({0, 0, 0, 1}), scene.Rotation(came));
}

}  // namespace
}  // namespace nq::engine
