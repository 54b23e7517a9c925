// Evaluation of one state, and masks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/StateEvaluation.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

typedef std::map<uint32_t, TargetPose> Poses;
typedef ReferenceStage::Entry Entry;

class AnimationControllerStateTest : public ControllerSceneTest {
 protected:
  AnimationControllerStateTest() : entities(scene.Add3D(3)) {}

  // Position, scale, and rotation as angles, of target 0; NaN channels have no keys.
  uint32_t AddPose(const std::vector<float>& numbers) {
    return scene.AddClip(10, Constants(0, 1, numbers));
  }

  // The same, with a rotation x, y, z, w after six numbers.
  uint32_t AddTurned(const std::vector<float>& numbers, const std::vector<float>& q) {
    return scene.AddClip(10, Constants(0, 1, numbers) + Constants(0, 11, {q[0], q[1], q[2]}) +
                                 Constants(0, 10, {q[3]}));
  }

  Entry Plain(uint32_t clip, float weight) { return Entry{clip, 0, weight, 0, 0}; }

  // The poses of a state, in the engine and in the model.
  Poses Evaluate(uint32_t binding, const std::vector<Entry>& entries, bool additive = false,
                 float fill = 0) {
    const uint32_t state = scene.AddState(1, fill, entries);
    const uint32_t controller = scene.AddController(binding, {{0, 1, state}});
    scene.SetMask(controller, 0, mask);
    AnimatorControllerModel* engine = scene.ControllerOf(controller);
    scene.Capture();
    PoseSet result;
    StateScratch scratch;
    EvaluateState(*engine, *scene.Animation()->FindAnimatorControllerStateModel(state), additive,
                  engine->masks.Find(0), &scratch, &result);
    Poses poses;
    for (const uint32_t slot : result.Slots()) {
      poses[scene.BindingOf(binding)->defaults.Number(slot)] = result.At(slot);
    }
    const ReferenceStage::Poses expected =
        scene.stage.EvaluateState(scene.stage.bindings.at(binding), scene.stage.states.at(state),
                                  additive, scene.stage.controllers.at(controller).masks[0]);
    EXPECT_EQ(expected.size(), poses.size());
    for (const auto& [handle, pose] : expected) {
      EXPECT_TRUE(SameFloats(pose.value, poses[handle].value, 6)) << handle;
      EXPECT_TRUE(SameFloats(pose.weight, poses[handle].weight, 6)) << handle;
      EXPECT_TRUE(SameFloats(pose.rotation, poses[handle].rotation, 4)) << handle;
      EXPECT_TRUE(SameFloat(pose.rotationWeight, poses[handle].rotationWeight)) << handle;
    }
    EXPECT_TRUE(scene.Same(true));
    return poses;
  }

  uint32_t Bind(const Groups& groups, uint32_t mode = 1) { return scene.Bind(groups, mode); }

  const uint32_t entities;
  std::vector<std::pair<uint32_t, float>> mask;
};

TEST_F(AnimationControllerStateTest, ACountOfZeroCreatesNothing) {
  for (const NativeValueInfo& info : {scene.Core()->CreateAnimatorControllerModel(0),
                                      scene.Core()->CreateAnimatorControllerStateModel(0)}) {
    EXPECT_EQ(0u, info.handle);
    EXPECT_EQ(nullptr, info.pointer);
  }
}

TEST_F(AnimationControllerStateTest, BlocksHaveTheirSizeAndStartAsZeros) {
  const NativeValueInfo controller = scene.Core()->CreateAnimatorControllerModel(3);
  const NativeValueInfo state = scene.Core()->CreateAnimatorControllerStateModel(2);
  EXPECT_EQ(3u * 12 + 4, controller.size);
  EXPECT_EQ(2u * 20 + 12, state.size);
  const uint8_t zeros[52] = {};
  EXPECT_EQ(0, std::memcmp(zeros, controller.pointer, 40));
  EXPECT_EQ(0, std::memcmp(zeros, state.pointer, 52));
  scene.Core()->ReleaseAnimatorControllerModel(controller.handle);
  scene.Core()->ReleaseAnimatorControllerStateModel(state.handle);
  EXPECT_EQ(nullptr, scene.Animation()->FindAnimatorControllerModel(controller.handle));
  EXPECT_EQ(nullptr, scene.Animation()->FindAnimatorControllerStateModel(state.handle));
}

