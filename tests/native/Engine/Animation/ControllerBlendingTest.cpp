// Blending of states into layers and of layers into a pose, and writing that back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <new>
#include <vector>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

typedef ReferenceStage::Entry Entry;
typedef ReferenceStage::Layer Layer;

constexpr uint32_t kOverride = 0;
constexpr uint32_t kAdditive = 1;

// About z, as x, y, z, w.
std::vector<float> AboutZ(float degrees) {
  const double half = static_cast<double>(degrees) * 3.14159265358979323846 / 360.0;
  return {0, 0, static_cast<float>(std::sin(half)), static_cast<float>(std::cos(half))};
}

// The angle of a rotation whose x, y, z are scaled by a share, but not w: z over w is the tangent
// of half the angle.
float Scaled(float degrees, float share) {
  const double half = std::tan(static_cast<double>(degrees) * 3.14159265358979323846 / 360.0);
  return static_cast<float>(std::atan(half * static_cast<double>(share)) * 360.0 /
                            3.14159265358979323846);
}

void ExpectNear(const std::vector<float>& expected, const std::vector<float>& actual) {
  ASSERT_EQ(expected.size(), actual.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) {
      EXPECT_TRUE(std::isnan(actual[i])) << i << " is " << actual[i];
    } else {
      EXPECT_NEAR(expected[i], actual[i], 2e-6f) << i;
    }
  }
}

// One entity with a rest pose of position 10, 20, 30, scale 2, 4, 8 and a rotation of 90 degrees.
class AnimationControllerBlendingTest : public ControllerSceneTest {
 protected:
  AnimationControllerBlendingTest() : entity(scene.Add3D()) {
    ToRest();
    scene.AddRoot(entity);
    scene.Settle({entity});
    empty = scene.AddClip(10, {ReferenceCurve{0, 1, {}}});
  }

  void ToRest() {
    scene.MoveTo(entity, 10, 20, 30);
    scene.ScaleTo(entity, 2, 4, 8);
    const std::vector<float> q = AboutZ(90);
    scene.Turn(entity, q[0], q[1], q[2], q[3]);
  }

  // Position and scale, and a rotation about z unless `degrees` is NaN.
  uint32_t AddPose(const std::vector<float>& numbers, float degrees = kNone) {
    std::vector<ReferenceCurve> curves = Constants(0, 1, numbers);
    if (!std::isnan(degrees)) {
      const std::vector<float> q = AboutZ(degrees);
      curves = curves + Constants(0, 11, {q[0], q[1], q[2]}) + Constants(0, 10, {q[3]});
    }
    if (curves.empty()) {
      curves.push_back(ReferenceCurve{0, 1, {}});
    }
    return scene.AddClip(10, curves);
  }

  // A state of one clip. In additive layers nothing is subtracted: the reference has no keys.
  uint32_t AddState(uint32_t clip, float weight = 1, float clipWeight = 1, uint32_t next = kHole) {
    return scene.AddState(weight, 0, {Entry{clip, 0, clipWeight, empty, 0}}, next);
  }

  // A binding of these clips, all to the entity.
  uint32_t Bind(const std::vector<uint32_t>& clips) {
    Groups groups = {{empty, {entity}}};
    for (const uint32_t clip : clips) {
      groups.push_back({clip, {entity}});
    }
    return scene.Bind(groups);
  }

  // Updates a controller of these layers.
  uint32_t Play(uint32_t binding, const std::vector<Layer>& layers) {
    ToRest();
    const uint32_t controller = scene.AddController(binding, layers);
    scene.Update(controller);
    return controller;
  }

  const uint32_t entity;
  uint32_t empty;
};