TEST_F(AnimationControllerStateTest, ClipsOfWeightZeroAreSkipped) {
  const uint32_t clip = AddPose({1, 2, 3});
  const uint32_t binding = Bind({{clip, {entities, entities + 1}}});
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 0), Plain(clip, -0.0f)}).empty());
}

TEST_F(AnimationControllerStateTest, FillAddsPosesOfWeightZeroForAllRestPoses) {
  const uint32_t clip = AddPose({1, 2, 3});
  const uint32_t binding = Bind({{clip, {entities, entities + 1}}});
  for (const float fill : {1.0f, -2.0f, kNone}) {
    const Poses poses = Evaluate(binding, {Plain(clip, 0)}, false, fill);
    ASSERT_EQ(2u, poses.size()) << fill;
    for (const uint32_t handle : {entities, entities + 1}) {
      EXPECT_TRUE(SameFloats({0, 0, 0, 0, 0, 0}, poses.at(handle).value));
      EXPECT_TRUE(SameFloats({0, 0, 0, 0, 0, 0}, poses.at(handle).weight));
      EXPECT_EQ(0.0f, poses.at(handle).rotationWeight);
    }
  }
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 0)}, false, -0.0f).empty());
}

TEST_F(AnimationControllerStateTest, FillSkipsEntitiesOfMaskWeightZero) {
  const uint32_t clip = AddPose({1, 2, 3});
  const uint32_t binding = Bind({{clip, {entities, entities + 1, entities + 2}}});
  mask = {{entities, 0.0f}, {entities + 1, kNone}, {entities + 2, -0.0f}};
  const Poses poses = Evaluate(binding, {Plain(clip, 0)}, false, 1);
  EXPECT_EQ(1u, poses.size());
  EXPECT_EQ(1u, poses.count(entities + 1));
}

TEST_F(AnimationControllerStateTest, AdditiveStatesAreNotFilled) {
  const uint32_t clip = AddPose({1, 2, 3});
  const uint32_t binding = Bind({{clip, {entities}}});
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 0)}, true, 1).empty());
}

TEST_F(AnimationControllerStateTest, WeightsAndValuesAddUpOverClips) {
  const uint32_t a = AddPose({1, kNone, 4});
  const uint32_t b = AddPose({3, 8, kNone});
  const uint32_t binding = Bind({{a, {entities}}, {b, {entities}}});
  const Poses poses = Evaluate(binding, {Plain(a, 0.25f), Plain(b, 0.5f)});
  ASSERT_EQ(1u, poses.size());
  EXPECT_TRUE(SameFloats({1.75f, 4, 1, 0, 0, 0}, poses.at(entities).value));
  EXPECT_TRUE(SameFloats({0.75f, 0.5f, 0.25f, kNone, kNone, kNone}, poses.at(entities).weight));
  EXPECT_TRUE(std::isnan(poses.at(entities).rotationWeight));
}

TEST_F(AnimationControllerStateTest, AnyNonzeroWeightCounts) {
  const uint32_t clip = AddPose({2});
  const uint32_t binding = Bind({{clip, {entities}}});
  EXPECT_EQ(-1.0f, Evaluate(binding, {Plain(clip, -0.5f)}).at(entities).value[0]);
  EXPECT_EQ(6.0f, Evaluate(binding, {Plain(clip, 3)}).at(entities).value[0]);
  EXPECT_TRUE(std::isnan(Evaluate(binding, {Plain(clip, kNone)}).at(entities).value[0]));
}

TEST_F(AnimationControllerStateTest, RotationsAreSummedInOneHemisphere) {
  const uint32_t a = AddTurned({}, {0, 0, 0.6f, 0.8f});
  const uint32_t b = AddTurned({}, {0, 0, -0.6f, -0.8f});
  const uint32_t binding = Bind({{a, {entities}}, {b, {entities}}});
  const Poses poses = Evaluate(binding, {Plain(a, 0.5f), Plain(b, 0.5f)});
  EXPECT_TRUE(SameFloats({0, 0, 0.6f, 0.8f}, poses.at(entities).rotation));
  EXPECT_EQ(1.0f, poses.at(entities).rotationWeight);
}

TEST_F(AnimationControllerStateTest, AMaskIsAFactorOfTheWeight) {
  const uint32_t clip = AddPose({8});
  const uint32_t binding = Bind({{clip, {entities}}});
  mask = {{entities, 0.5f}};
  Poses poses = Evaluate(binding, {Plain(clip, 0.5f)});
  EXPECT_EQ(2.0f, poses.at(entities).value[0]);
  EXPECT_EQ(0.25f, poses.at(entities).weight[0]);
  mask = {{entities, -2.0f}};
  poses = Evaluate(binding, {Plain(clip, 0.5f)});
  EXPECT_EQ(-8.0f, poses.at(entities).value[0]);
  EXPECT_EQ(-1.0f, poses.at(entities).weight[0]);
  mask = {{entities, kNone}};
  poses = Evaluate(binding, {Plain(clip, 0.5f)});
  EXPECT_TRUE(std::isnan(poses.at(entities).value[0]));
  mask = {{entities, 0.0f}};
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 0.5f)}).empty());
}

TEST_F(AnimationControllerStateTest, EntitiesNotInTheMaskHaveWeightOne) {
  const uint32_t clip = AddPose({8});
  const uint32_t binding = Bind({{clip, {entities}}});
  mask = {{entities + 1, 0.0f}, {0, 0.0f}};
  EXPECT_EQ(8.0f, Evaluate(binding, {Plain(clip, 1)}).at(entities).value[0]);
}

TEST_F(AnimationControllerStateTest, TheFirstRecordOfAMaskWins) {
  const uint32_t clip = AddPose({8});
  const uint32_t binding = Bind({{clip, {entities}}});
  mask = {{entities + 1, 0.0f}, {entities, 0.5f}, {entities, 0.0f}, {entities, 0.25f}};
  EXPECT_EQ(4.0f, Evaluate(binding, {Plain(clip, 1)}).at(entities).value[0]);
}