TEST_F(AnimationControllerBlendingTest, AnOverrideLayerOfWeightOneGivesTheSample) {
  const uint32_t clip = AddPose({1, 2, kNone, 3, kNone, 5});
  Play(Bind({clip}), {{kOverride, 1, AddState(clip)}});
  EXPECT_EQ(std::vector<float>({1, 2, 30}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({3, 4, 5}), scene.Scale(entity));
  EXPECT_TRUE(SameFloats(AboutZ(90), scene.Rotation(entity).data()));
}

// Each row of the table of merges. The clip has position 2, scale 3 and a rotation of 30 degrees
// about z, the rest pose position 10, 20, 30, scale 2, 4, 8 and 90 degrees.
TEST_F(AnimationControllerBlendingTest, AnOverrideLayerBelowOneBlendsWithTheRestPose) {
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  Play(Bind({clip}), {{kOverride, 0.5f, AddState(clip)}});
  EXPECT_EQ(std::vector<float>({6, 11, 16}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({2.5f, 3.5f, 5.5f}), scene.Scale(entity));
  ExpectNear(AboutZ(60), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnOverrideLayerOfZeroGivesTheRestPose) {
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  Play(Bind({clip}), {{kOverride, 0, AddState(clip)}});
  EXPECT_EQ(std::vector<float>({10, 20, 30}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({2, 4, 8}), scene.Scale(entity));
  ExpectNear(AboutZ(90), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnOverrideLayerOfWeightOneOrMoreIgnoresTheRestPose) {
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip)}});
  EXPECT_EQ(std::vector<float>({2, 2, 2}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({3, 3, 3}), scene.Scale(entity));
  ExpectNear(AboutZ(30), scene.Rotation(entity));
  Play(binding, {{kOverride, 2, AddState(clip)}});
  EXPECT_EQ(std::vector<float>({4, 4, 4}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({6, 6, 6}), scene.Scale(entity));
  ExpectNear(AboutZ(Scaled(30, 2)), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnOverrideLayerOfWeightNaNIgnoresTheRestPose) {
  const uint32_t clip = AddPose({2, 2, 2}, 30);
  Play(Bind({clip}), {{kOverride, kNone, AddState(clip)}});
  ExpectNear({kNone, kNone, kNone}, scene.Position(entity));
  EXPECT_EQ(std::vector<float>({2, 4, 8}), scene.Scale(entity));
  ExpectNear({kNone, kNone, kNone, kNone}, scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnAdditiveFirstLayerIsAddedToTheRestPose) {
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  const uint32_t binding = Bind({clip});
  const uint32_t state = AddState(clip);
  Play(binding, {{kAdditive, 0.5f, state}});
  EXPECT_EQ(std::vector<float>({11, 21, 31}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({2.5f, 3.5f, 5.5f}), scene.Scale(entity));
  ExpectNear(AboutZ(90 + Scaled(30, 0.5f)), scene.Rotation(entity));
  Play(binding, {{kAdditive, 1, state}});
  EXPECT_EQ(std::vector<float>({12, 22, 32}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({3, 3, 3}), scene.Scale(entity));
  ExpectNear(AboutZ(120), scene.Rotation(entity));
  Play(binding, {{kAdditive, 2, state}});
  EXPECT_EQ(std::vector<float>({14, 24, 34}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({4, 2, -2}), scene.Scale(entity));
  ExpectNear(AboutZ(90 + Scaled(30, 2)), scene.Rotation(entity));
  Play(binding, {{kAdditive, kNone, state}});
  ExpectNear({kNone, kNone, kNone}, scene.Position(entity));
  ExpectNear({kNone, kNone, kNone}, scene.Scale(entity));
  ExpectNear({kNone, kNone, kNone, kNone}, scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, ALaterAdditiveLayerIsAddedToTheEarlierLayers) {
  const uint32_t base = AddPose({1, 2, 3, 5, 6, 7}, 60);
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  const uint32_t binding = Bind({base, clip});
  const uint32_t below = AddState(base);
  const uint32_t state = AddState(clip);
  Play(binding, {{kOverride, 1, below}, {kAdditive, 0.5f, state}});
  EXPECT_EQ(std::vector<float>({2, 3, 4}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({6.5f, 7.5f, 8.5f}), scene.Scale(entity));
  ExpectNear(AboutZ(60 + Scaled(30, 0.5f)), scene.Rotation(entity));
  Play(binding, {{kOverride, 1, below}, {kAdditive, 1, state}});
  EXPECT_EQ(std::vector<float>({3, 4, 5}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({8, 9, 10}), scene.Scale(entity));
  ExpectNear(AboutZ(90), scene.Rotation(entity));
  Play(binding, {{kOverride, 1, below}, {kAdditive, 2, state}});
  EXPECT_EQ(std::vector<float>({5, 6, 7}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({11, 12, 13}), scene.Scale(entity));
  ExpectNear(AboutZ(60 + Scaled(30, 2)), scene.Rotation(entity));
  Play(binding, {{kOverride, 1, below}, {kAdditive, kNone, state}});
  ExpectNear({kNone, kNone, kNone}, scene.Position(entity));
  ExpectNear({kNone, kNone, kNone, kNone}, scene.Rotation(entity));
}

// Layers without a pose count: the additive one is not the first, although nothing precedes it.
TEST_F(AnimationControllerBlendingTest, TheIndexOfALayerCountsRecordsNotPoses) {
  const uint32_t clip = AddPose({2, 2, 2, 3, 3, 3}, 30);
  const uint32_t binding = Bind({clip});
  const uint32_t state = AddState(clip);
  for (const Layer& first :
       {Layer{2, 1, state}, Layer{kOverride, 1, kHole}, Layer{kOverride, 1, 0x9000}}) {
    Play(binding, {first, {kAdditive, 0.5f, state}});
    EXPECT_EQ(std::vector<float>({1, 1, 1}), scene.Position(entity));
    EXPECT_EQ(std::vector<float>({1.5f, 1.5f, 1.5f}), scene.Scale(entity));
    // The rotation still starts from the rest pose.
    ExpectNear(AboutZ(90 + Scaled(30, 0.5f)), scene.Rotation(entity));
  }
}

// The factor of the layer is on the left.
TEST_F(AnimationControllerBlendingTest, AnAdditiveRotationMultipliesFromTheLeft) {
  const float half = std::sqrt(0.5f);
  const uint32_t clip =
      scene.AddClip(10, Constants(0, 11, {half, 0, 0}) + Constants(0, 10, {half}));
  Play(Bind({clip}), {{kAdditive, 1, AddState(clip)}});
  // 90 degrees about x times 90 degrees about z.
  ExpectNear({0.5f, -0.5f, 0.5f, 0.5f}, scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest,
       TheFirstAdditiveLayerScalesTheRestScaleByOneMinusItsWeight) {
  const uint32_t clip = AddPose({5, 5, 5, 9, 9, 9}, 45);
  const uint32_t binding = Bind({clip});
  const uint32_t state = scene.AddState(1, 0, {Entry{clip, 0, 1, clip, 0}});
  Play(binding, {{kAdditive, 0.5f, state}});
  EXPECT_EQ(std::vector<float>({10, 20, 30}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({1, 2, 4}), scene.Scale(entity));
  ExpectNear(AboutZ(90), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, OfOverrideLayersTheLastWinsChannelByChannel) {
  const uint32_t a = AddPose({1, 2, 3}, 30);
  const uint32_t b = AddPose({kNone, 8, kNone, 9});
  const uint32_t c = AddPose({kNone, kNone, 6});
  Play(Bind({a, b, c}),
       {{kOverride, 1, AddState(a)}, {kOverride, 0.5f, AddState(b)}, {kOverride, 0, AddState(c)}});
  // The second blends with the rest pose, not with the first's result; the third is at the rest
  // pose.
  EXPECT_EQ(std::vector<float>({1, 14, 30}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({5.5f, 4, 8}), scene.Scale(entity));
  ExpectNear(AboutZ(30), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnOverrideRotationTakesTheShorterArcToTheRestPose) {
  const uint32_t clip = AddPose({}, 30 + 360);  // the opposite hemisphere of 30 degrees
  Play(Bind({clip}), {{kOverride, 0.5f, AddState(clip)}});
  ExpectNear(AboutZ(60), scene.Rotation(entity));
}

// Half a turn about x and a quarter about z: their dot product is 0, and the rotation is not
// negated.
TEST_F(AnimationControllerBlendingTest, ADotProductOfZeroCountsAsTheSameHemisphere) {
  const float half = std::sqrt(0.5f);
  const uint32_t clip = scene.AddClip(10, Constants(0, 11, {1, 0, 0}) + Constants(0, 10, {0}));
  Play(Bind({clip}), {{kOverride, 0.5f, AddState(clip)}});
  ExpectNear({half, 0, 0.5f, 0.5f}, scene.Rotation(entity));
}

// Clips with angles are blended entity by entity, in other code.
TEST_F(AnimationControllerBlendingTest, ADotProductOfZeroCountsTheSameBesideAngles) {
  const float half = std::sqrt(0.5f);
  const uint32_t clip = scene.AddClip(
      10, Constants(0, 11, {1, 0, 0}) + Constants(0, 10, {0}) + Constants(1, kEulerX, {0}));
  Play(Bind({clip}), {{kOverride, 0.5f, AddState(clip)}});
  ExpectNear({half, 0, 0.5f, 0.5f}, scene.Rotation(entity));
}

// The product of 0 and infinity is NaN. An infinite length leaves only the signs of zeros: z is 0 +
// (-0.6 - 0) x -0.75, and would be below zero in the same hemisphere.
TEST_F(AnimationControllerBlendingTest, ADotProductOfNaNCountsAsTheOppositeHemisphere) {
  scene.Turn(entity, kInfinity, 0, 0, 1);
  const uint32_t clip =
      scene.AddClip(10, Constants(0, 11, {0, 0, 0.6f}) + Constants(0, 10, {0.8f}));
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, -0.75f, AddState(clip)}});
  const std::vector<float> rotation = scene.Rotation(entity);
  ExpectNear({kNone, 0, 0, 0}, rotation);
  EXPECT_FALSE(std::signbit(rotation[2]));
  EXPECT_FALSE(std::signbit(rotation[3]));
}

TEST_F(AnimationControllerBlendingTest, StatesOfALayerAddUp) {
  const uint32_t a = AddPose({4}, 90);
  const uint32_t b = AddPose({8}, 90);
  const uint32_t binding = Bind({a, b});
  const size_t keys = scene.KeysOf(binding).size();
  const uint32_t second = AddState(b, 0.75f);
  Play(binding, {{kOverride, 1, AddState(a, 0.25f, 1, second)}});
  EXPECT_EQ(7.0f, scene.Position(entity)[0]);
  ExpectNear(AboutZ(90), scene.Rotation(entity));
  EXPECT_EQ(keys, scene.KeysOf(binding).size());
}

TEST_F(AnimationControllerBlendingTest, StatesOfWeightZeroAreSkippedAndLaterStatesCount) {
  const uint32_t a = AddPose({4});
  const uint32_t b = AddPose({8});
  const uint32_t binding = Bind({a, b});
  Play(binding, {{kOverride, 1, AddState(a, 0, 1, AddState(b))}});
  EXPECT_EQ(8.0f, scene.Position(entity)[0]);
}

TEST_F(AnimationControllerBlendingTest, AStateOfWeightNaNIsNotSkipped) {
  const uint32_t clip = AddPose({4});
  Play(Bind({clip}), {{kOverride, 1, AddState(clip, kNone)}});
  // The weight is NaN, so the channel counts as not animated; the entity is rebuilt.
  EXPECT_EQ(10.0f, scene.Position(entity)[0]);
  EXPECT_EQ(1u, scene.stage.rebuilt.count(entity));
}

// Half of a state: position is completed by 0 and scale by 1, since the rest pose is looked up
// under the blended number.
TEST_F(AnimationControllerBlendingTest, PartlyAnimatedChannelsAreCompletedByAnIdentity) {
  const uint32_t clip = AddPose({4, 6, 8, 5, 7, 9});
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
  EXPECT_EQ(std::vector<float>({2, 3, 4}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({3, 4, 5}), scene.Scale(entity));
  // Keys of position 2, 3, 4 and of scale 2.5, 3.5, 4.5, truncated.
  EXPECT_EQ((std::vector<uint32_t>{2, 3, 4, entity}), scene.KeysOf(binding));
  EXPECT_TRUE(SameRest(ReferenceStage::Rest(), scene.BindingOf(binding)->defaults.Value(
                                                   scene.BindingOf(binding)->defaults.Find(3))));
}

TEST_F(AnimationControllerBlendingTest, TheKeyOfARotationIsTheCompletedScaleZ) {
  const uint32_t clip = AddPose({kNone, kNone, kNone, kNone, kNone, 9}, 0);
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
  // Scale z: 4.5 gives key 4, then 4.5 + 0.5 = 5 is the key of the rotation.
  EXPECT_EQ((std::vector<uint32_t>{4, 5, entity}), scene.KeysOf(binding));
}

TEST_F(AnimationControllerBlendingTest, WithoutAScaleTheKeyOfARotationIsZero) {
  const uint32_t clip = AddPose({}, 0);
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
  EXPECT_EQ((std::vector<uint32_t>{0, entity}), scene.KeysOf(binding));
}

TEST_F(AnimationControllerBlendingTest, KeysAreTruncatedAndOutOfRangeNumbersShareOne) {
  struct Case {
    float value;
    uint32_t key;
  };
  for (const Case& each :
       {Case{2.75f, 2}, Case{-0.5f, 0}, Case{-1.0f, 0xFFFFFFFFu}, Case{2147483648.0f, 0x80000000u},
        Case{3000000000.0f, 3000000000u}, Case{4294967296.0f, 0x80000000u},
        Case{-3.0e9f, 0x80000000u}, Case{kInfinity, 0x80000000u}}) {
    const uint32_t clip = AddPose({each.value * 2});
    const uint32_t binding = Bind({clip});
    Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
    std::vector<uint32_t> expected = {each.key, entity};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(expected, scene.KeysOf(binding)) << each.value;
  }
}

TEST_F(AnimationControllerBlendingTest, NaNHasAKeyToo) {
  const uint32_t clip = AddPose({kInfinity});
  const uint32_t other = AddPose({-kInfinity});
  const uint32_t binding = Bind({clip, other});
  Play(binding, {{kOverride, 1, AddState(clip, 0.25f, 1, AddState(other, 0.25f))}});
  EXPECT_EQ((std::vector<uint32_t>{entity, 0x80000000u}), scene.KeysOf(binding));
  ExpectNear({kNone, 20, 30}, scene.Position(entity));
}

// The number is the entity's own handle: here its rest pose is found.
TEST_F(AnimationControllerBlendingTest, ANumberThatIsAHandleFindsThatEntitysRestPose) {
  ASSERT_EQ(0x1000u, entity);
  const uint32_t clip = AddPose({8192, kNone, 8192, kNone, 8192.5f});
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
  EXPECT_EQ(std::vector<float>({4096 + 5, 20, 4096 + 15}), scene.Position(entity));
  EXPECT_EQ(4096.25f + 2, scene.Scale(entity)[1]);
  EXPECT_EQ(std::vector<uint32_t>({entity}), scene.KeysOf(binding));
}

TEST_F(AnimationControllerBlendingTest, ARotationIsCompletedInItsOwnHemisphere) {
  const uint32_t clip = AddPose({kNone, kNone, kNone, kNone, kNone, 4096 * 2 - 1}, 90 + 360);
  const uint32_t binding = Bind({clip});
  Play(binding, {{kOverride, 1, AddState(clip, 0.5f)}});
  // Scale z is 4095.5, and then 4096: the rest pose of 90 degrees completes the rotation.
  ExpectNear(AboutZ(90 + 360), scene.Rotation(entity));
  EXPECT_EQ((std::vector<uint32_t>{4095, entity}), scene.KeysOf(binding));
}

// Three quarters of half a turn, one of the identity: 3 to 1 in z and w.
TEST_F(AnimationControllerBlendingTest, ARotationIsCompletedByOneMinusItsWeight) {
  const uint32_t clip = AddPose({}, 180);
  Play(Bind({clip}), {{kOverride, 1, AddState(clip, 0.75f)}});
  const float unit = std::sqrt(0.1f);
  ExpectNear({0, 0, 3 * unit, unit}, scene.Rotation(entity));
}

// Half by the clip's weight, once more half by that on the way into the layer: a quarter in all,
// while the weight says half.
TEST_F(AnimationControllerBlendingTest, ARotationIsWeightedTwiceOnItsWayIntoALayer) {
  const uint32_t clip = AddPose({}, 180);
  Play(Bind({clip}), {{kOverride, 1, AddState(clip, 1, 0.5f)}});
  // z: 0.25; w: the identity's share of 0.5. An angle of atan 0.5.
  ExpectNear(AboutZ(2 * 26.5650512f), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnAdditiveLayerScalesItsRotationByItsWeight) {
  const uint32_t clip = AddPose({}, 60);
  Play(Bind({clip}), {{kAdditive, 1, AddState(clip, 0.5f)}});
  // Weighted twice, then z by the weight once more.
  ExpectNear(AboutZ(90 + Scaled(60, 0.5f)), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, AnAdditiveLayerIsNotCompleted) {
  const uint32_t clip = AddPose({4, 4, 4, 4, 4, 4}, 30);
  const uint32_t binding = Bind({clip});
  Play(binding, {{kAdditive, 1, AddState(clip, 0.5f)}});
  EXPECT_EQ(std::vector<float>({12, 22, 32}), scene.Position(entity));
  EXPECT_EQ(std::vector<float>({2, 2, 2}), scene.Scale(entity));
  EXPECT_EQ(std::vector<uint32_t>({entity}), scene.KeysOf(binding));
}

// Completing a layer inserts the number of another entity. A later layer that fills poses that
// entity, so it is rebuilt, although the binding does not list it. An earlier layer does not.
TEST_F(AnimationControllerBlendingTest, EachLayerIsCompletedBeforeTheNextIsEvaluated) {
  const uint32_t other = scene.Add3D();
  ASSERT_EQ(0x2000u, other);
  const uint32_t clip = AddPose({0x2000 * 2});
  const uint32_t binding = Bind({clip});
  const uint32_t carrying = scene.AddState(1, 1, {});
  Play(binding, {{kOverride, 1, carrying}, {kOverride, 1, AddState(clip, 0.5f)}});
  EXPECT_EQ(0u, scene.stage.rebuilt.count(other));
  scene.ReleaseBinding(binding);
  const uint32_t again = Bind({clip});
  Play(again, {{kOverride, 1, AddState(clip, 0.5f)}, {kOverride, 1, carrying}});
  EXPECT_EQ(1u, scene.stage.rebuilt.count(other));
  EXPECT_EQ((std::vector<uint32_t>{entity, other}), scene.KeysOf(again));
}

TEST_F(AnimationControllerBlendingTest, LayersThatAreOffHaveNoEffect) {
  const uint32_t clip = AddPose({4});
  const uint32_t binding = Bind({clip});
  const uint32_t state = AddState(clip, 0.5f);
  for (const Layer& off : {Layer{2, 1, state}, Layer{kHole, 1, state}, Layer{kOverride, 1, kHole},
                           Layer{kOverride, 1, 0x9000}, Layer{kAdditive, 1, 0}}) {
    Play(binding, {off});
    EXPECT_EQ(10.0f, scene.Position(entity)[0]);
    EXPECT_TRUE(scene.stage.rebuilt.empty());
    EXPECT_EQ(std::vector<uint32_t>({entity}), scene.KeysOf(binding));
  }
}

TEST_F(AnimationControllerBlendingTest, WithoutABindingNothingIsDone) {
  const uint32_t clip = AddPose({4});
  const uint32_t binding = Bind({clip});
  const uint32_t state = AddState(clip);
  const uint32_t controller = scene.AddController(kHole, {{kOverride, 1, state}});
  for (const uint32_t none : {kHole, 0u, 0x9000u}) {
    scene.SetBinding(controller, none);
    scene.UpdateAtOnce(controller);
    EXPECT_EQ(10.0f, scene.Position(entity)[0]);
  }
  scene.SetBinding(controller, binding);
  scene.UpdateAtOnce(controller);
  EXPECT_EQ(4.0f, scene.Position(entity)[0]);
  scene.Core()->UpdateAnimatorController(0x9000);
}

TEST_F(AnimationControllerBlendingTest, AnAnimatedRotationSwitchesToQuaternionMode) {
  scene.Turn(entity, 0.5f, 0.25f, 0.125f);
  const uint32_t still = AddPose({1});
  const uint32_t turning = AddPose({}, 0);
  const uint32_t binding = Bind({still, turning});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(still)}});
  scene.Update(controller);
  EXPECT_EQ(0, scene.Record3D(entity).rotationMode);
  scene.SetLayer(controller, 0, {kOverride, 1, AddState(turning)});
  scene.Update(controller);
  EXPECT_EQ(1, scene.Record3D(entity).rotationMode);
  EXPECT_EQ(std::vector<float>({0, 0, 0, 1}), scene.Rotation(entity));
}

TEST_F(AnimationControllerBlendingTest, EachEntityOfThePoseIsRebuiltAndMarked) {
  const uint32_t other = scene.Add3D(2);
  scene.Link(entity, other);
  scene.AddRoot(other + 1);
  scene.Settle({entity, other, other + 1});
  const uint32_t clip = AddPose({4});
  const uint32_t binding = scene.Bind(Groups{{clip, {entity, other, other + 1}}});
  scene.MoveTo(other, 7, 0, 0);
  scene.MoveTo(other + 1, 8, 0, 0);
  const uint32_t carrying = scene.AddState(1, 1, {});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, carrying}});
  scene.SetMask(controller, 0, {{entity, 0.0f}, {other + 1, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(1u, scene.At(entity).dirtyState());
  EXPECT_EQ(2u, scene.At(other).dirtyState());
  EXPECT_EQ(7.0f, scene.At(other).localMatrix()[12]);
  EXPECT_EQ(0u, scene.At(other + 1).dirtyState());
  EXPECT_EQ(0.0f, scene.At(other + 1).localMatrix()[12]);
  // Nothing was stored, and the world matrix is left to the next refresh.
  EXPECT_EQ(7.0f, scene.Position(other)[0]);
  EXPECT_EQ(10.0f, scene.WorldPosition(other)[0]);
  scene.Refresh();
  // 7 along x, scaled by 2 and turned by 90 degrees.
  ExpectNear({10, 20 + 14, 30}, scene.WorldPosition(other));
}

TEST_F(AnimationControllerBlendingTest, ReleasedEntitiesAreSkipped) {
  const uint32_t other = scene.Add3D();
  const uint32_t clip = scene.AddClip(10, {Constant(0, 1, 4), Constant(1, 1, 5)});
  const uint32_t binding = scene.Bind(Groups{{clip, {other, entity}}});
  const uint32_t state = scene.AddState(1, 1, {Entry{clip, 0, 1, 0, 0}});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, state}});
  scene.Release(other);
  scene.UpdateAtOnce(controller);
  EXPECT_EQ(5.0f, scene.Position(entity)[0]);
  ASSERT_EQ(other, scene.Add2D());
  scene.UpdateAtOnce(controller);
  EXPECT_EQ((std::vector<uint32_t>{entity, other}), scene.KeysOf(binding));
}

TEST_F(AnimationControllerBlendingTest, WithoutARestPoseNothingIsWritten) {
  const uint32_t clip = AddPose({4});
  const uint32_t binding = scene.Bind(Groups{{clip, {entity}}}, 0);
  Play(binding, {{kOverride, 1, scene.AddState(1, 1, {Entry{clip, 0, 1, 0, 0}})}});
  EXPECT_EQ(10.0f, scene.Position(entity)[0]);
  EXPECT_TRUE(scene.stage.rebuilt.empty());
}

// Lists updated without new rest poses take effect in the next update, too.
TEST_F(AnimationControllerBlendingTest, UpdatedListsTakeEffectAtOnce) {
  const uint32_t other = scene.Add3D();
  const uint32_t clip = AddPose({4});
  const uint32_t binding = scene.Bind(Groups{{clip, {entity, other}}});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(clip)}});
  scene.Update(controller);
  EXPECT_EQ(0.0f, scene.Position(other)[0]);
  const TargetLists lists(Groups{{clip, {other, entity}}});
  std::map<uint32_t, Entity*> resolved;
  ASSERT_TRUE(scene.BindingOf(binding)->ParseTargets(
      reinterpret_cast<const uint8_t*>(lists.words.data()), 0, 1, 3, &resolved));
  EXPECT_EQ(2u, resolved.size());
  EXPECT_EQ(&scene.At(other), resolved.at(other));
  scene.Core()->UpdateAnimatorController(controller);
  EXPECT_EQ(4.0f, scene.Position(other)[0]);
}

TEST_F(AnimationControllerBlendingTest, AMaskBelongsToItsLayer) {
  const uint32_t a = AddPose({4, 4});
  const uint32_t b = AddPose({8});
  const uint32_t binding = Bind({a, b});
  const uint32_t controller =
      scene.AddController(binding, {{kOverride, 1, AddState(a)}, {kOverride, 1, AddState(b)}});
  scene.SetMask(controller, 1, {{entity, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(std::vector<float>({4, 4, 30}), scene.Position(entity));
}

// A mask is per entity, whatever the binding.
TEST_F(AnimationControllerBlendingTest, AMaskAppliesToAnotherBindingToo) {
  const uint32_t other = scene.Add3D();
  const uint32_t clip = AddPose({4});
  const uint32_t first = scene.Bind(Groups{{clip, {entity}}});
  const uint32_t second = scene.Bind(Groups{{clip, {other}}});
  const uint32_t controller = scene.AddController(first, {{kOverride, 1, AddState(clip)}});
  scene.SetMask(controller, 0, {{entity, 0.0f}});
  scene.Update(controller);
  EXPECT_EQ(10.0f, scene.Position(entity)[0]);
  scene.SetBinding(controller, second);
  scene.Update(controller);
  EXPECT_EQ(4.0f, scene.Position(other)[0]);
  scene.SetBinding(controller, first);
  scene.Update(controller);
  EXPECT_EQ(10.0f, scene.Position(entity)[0]);
}

TEST_F(AnimationControllerBlendingTest, ATreeUnderARootWaitsForTheRefresh) {
  const uint32_t clip = AddPose({4});
  const uint32_t binding = Bind({clip});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(clip)}});
  scene.UpdateAtOnce(controller);
  EXPECT_EQ(2u, scene.At(entity).dirtyState());
  EXPECT_EQ(10.0f, scene.WorldPosition(entity)[0]);
  scene.Refresh();
  EXPECT_EQ(4.0f, scene.WorldPosition(entity)[0]);
}

TEST_F(AnimationControllerBlendingTest, ATreeWithoutARootIsUpdatedAtOnce) {
  const uint32_t tree = scene.Add3D(2);
  scene.Link(tree, tree + 1);
  scene.MoveTo(tree, 1, 0, 0);
  scene.Settle({tree, tree + 1});
  const uint32_t clip = AddPose({4});
  const uint32_t binding = scene.Bind(Groups{{clip, {tree + 1}}});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(clip)}});
  scene.Update(controller);
  EXPECT_EQ(0.0f, scene.WorldPosition(tree + 1)[0]);
  scene.UpdateAtOnce(controller);
  EXPECT_EQ(5.0f, scene.WorldPosition(tree + 1)[0]);
  EXPECT_EQ(0u, scene.At(tree + 1).dirtyState());
}

// 2D, a root
//  '- 3D top
//      '- 3D bound
// The walk up ends at the topmost 3D entity, which is no root, so its tree is updated at once.
TEST_F(AnimationControllerBlendingTest, ATreeUnderA2DRootIsUpdatedAtOnce) {
  const uint32_t flat = scene.Add2D();
  const uint32_t tree = scene.Add3D(2);
  scene.AddRoot(flat);
  scene.Insert(flat, tree, 0);
  scene.Link(tree, tree + 1);
  scene.Settle({flat, tree, tree + 1});
  EXPECT_EQ(0.0f, scene.WorldPosition(tree + 1)[0]);
  const uint32_t clip = AddPose({4});
  const uint32_t binding = scene.Bind(Groups{{clip, {tree + 1}}});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(clip)}});
  scene.UpdateAtOnce(controller);
  EXPECT_EQ(4.0f, scene.WorldPosition(tree + 1)[0]);
  EXPECT_EQ(0u, scene.At(tree).dirtyState());
  EXPECT_EQ(1u, scene.At(flat).dirtyState());
}

// Counts instead of posing.
class CountingController final : public AnimatorControllerModel {
 public:
  using AnimatorControllerModel::AnimatorControllerModel;
  void Update() override { ++updates; }

  static int updates;
};
int CountingController::updates = 0;

// The table holds plain controllers, so a derived one replaces one.
TEST_F(AnimationControllerBlendingTest, TheUpdateIsAVirtualCall) {
  static_assert(sizeof(CountingController) == sizeof(AnimatorControllerModel), "in its place");
  const uint32_t clip = AddPose({4});
  const uint32_t binding = Bind({clip});
  const uint32_t controller = scene.AddController(binding, {{kOverride, 1, AddState(clip)}});
  AnimatorControllerModel* plain = scene.ControllerOf(controller);
  EngineCore* const core = plain->core;
  uint8_t* const data = plain->data;
  plain->~AnimatorControllerModel();
  new (static_cast<void*>(plain)) CountingController(core, data, 1);
  CountingController::updates = 0;
  scene.Core()->UpdateAnimatorController(controller);
  EXPECT_EQ(1, CountingController::updates);
  EXPECT_EQ(10.0f, scene.Position(entity)[0]);
}

}  // namespace
}  // namespace nq::engine