TEST_F(AnimationControllerStateTest, SettingAMaskReplacesItAndNoRecordsRemoveIt) {
  const uint32_t clip = AddPose({8, 8, 8});
  const uint32_t binding = Bind({{clip, {entities}}});
  const uint32_t state = scene.AddState(1, 0, {Plain(clip, 1)});
  const uint32_t controller = scene.AddController(binding, {{0, 1, state}, {2, 1, state}});
  scene.SetMask(controller, 0, {{entities, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(0.0f, scene.Position(entities)[0]);
  scene.SetMask(controller, 0, {{entities + 1, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(8.0f, scene.Position(entities)[0]);
  scene.MoveTo(entities, 0, 0, 0);
  scene.SetMask(controller, 0, {{entities, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(0.0f, scene.Position(entities)[0]);
  scene.SetMask(controller, 0, {});
  scene.Update(controller);
  EXPECT_EQ(8.0f, scene.Position(entities)[0]);
}

TEST_F(AnimationControllerStateTest, AMaskOfAnUnknownLayerIsRefused) {
  const uint32_t clip = AddPose({8});
  const uint32_t binding = Bind({{clip, {entities}}});
  const uint32_t state = scene.AddState(1, 0, {Plain(clip, 1)});
  const uint32_t controller = scene.AddController(binding, {{0, 1, state}});
  scene.SetMask(controller, 0, {{entities, 0.0f}});
  const ControllerMaskRecord record = {entities, 1.0f};
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(&record);
  EXPECT_FALSE(scene.ControllerOf(controller)->SetMask(1, bytes, 0, 1));
  EXPECT_FALSE(scene.ControllerOf(controller)->SetMask(0xFFFFFFFFu, bytes, 0, 1));
  scene.Update(controller);
  EXPECT_EQ(0.0f, scene.Position(entities)[0]);
}

TEST_F(AnimationControllerStateTest, WithoutARestPoseNothingIsAnimated) {
  const uint32_t clip = AddPose({1, 2, 3});
  const uint32_t binding = Bind({{clip, {entities}}}, 0);
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 1)}).empty());
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 1)}, false, 1).empty());
  EXPECT_TRUE(Evaluate(binding, {Plain(clip, 1)}, true).empty());
}

TEST_F(AnimationControllerStateTest, AnEntityWithoutAnimatedChannelsStillHasAPose) {
  const uint32_t clip = scene.AddClip(10, {ReferenceCurve{0, 1, {}}});
  const uint32_t binding = Bind({{clip, {entities}}});
  const Poses poses = Evaluate(binding, {Plain(clip, 1)});
  ASSERT_EQ(1u, poses.size());
  for (int c = 0; c < 6; ++c) {
    EXPECT_TRUE(std::isnan(poses.at(entities).weight[c]));
  }
}

TEST_F(AnimationControllerStateTest, ClipsWithoutAListAndReleasedClipsAreSkipped) {
  const uint32_t clip = AddPose({1});
  const uint32_t unlisted = AddPose({2});
  const uint32_t gone = AddPose({4});
  const uint32_t binding = Bind({{clip, {entities}}, {gone, {entities}}});
  scene.ReleaseClip(gone);
  const Poses poses =
      Evaluate(binding, {Plain(unlisted, 1), Plain(gone, 1), Plain(0, 1), Plain(clip, 1)});
  EXPECT_EQ(1.0f, poses.at(entities).value[0]);
  EXPECT_EQ(1.0f, poses.at(entities).weight[0]);
}

TEST_F(AnimationControllerStateTest, TimesWrapAndFractionsAreSampled) {
  ReferenceCurve curve = Constant(0, 1, 0);
  curve.keys = {{0, 0, 30, 30}, {10, 10, 30, 30}};  // one unit per frame
  const uint32_t clip = scene.AddClip(8, {curve});
  const uint32_t binding = Bind({{clip, {entities}}});
  const auto at = [&](float time) {
    return Evaluate(binding, {Entry{clip, time, 1, 0, 0}}).at(entities).value[0];
  };
  EXPECT_NEAR(2.5f, at(2.5f), 1e-6f);
  EXPECT_NEAR(2.5f, at(10.5f), 1e-6f);
  // Whole times are not treated as frame numbers here: a negative one samples the first key.
  EXPECT_EQ(0.0f, at(-1.0f));
}

TEST_F(AnimationControllerStateTest, AnEqualReferenceLeavesOnlyTheWeight) {
  const uint32_t clip = AddTurned({1, 2, 3, 4, 5, 6}, {0, 0.6f, 0, 0.8f});
  const uint32_t binding = Bind({{clip, {entities}}});
  const Poses poses = Evaluate(binding, {Entry{clip, 3, 1, clip, 3}}, true);
  const TargetPose& pose = poses.at(entities);
  EXPECT_TRUE(SameFloats({0, 0, 0, 0, 0, 0}, pose.value));
  EXPECT_TRUE(SameFloats({1, 1, 1, 1, 1, 1}, pose.weight));
  EXPECT_EQ(1.0f, pose.rotationWeight);
  EXPECT_NEAR(0.0f, pose.rotation[1], 1e-7f);
  EXPECT_NEAR(1.0f, pose.rotation[3], 1e-6f);
}

TEST_F(AnimationControllerStateTest, AReferenceIsSubtractedWhereNeitherSideIsNaN) {
  const uint32_t clip = AddPose({1, 2, kNone, 4});
  const uint32_t reference = AddPose({0.25f, kNone, 3, 1});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities}}});
  const Poses poses = Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true);
  EXPECT_TRUE(SameFloats({0.75f, 2, 0, 3, 0, 0}, poses.at(entities).value));
  EXPECT_TRUE(std::isnan(poses.at(entities).weight[2]));
}

// A quarter turn about z, from which one of 90 degrees about x is subtracted on the right: the
// result is q conj(r).
TEST_F(AnimationControllerStateTest, TheConjugateReferenceRotationMultipliesFromTheRight) {
  const float half = std::sqrt(0.5f);
  const uint32_t clip = AddTurned({}, {0, 0, half, half});
  const uint32_t reference = AddTurned({}, {half, 0, 0, half});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities}}});
  const Poses poses = Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true);
  const float expected[] = {-0.5f, -0.5f, 0.5f, 0.5f};
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(expected[i], poses.at(entities).rotation[i], 1e-6f) << i;
  }
}

TEST_F(AnimationControllerStateTest, ATargetThatTheReferenceLacksIsSkipped) {
  const uint32_t clip = AddTurned({1, 2, 3, 4, 5, 6}, {0, 0, 0, 1});
  const uint32_t reference = AddPose({1});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities + 1}}});
  EXPECT_TRUE(Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true).empty());
}

TEST_F(AnimationControllerStateTest, ARotationWithoutAReferenceRotationIsAddedUnchanged) {
  const uint32_t clip = AddTurned({1}, {0, 0.6f, 0, 0.8f});
  const uint32_t reference = AddPose({1});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities}}});
  const Poses poses = Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true);
  EXPECT_TRUE(SameFloats({0, 0.6f, 0, 0.8f}, poses.at(entities).rotation));
  EXPECT_EQ(0.0f, poses.at(entities).value[0]);
  // In the other direction there is none.
  EXPECT_TRUE(std::isnan(
      Evaluate(binding, {Entry{reference, 0, 1, clip, 0}}, true).at(entities).rotationWeight));
}

TEST_F(AnimationControllerStateTest, WithoutAReferenceListTheClipsOwnStartIsSubtracted) {
  ReferenceCurve curve = Constant(0, 1, 3);
  curve.keys = {Flat(0, 3), Flat(5, 10)};
  const uint32_t clip = scene.AddClip(10, {curve});
  const uint32_t unlisted = AddPose({100});
  const uint32_t binding = Bind({{clip, {entities}}});
  for (const uint32_t reference : {unlisted, 0u, kHole}) {
    const Poses poses = Evaluate(binding, {Entry{clip, 5, 1, reference, 5}}, true);
    EXPECT_EQ(7.0f, poses.at(entities).value[0]) << reference;
  }
}

TEST_F(AnimationControllerStateTest, AListedReferenceThatIsReleasedYieldsNoPoses) {
  const uint32_t clip = AddPose({5});
  const uint32_t reference = AddPose({1});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities}}});
  scene.ReleaseClip(reference);
  EXPECT_TRUE(Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true).empty());
}

TEST_F(AnimationControllerStateTest, TheFirstReferenceOfAnEntityWins) {
  const uint32_t clip = AddPose({5});
  const uint32_t reference = scene.AddClip(10, {Constant(1, 1, 2), Constant(0, 1, 1)});
  const uint32_t binding = Bind({{clip, {entities}}, {reference, {entities, entities}}});
  EXPECT_EQ(4.0f, Evaluate(binding, {Entry{clip, 0, 1, reference, 0}}, true).at(entities).value[0]);
}

TEST_F(AnimationControllerStateTest, ReleasedAnd2DEntitiesAreSkipped) {
  const uint32_t other = scene.Add3D();
  const uint32_t clip = scene.AddClip(10, {Constant(0, 1, 1), Constant(1, 1, 2)});
  const uint32_t binding = Bind({{clip, {other, entities}}});
  scene.Release(other);
  EXPECT_EQ(1u, Evaluate(binding, {Plain(clip, 1)}).size());
  ASSERT_EQ(other, scene.Add2D());
  EXPECT_EQ(1u, Evaluate(binding, {Plain(clip, 1)}).size());
  EXPECT_EQ(1u, Evaluate(binding, {Entry{clip, 0, 1, clip, 0}}, true).size());
}

ClipSample Angles(float x, float y, float z) {
  ClipSample sample;
  sample.isQuaternion = false;
  std::fill(sample.channel, sample.channel + 10, kNone);
  const float angles[] = {x, y, z};
  std::copy(angles, angles + 3, sample.channel + 6);
  return sample;
}

TransformValue OfAngles(float x, float y, float z) {
  TransformValue rest;
  rest.storedAsQuaternion = false;
  rest.rotation = EulerRotation{false, {z, y, x}, {0, 0, 0, 0}};
  return rest;
}

// The half turns of angles in units of a quarter turn keep these numbers simple: a sine and a
// cosine of 45 degrees each.
TEST(AnimationControllerRotationTest, AnglesAreCompletedByThoseOfTheRestPose) {
  const float quarter = 1.57079632679f;
  const float half = std::sqrt(0.5f);
  TransformValue rest = OfAngles(quarter, 0, 0);
  float q[4];
  EXPECT_FALSE(RotationOf(Angles(kNone, quarter, kNone), false, &rest, q));
  ASSERT_TRUE(RotationOf(Angles(kNone, quarter, kNone), true, &rest, q));
  // q(y) q(x), both of 90 degrees.
  const float both[] = {0.5f, 0.5f, -0.5f, 0.5f};
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(both[i], q[i], 1e-6f) << i;
  }
  ASSERT_TRUE(RotationOf(Angles(kNone, kNone, kNone), true, &rest, q));
  const float resting[] = {half, 0, 0, half};
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(resting[i], q[i], 1e-6f) << i;
  }
  EXPECT_FALSE(RotationOf(Angles(kNone, kNone, kNone), false, &rest, q));
}

// Kept on purpose: the angles of a rest pose that was stored as a quaternion read as zero; blended
// poses rely on it.
TEST(AnimationControllerRotationTest, AQuaternionRestPoseCompletesWithZeroAngles) {
  const float quarter = 1.57079632679f;
  const float half = std::sqrt(0.5f);
  TransformValue rest;
  rest.eulerValid = false;
  rest.rotation = EulerRotation{true, {7, 7, 7}, {0.5f, 0.5f, 0.5f, 0.5f}};
  float q[4];
  ASSERT_TRUE(RotationOf(Angles(kNone, quarter, kNone), true, &rest, q));
  const float turned[] = {0, half, 0, half};
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(turned[i], q[i], 1e-6f) << i;
  }
  ASSERT_TRUE(RotationOf(Angles(kNone, kNone, kNone), true, &rest, q));
  EXPECT_TRUE(SameFloats({0.5f, 0.5f, 0.5f, 0.5f}, q));
}

TEST(AnimationControllerRotationTest, AnIncompleteQuaternionIsIgnored) {
  TransformValue rest;
  ClipSample sample = Angles(0.1f, 0.2f, 0.3f);
  sample.isQuaternion = true;
  sample.channel[9] = 0.4f;
  float q[4];
  ASSERT_TRUE(RotationOf(sample, false, &rest, q));
  EXPECT_TRUE(SameFloats({0.1f, 0.2f, 0.3f, 0.4f}, q));
  for (int c = 6; c < 10; ++c) {
    ClipSample lacking = sample;
    lacking.channel[c] = kNone;
    EXPECT_FALSE(RotationOf(lacking, true, &rest, q)) << c;
  }
}

TEST(AnimationControllerRotationTest, AllPatternsOfPresentAnglesMatchTheModel) {
  AnimationRandom random(11);
  for (int round = 0; round < 2000; ++round) {
    ReferenceSample sample;
    sample.isQuaternion = random.Chance(30);
    ReferenceStage::Rest rest;
    rest.isQuaternion = random.Chance(50);
    TransformValue value;
    value.storedAsQuaternion = rest.isQuaternion;
    value.eulerValid = !rest.isQuaternion;
    value.rotation = EulerRotation{rest.isQuaternion, {0, 0, 0}, {0, 0, 0, 0}};
    for (int i = 0; i < 4; ++i) {
      rest.quaternion[i] = rest.isQuaternion ? random.Real(-1, 1) : 0;
      value.rotation.quaternion[3 - i] = rest.quaternion[i];
    }
    for (int i = 0; i < 3; ++i) {
      rest.angles[i] = rest.isQuaternion ? 0 : random.Odd(-4, 4);
      value.rotation.euler[2 - i] = rest.angles[i];
    }
    ClipSample ours;
    ours.isQuaternion = sample.isQuaternion;
    for (int c = 0; c < 10; ++c) {
      sample.channel[c] = random.Chance(30) ? kNone : random.Odd(-4, 4);
      ours.channel[c] = sample.channel[c];
    }
    const bool fill = random.Chance(50);
    const std::vector<float> expected = ReferenceStage::RotationOf(sample, fill, rest);
    float q[4];
    ASSERT_EQ(!expected.empty(), RotationOf(ours, fill, &value, q)) << round;
    ASSERT_TRUE(expected.empty() || SameFloats(expected, q)) << round;
  }
}

}  // namespace
}  // namespace nq::engine
