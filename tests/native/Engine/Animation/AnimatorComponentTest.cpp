// Animators: which clips are active, where their samples are written, how they are blended; and
// random animators against a plain model.
#include "Engine/Animation/AnimatorComponent.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "Common/Def/Log.h"
#include "tests/native/Engine/Animation/AnimatorStage.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"

namespace nq::engine {
namespace {

// Sample types.
constexpr uint32_t kPosition = 1;
constexpr uint32_t kEuler = 7;
constexpr uint32_t kW = 10;
constexpr uint32_t kImaginary = 11;

// A curve whose value is the frame's number: on every frame up to 99.
ReferenceCurve FrameNumber(uint32_t target, uint32_t type) {
  ReferenceCurve curve = {target, type, {}};
  for (uint32_t frame = 0; frame < 100; ++frame) {
    curve.keys.push_back(Flat(frame, static_cast<float>(frame)));
  }
  return curve;
}

class AnimatorComponentTest : public AnimationSceneTest {
 protected:
  float X(uint32_t entity) { return scene.Record3D(entity).position[0]; }

  // An animator of one target that plays the frame's number on x; returns the resulting x.
  float Shown(float time, uint32_t frameCount = 100) {
    const uint32_t entity = scene.Add3D();
    const uint32_t clip = scene.AddClip(frameCount, {FrameNumber(0, kPosition)});
    scene.Update(scene.AddAnimator({{clip, time, 1}}, {entity}));
    return X(entity);
  }

  // A clip of a constant rotation.
  uint32_t AddTurn(float x, float y, float z, float w) {
    return scene.AddClip(10, Constants(0, kImaginary, {x, y, z}) + Constants(0, kW, {w}));
  }
};

TEST_F(AnimatorComponentTest, ASingleClipIsAppliedInFullWhateverItsWeight) {
  const uint32_t clip =
      scene.AddClip(10, Constants(0, 1, {1, 2, 3, 4, 5, 6}) +
                            Constants(0, kImaginary, {0, 0, 0.6f}) + Constants(0, kW, {0.8f}));
  const uint32_t entities = scene.Add3D(3);
  const float weights[] = {1, 0.25f, 1e-45f};
  for (uint32_t i = 0; i < 3; ++i) {
    scene.Update(scene.AddAnimator({{clip, 3, weights[i]}}, {entities + i}));
    const Entity3DRecord& record = scene.Record3D(entities + i);
    EXPECT_TRUE(SameFloats({1, 2, 3}, record.position)) << i;
    EXPECT_TRUE(SameFloats({4, 5, 6}, record.scale));
    EXPECT_TRUE(SameFloats({0, 0, 0.6f, 0.8f}, record.rotation)) << "as it is, not normalised";
    EXPECT_EQ(1, record.rotationMode);
  }
}

TEST_F(AnimatorComponentTest, OnlyClipsOfWeightsAboveZeroAndUpToOneAreActive) {
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 5)});
  for (const float weight :
       {0.0f, -0.0f, -1e-45f, -0.5f, -1.0f, 1.0000001f, 2.0f, kInfinity, -kInfinity, kNone}) {
    const uint32_t entity = scene.Add3D();
    const uint32_t animator = scene.AddAnimator({{clip, 3, weight}}, {entity});
    scene.Update(animator);
    EXPECT_EQ(0.0f, X(entity)) << weight;
    EXPECT_EQ(0u, scene.FirstTargetOf(animator));
    EXPECT_EQ(0u, scene.At(entity).worldVersion()) << "no tree is updated";
  }
  for (const float weight : {1e-45f, 0.5f, 0.99999994f, 1.0f}) {
    const uint32_t entity = scene.Add3D();
    scene.Update(scene.AddAnimator({{clip, 3, weight}}, {entity}));
    EXPECT_EQ(5.0f, X(entity)) << weight;
  }
}

//   clip        a (2 tracks)   b (3 tracks)   c (1 track)
//   table       0  1           2  3  4        5
TEST_F(AnimatorComponentTest, InactiveClipsStillOccupyTheTargetTable) {
  const uint32_t a = scene.AddClip(10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2)});
  const uint32_t b = scene.AddClip(
      10, {Constant(0, kPosition, 3), Constant(1, kPosition, 4), Constant(2, kPosition, 5)});
  const uint32_t c = scene.AddClip(10, {Constant(0, kPosition, 6)});
  for (const float weight : {0.0f, -1.0f, kNone, 1.5f}) {
    const uint32_t entities = scene.Add3D(6);
    scene.Update(scene.AddAnimator(
        {{a, 0, weight}, {b, 0, weight}, {c, 0, 1}},
        {entities, entities + 1, entities + 2, entities + 3, entities + 4, entities + 5}));
    EXPECT_EQ(6.0f, X(entities + 5)) << weight;
    for (uint32_t i = 0; i < 5; ++i) {
      EXPECT_EQ(0.0f, X(entities + i)) << i;
    }
  }
  const uint32_t entities = scene.Add3D(6);
  scene.Update(scene.AddAnimator(
      {{a, 0, 1}, {b, 0, 0}, {c, 0, 1}},
      {entities, entities + 1, entities + 2, entities + 3, entities + 4, entities + 5}));
  const float expected[] = {1, 2, 0, 0, 0, 6};
  for (uint32_t i = 0; i < 6; ++i) {
    EXPECT_EQ(expected[i], X(entities + i)) << i;
  }
}

TEST_F(AnimatorComponentTest, AnInactiveClipIsParsedButNotSampled) {
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  const uint32_t other = scene.AddClip(10, {Constant(0, kPosition, 2)});
  scene.Update(scene.AddAnimator({{clip, 3, 0}, {other, 3, 1}}, {scene.Add3D(), scene.Add3D()}));
  EXPECT_EQ(10u, scene.Animation()->FindAnimationClipModel(clip)->frameCount());
  EXPECT_EQ(0u, scene.Animation()->FindAnimationClipModel(clip)->CachedFrames());
  EXPECT_EQ(1u, scene.Animation()->FindAnimationClipModel(other)->CachedFrames());
}

TEST_F(AnimatorComponentTest, ClipsWithoutTracksOrFramesContributeNothing) {
  const uint32_t empty = scene.AddClip(std::vector<uint8_t>(16));
  const uint32_t frameless = scene.AddClip(0, {Constant(0, kPosition, 1)});
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 2)});
  const uint32_t entities = scene.Add3D(2);
  scene.Update(scene.AddAnimator({{empty, 0, 1}, {frameless, 0, 1}, {clip, 0, 1}},
                                 {entities, entities + 1}));
  EXPECT_EQ(0.0f, X(entities)) << "a place for the track without frames";
  EXPECT_EQ(2.0f, X(entities + 1)) << "none for the clip without tracks";
  scene.Update(scene.AddAnimator({{frameless, 0, 1}}, {entities}));
  scene.Update(scene.AddAnimator({{frameless, 0.5f, 1}}, {entities}));
  EXPECT_EQ(0.0f, X(entities));
}

TEST_F(AnimatorComponentTest, AGapInTheTargetIndicesShiftsTheEntriesOfTheNextClip) {
  // Two tracks, of targets 0 and 2: the next clip starts at entry 2, too.
  const uint32_t gap = scene.AddClip(10, {Constant(0, kPosition, 1), Constant(2, kPosition, 3)});
  const uint32_t next = scene.AddClip(10, {Constant(0, kPosition + 1, 7)});
  const uint32_t entities = scene.Add3D(3);
  const uint32_t animator =
      scene.AddAnimator({{gap, 0, 1}, {next, 0, 0}}, {entities, entities + 1, entities + 2});
  scene.Update(animator);
  EXPECT_EQ(1.0f, X(entities));
  EXPECT_EQ(0.0f, X(entities + 1));
  EXPECT_EQ(3.0f, X(entities + 2));
  scene.SetPlay(animator, 0, {gap, 0, 0});
  scene.SetPlay(animator, 1, {next, 0, 1});
  scene.Update(animator);
  EXPECT_EQ(7.0f, scene.Record3D(entities + 2).position[1]);
}

TEST_F(AnimatorComponentTest, TargetsPastTheTableAreSkipped) {
  const uint32_t clip = scene.AddClip(
      10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2), Constant(0xFFFFFFFFu, 1, 3)});
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {entity}));
  EXPECT_EQ(1.0f, X(entity));
  scene.Update(scene.AddAnimator({{clip, 0, 1}, {clip, 0, 1}}, {entity}));
  EXPECT_EQ(1.0f, X(entity));
}

TEST_F(AnimatorComponentTest, OnlyWholeTimesUseTheFrameCache) {
  const uint32_t clip = scene.AddClip(100, {FrameNumber(0, kPosition)});
  const AnimationClipModel* model = scene.Animation()->FindAnimationClipModel(clip);
  const uint32_t animator = scene.AddAnimator(1, 1);
  scene.SetTarget(animator, 0, scene.Add3D());
  uint32_t cached = 0;
  for (const float time : {0.0f, 1.0f, 99.0f, 7.0f}) {
    scene.SetPlay(animator, 0, {clip, time, 1});
    scene.Update(animator);
    EXPECT_EQ(++cached, model->CachedFrames()) << time;
  }
  for (const float time : {100.0f, 107.0f, -0.0f, 0.5f, 98.99999f, -0.25f, kNone}) {
    scene.SetPlay(animator, 0, {clip, time, 1});
    scene.Update(animator);
    EXPECT_EQ(cached, model->CachedFrames()) << time;
  }
}

TEST_F(AnimatorComponentTest, TimesWrapAtTheClipsLength) {
  EXPECT_EQ(7.0f, Shown(7));
  EXPECT_EQ(7.5f, Shown(7.5f));
  EXPECT_EQ(0.0f, Shown(60, 60)) << "its length is its start";
  EXPECT_EQ(5.0f, Shown(65, 60));
  EXPECT_EQ(5.5f, Shown(65.5f, 60));
}

TEST_F(AnimatorComponentTest, ANegativeWholeTimeWrapsAsUnsigned) {
  // 2^32 is 96 modulo 100.
  EXPECT_EQ(95.0f, Shown(-1));
  EXPECT_EQ(94.0f, Shown(-2));
  EXPECT_EQ(63.0f, Shown(-1, 64));
  EXPECT_EQ(0.0f, Shown(-0.5f)) << "negative: the first key's value";
  EXPECT_EQ(0.0f, Shown(-1.5f));
}

TEST_F(AnimatorComponentTest, TimesBeyond32BitsAreFrame0x80000000) {
  // 2^31 is 48 modulo 100.
  for (const float time : {2147483648.0f, 4294967296.0f, 1e20f, -1e20f, kInfinity, -kInfinity}) {
    EXPECT_EQ(48.0f, Shown(time)) << time;
  }
  EXPECT_EQ(static_cast<float>(4294967040u % 100), Shown(4294967040.0f));
  EXPECT_EQ(99.0f, Shown(kNone)) << "not whole: finds no key";
}

TEST_F(AnimatorComponentTest, TwoClipsGiveTheWeightedMean) {
  const uint32_t a = scene.AddClip(10, Constants(0, 1, {8, 16, 0, 4, 1, 2}));
  const uint32_t b = scene.AddClip(10, Constants(0, 1, {16, 0, 4, 8, 2, 1}));
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{a, 0, 0.2f}, {b, 0, 0.6f}}, {entity, entity}));
  const Entity3DRecord& record = scene.Record3D(entity);
  const float expected[6] = {14, 4, 3, 7, 1.75f, 1.25f};
  for (int i = 0; i < 3; ++i) {
    EXPECT_NEAR(expected[i], record.position[i], 2e-6f) << i;
    EXPECT_NEAR(expected[3 + i], record.scale[i], 2e-6f) << i;
  }
}

TEST_F(AnimatorComponentTest, WeightsNeedNotSumUpToOne) {
  const uint32_t a = scene.AddClip(10, {Constant(0, kPosition, 8)});
  const uint32_t b = scene.AddClip(10, {Constant(0, kPosition, 16)});
  const uint32_t c = scene.AddClip(10, {Constant(0, kPosition, 36)});
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{a, 0, 1}, {b, 0, 1}}, {entity, entity}));
  EXPECT_EQ(12.0f, X(entity));
  scene.Update(scene.AddAnimator({{a, 0, 0.125f}, {b, 0, 0.125f}}, {entity, entity}));
  EXPECT_EQ(12.0f, X(entity));
  scene.Update(scene.AddAnimator({{a, 0, 1}, {b, 0, 1}, {c, 0, 1}}, {entity, entity, entity}));
  EXPECT_NEAR(20.0f, X(entity), 3e-6f);
  scene.Update(scene.AddAnimator({{a, 0, 0.5f}, {b, 0, 0.5f}, {c, 0, 1}, {a, 0, 0}},
                                 {entity, entity, entity, entity}));
  EXPECT_EQ(24.0f, X(entity));
}

TEST_F(AnimatorComponentTest, AChannelOfOneClipOnlyIsScaledByItsShare) {
  const uint32_t xy = scene.AddClip(10, Constants(0, 1, {8, 16}));
  const uint32_t x = scene.AddClip(10, Constants(0, 1, {8}));
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 1, 1, 1);
  scene.Update(scene.AddAnimator({{x, 0, 0.25f}, {xy, 0, 0.75f}}, {entity, entity}));
  EXPECT_TRUE(SameFloats({8, 12, 1}, scene.Record3D(entity).position)) << "y is 16 t";
  scene.Update(scene.AddAnimator({{xy, 0, 0.25f}, {x, 0, 0.75f}}, {entity, entity}));
  EXPECT_TRUE(SameFloats({8, 4, 1}, scene.Record3D(entity).position)) << "y is 16 (1 - t)";
}

TEST_F(AnimatorComponentTest, AnEntityOfOneClipOnlyIsNotScaled) {
  const uint32_t a = scene.AddClip(10, {Constant(0, kPosition, 8)});
  const uint32_t b = scene.AddClip(10, {Constant(0, kPosition, 16), Constant(1, kPosition, 4)});
  const uint32_t entities = scene.Add3D(2);
  scene.Update(scene.AddAnimator({{a, 0, 0.5f}, {b, 0, 0.5f}}, {entities, entities, entities + 1}));
  EXPECT_EQ(12.0f, X(entities));
  EXPECT_EQ(4.0f, X(entities + 1));
}

TEST_F(AnimatorComponentTest, OneEntityMayBeSeveralTargets) {
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 8), Constant(1, kPosition, 16)});
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{clip, 0, 0.5f}}, {entity, entity}));
  EXPECT_EQ(16.0f, X(entity)) << "the later place is written later";
  scene.Update(scene.AddAnimator({{clip, 0, 0.5f}, {clip, 0, 0.5f}},
                                 {entity, entity, 0xFFFFFFFFu, 0xFFFFFFFFu}));
  EXPECT_EQ(12.0f, X(entity)) << "a blend takes them for contributions";
}

TEST_F(AnimatorComponentTest, AnglesOfOneClipReachTheEntity) {
  const uint32_t clip = scene.AddClip(10, Constants(0, kEuler, {0.5f, 0.25f, kNone}));
  const uint32_t entity = scene.Add3D();
  scene.Record3D(entity).rotation[2] = 9;
  scene.Record3D(entity).rotation[3] = 8;
  scene.Update(scene.AddAnimator({{clip, 0, 0.5f}}, {entity}));
  EXPECT_TRUE(SameFloats({0.5f, 0.25f, 9, 8}, scene.Record3D(entity).rotation));
  EXPECT_EQ(0, scene.Record3D(entity).rotationMode);
}

TEST_F(AnimatorComponentTest, AnglesAreStoredAsQuaternionPartsInQuaternionMode) {
  const uint32_t clip = scene.AddClip(10, Constants(0, kEuler, {0.5f, 0.25f, 0.125f}));
  const uint32_t entity = scene.Add3D();
  scene.Record3D(entity).rotationMode = 0xFF;
  scene.Record3D(entity).rotation[3] = 8;
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {entity}));
  EXPECT_TRUE(SameFloats({0.5f, 0.25f, 0.125f, 8}, scene.Record3D(entity).rotation));
  EXPECT_EQ(0xFF, scene.Record3D(entity).rotationMode) << "w alone changes it";
}

TEST_F(AnimatorComponentTest, OnlyWChangesTheRotationMode) {
  const uint32_t without = scene.AddClip(10, Constants(0, kImaginary, {0.5f, 0.25f, 0.125f}));
  const uint32_t with = scene.AddClip(10, Constants(0, kW, {0.75f}));
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{without, 0, 1}}, {entity}));
  EXPECT_EQ(0, scene.Record3D(entity).rotationMode);
  scene.Update(scene.AddAnimator({{with, 0, 1}}, {entity}));
  EXPECT_EQ(1, scene.Record3D(entity).rotationMode);
  EXPECT_TRUE(SameFloats({0.5f, 0.25f, 0.125f, 0.75f}, scene.Record3D(entity).rotation));
}

TEST_F(AnimatorComponentTest, ABlendDropsAngles) {
  const uint32_t a =
      scene.AddClip(10, Constants(0, kEuler, {0.5f, 0.25f, 0.125f}) + Constants(0, kPosition, {4}));
  const uint32_t entity = scene.Add3D();
  Entity3DRecord& record = scene.Record3D(entity);
  for (int i = 0; i < 4; ++i) {
    record.rotation[i] = static_cast<float>(i);
  }
  scene.Update(scene.AddAnimator({{a, 0, 0.5f}, {a, 0, 0.5f}}, {entity, entity}));
  EXPECT_TRUE(SameFloats({0, 1, 2, 3}, record.rotation));
  EXPECT_EQ(4.0f, record.position[0]) << "the rest is not affected";
  scene.Update(scene.AddAnimator({{a, 0, 1}, {a, 0, 1}, {a, 0, 1}}, {entity, entity, entity}));
  EXPECT_TRUE(SameFloats({0, 1, 2, 3}, record.rotation));
  scene.Update(scene.AddAnimator({{a, 0, 1}, {a, 0, 1}}, {entity, 0}));
  EXPECT_TRUE(SameFloats({0, 1, 2, 3}, record.rotation)) << "also of what one clip alone says";
}

TEST_F(AnimatorComponentTest, ABlendNormalisesTheRotationOfASingleClip) {
  const uint32_t turn = AddTurn(0, 0, 3, 4);
  const uint32_t other = scene.AddClip(10, {Constant(0, kPosition, 1)});
  const uint32_t entities = scene.Add3D(2);
  scene.Update(scene.AddAnimator({{turn, 0, 0.5f}, {other, 0, 0.5f}}, {entities, entities + 1}));
  const float* rotation = scene.Record3D(entities).rotation;
  // By multiplication with the float nearest to a fifth, not by a division.
  EXPECT_TRUE(SameFloats({0, 0, 3 * 0.2f, 4 * 0.2f}, rotation));
  EXPECT_EQ(1, scene.Record3D(entities).rotationMode);
}

TEST_F(AnimatorComponentTest, ABlendedQuaternionOfLengthZeroIsNotWritten) {
  const uint32_t zero = AddTurn(0, 0, 0, 0);
  const uint32_t entity = scene.Add3D();
  scene.Record3D(entity).rotation[0] = 7;
  scene.Update(scene.AddAnimator({{zero, 0, 1}, {zero, 0, 1}}, {entity, entity}));
  EXPECT_TRUE(SameFloats({7, 0, 0, 0}, scene.Record3D(entity).rotation)) << "0 times infinity";
  EXPECT_EQ(0, scene.Record3D(entity).rotationMode);
}

TEST_F(AnimatorComponentTest, TwoQuaternionsAreSlerped) {
  const float h = std::sqrt(0.5f);
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{AddTurn(0, 0, 0, 1), 0, 0.6f}, {AddTurn(0, 0, h, h), 0, 0.3f}},
                                 {entity, entity}));
  const float* rotation = scene.Record3D(entity).rotation;
  EXPECT_NEAR(0.258819045f, rotation[2], 1e-6f) << "30 of 90 degrees";
  EXPECT_NEAR(0.965925826f, rotation[3], 1e-6f);
}

// Half angles of 10, 24 and 39 degrees about z, with even weights.
TEST_F(AnimatorComponentTest, ThreeQuaternionsAreAddedAndNormalised) {
  const double degree = std::acos(-1.0) / 180;
  std::vector<uint32_t> turns;
  for (const double half : {10.0, 24.0, 39.0}) {
    turns.push_back(AddTurn(0, 0, static_cast<float>(std::sin(half * degree)),
                            static_cast<float>(std::cos(half * degree))));
  }
  const uint32_t entity = scene.Add3D();
  scene.Update(scene.AddAnimator({{turns[0], 0, 1}, {turns[1], 0, 1}, {turns[2], 0, 1}},
                                 {entity, entity, entity}));
  // The first in full, then half of the second, then a third of the third.
  double z = 0;
  double w = 0;
  for (const double half : {10.0, 12.0, 13.0}) {
    z += std::sin(half * degree);
    w += std::cos(half * degree);
  }
  const float* rotation = scene.Record3D(entity).rotation;
  EXPECT_EQ(0.0f, rotation[0]);
  EXPECT_EQ(0.0f, rotation[1]);
  EXPECT_NEAR(z / std::sqrt(z * z + w * w), rotation[2], 1e-6);
  EXPECT_NEAR(w / std::sqrt(z * z + w * w), rotation[3], 1e-6);
}

TEST_F(AnimatorComponentTest, InABlendOfManyAnIdentityRotationYieldsNaN) {
  const uint32_t turn = AddTurn(0, 0, 0.6f, 0.8f);
  const uint32_t none = AddTurn(0, 0, 0, 1);
  const uint32_t entity = scene.Add3D();
  scene.Record3D(entity).rotation[1] = 7;
  scene.Update(
      scene.AddAnimator({{turn, 0, 1}, {turn, 0, 1}, {none, 0, 1}}, {entity, entity, entity}));
  EXPECT_TRUE(SameFloats({0, 7, 0, 0}, scene.Record3D(entity).rotation)) << "nothing arrives";
  EXPECT_EQ(0, scene.Record3D(entity).rotationMode);
}

TEST_F(AnimatorComponentTest, TheNumberOfActiveClipsSelectsTheBlend) {
  // Three clips are active; two of them animate the entity: these two are added, not slerped.
  const uint32_t turn = AddTurn(0, 0, 0.6f, 0.8f);
  const uint32_t none = AddTurn(0, 0, 0, 1);
  const uint32_t other = scene.AddClip(10, {Constant(0, kPosition, 1)});
  const uint32_t entities = scene.Add3D(2);
  scene.Update(scene.AddAnimator({{turn, 0, 1}, {none, 0, 1}, {other, 0, 1}},
                                 {entities, entities, entities + 1}));
  EXPECT_TRUE(SameFloats({0, 0, 0, 0}, scene.Record3D(entities).rotation)) << "spoilt";
  scene.Update(scene.AddAnimator({{turn, 0, 1}, {none, 0, 1}, {other, 0, 0}},
                                 {entities, entities, entities + 1}));
  EXPECT_NE(0.0f, scene.Record3D(entities).rotation[2]) << "two take part";
}

TEST_F(AnimatorComponentTest, A2DEntityTakesFiveChannels) {
  const uint32_t clip = scene.AddClip(10, Constants(0, 1, {1, 2, 3, 4, 5, 6, 0.7f, 0.8f, 0.9f}));
  const uint32_t entity = scene.Add2D();
  const Entity2DRecord before = scene.Record2D(entity);
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {entity}));
  const Entity2DRecord& record = scene.Record2D(entity);
  EXPECT_TRUE(SameFloats({1, 2}, record.position));
  EXPECT_TRUE(SameFloats({4, 5}, record.scale));
  EXPECT_EQ(0.9f, record.rotation);
  EXPECT_NE(0, std::memcmp(before.worldMatrix, record.worldMatrix, sizeof(before.worldMatrix)))
      << "it stands under no root";
}

TEST_F(AnimatorComponentTest, A2DEntityKeepsItsRotationInABlend) {
  const uint32_t clip = scene.AddClip(10, Constants(0, 1, {1, 2, 3, 4, 5, 6, 0.7f, 0.8f, 0.9f}));
  const uint32_t entity = scene.Add2D();
  scene.Record2D(entity).rotation = 0.25f;
  scene.Update(scene.AddAnimator({{clip, 0, 1}, {clip, 0, 1}}, {entity, entity}));
  EXPECT_EQ(0.25f, scene.Record2D(entity).rotation);
  EXPECT_TRUE(SameFloats({1, 2}, scene.Record2D(entity).position));
}

TEST_F(AnimatorComponentTest, A2DEntityUsesTheZOfABlendedQuaternionAsItsAngle) {
  const uint32_t turn = AddTurn(0, 0, 0.6f, 0.8f);
  const uint32_t entity = scene.Add2D();
  scene.Update(scene.AddAnimator({{turn, 0, 1}, {turn, 0, 1}}, {entity, entity}));
  EXPECT_NEAR(0.6f, scene.Record2D(entity).rotation, 1e-7f);
}

//   top (no root)                root
//    ├ a                          └ r
//    │  └ b
//    └ c
TEST_F(AnimatorComponentTest, ATreeWithoutARootGetsItsWorldMatricesAtOnce) {
  const uint32_t top = scene.Add3D(4);
  const uint32_t a = top + 1;
  const uint32_t b = top + 2;
  const uint32_t c = top + 3;
  scene.Link(top, a);
  scene.Link(a, b);
  scene.Link(top, c);
  scene.RunCommands();
  scene.MoveTo(top, 100, 0, 0);
  scene.At(top).UpdateLocalMatrix();
  scene.At(c).UpdateLocalMatrix();
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2)});
  const uint32_t animator = scene.AddAnimator({{clip, 0, 1}}, {b, a});
  scene.Update(animator);
  EXPECT_EQ(b, scene.FirstTargetOf(animator)) << "the first place, not the first handle";
  EXPECT_EQ((std::vector<float>{103, 0, 0}), scene.WorldPosition(b));
  EXPECT_EQ((std::vector<float>{102, 0, 0}), scene.WorldPosition(a));
  EXPECT_EQ((std::vector<float>{100, 0, 0}), scene.WorldPosition(c)) << "all that is marked";
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(0u, scene.At(top + i).dirtyState());
    EXPECT_EQ(1u, scene.At(top + i).worldVersion());
  }
  scene.Update(animator);
  EXPECT_EQ(1u, scene.At(top).worldVersion()) << "only what is marked";
  EXPECT_EQ(1u, scene.At(c).worldVersion());
  EXPECT_EQ(2u, scene.At(a).worldVersion());
}

TEST_F(AnimatorComponentTest, ATreeUnderARootWaitsForTheRefresh) {
  const uint32_t root = scene.Add3D(3);
  scene.AddRoot(root);
  scene.Link(root, root + 1);
  scene.Link(root + 1, root + 2);
  scene.Settle({root, root + 1, root + 2});
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {root + 2}));
  EXPECT_EQ(1u, scene.At(root + 2).worldVersion());
  EXPECT_EQ(2u, scene.At(root + 2).dirtyState());
  EXPECT_EQ(1u, scene.At(root + 1).dirtyState());
  EXPECT_EQ(1u, scene.At(root).dirtyState());
  EXPECT_TRUE(scene.DirtyList().empty());
  scene.Refresh();
  EXPECT_EQ((std::vector<float>{1, 0, 0}), scene.WorldPosition(root + 2));
}

TEST_F(AnimatorComponentTest, ARootBelowANonRootTopDoesNotCount) {
  const uint32_t top = scene.Add3D(2);
  scene.AddRoot(top + 1);
  scene.Link(top, top + 1);
  scene.Refresh();
  const uint32_t version = scene.At(top + 1).worldVersion();
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {top + 1}));
  EXPECT_EQ(version + 1, scene.At(top + 1).worldVersion());
  EXPECT_EQ(0u, scene.At(top).dirtyState());
}

TEST_F(AnimatorComponentTest, OnlyTheTreeOfTheFirstTargetIsUpdated) {
  const uint32_t entities = scene.Add3D(2);
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2)});
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {entities + 1, entities}));
  EXPECT_EQ(1u, scene.At(entities + 1).worldVersion());
  EXPECT_EQ(0u, scene.At(entities).worldVersion());
  EXPECT_EQ(2.0f, X(entities));
}

TEST_F(AnimatorComponentTest, InABlendTheLowestHandleIsTheFirstTarget) {
  const uint32_t entities = scene.Add3D(3);
  const uint32_t clip = scene.AddClip(
      10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2), Constant(2, kPosition, 3)});
  const uint32_t animator =
      scene.AddAnimator({{clip, 0, 1}, {clip, 0, 1}},
                        {entities + 2, 5, entities + 1, entities + 2, entities + 1, entities + 1});
  scene.Update(animator);
  EXPECT_EQ(entities + 1, scene.FirstTargetOf(animator)) << "handle 5 names none";
  EXPECT_EQ(1u, scene.At(entities + 1).worldVersion());
  EXPECT_EQ(0u, scene.At(entities + 2).worldVersion());
}

TEST_F(AnimatorComponentTest, AnInactiveTopIsNotEntered) {
  const uint32_t top = scene.Add3D(2);
  scene.Link(top, top + 1);
  scene.Deactivate(top);
  scene.RunCommands();
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  scene.Update(scene.AddAnimator({{clip, 0, 1}}, {top + 1}));
  EXPECT_EQ(0u, scene.At(top + 1).worldVersion());
  EXPECT_EQ(1.0f, X(top + 1));
}

TEST_F(AnimatorComponentTest, TargetsWithoutAnEntityAreSkipped) {
  const uint32_t entities = scene.Add3D(2);
  const uint32_t gone = scene.Add3D();
  scene.Release(gone);
  const uint32_t clip = scene.AddClip(
      10, {Constant(0, kPosition, 1), Constant(1, kPosition, 2), Constant(2, kPosition, 3),
           Constant(3, kPosition, 4), Constant(4, kPosition, 5)});
  const std::vector<uint32_t> targets = {gone, 0, entities + 2, 0xFFFFFFFFu, entities + 1};
  const uint32_t one = scene.AddAnimator({{clip, 0, 1}}, targets);
  scene.Update(one);
  EXPECT_EQ(entities + 1, scene.FirstTargetOf(one));
  EXPECT_EQ(5.0f, X(entities + 1));
  EXPECT_EQ(0.0f, X(entities));
  std::vector<uint32_t> twice = targets;
  twice.insert(twice.end(), targets.begin(), targets.end());
  const uint32_t blend = scene.AddAnimator({{clip, 0, 1}, {clip, 0, 1}}, twice);
  scene.Update(blend);
  EXPECT_EQ(entities + 1, scene.FirstTargetOf(blend));
}

TEST_F(AnimatorComponentTest, WithoutAnyEntityThereIsNoFirstTarget) {
  const uint32_t entity = scene.Add3D();
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  const uint32_t animator = scene.AddAnimator({{clip, 0, 1}, {clip, 0, 0}}, {entity, entity});
  scene.Update(animator);
  EXPECT_EQ(entity, scene.FirstTargetOf(animator));
  scene.SetTarget(animator, 0, entity + 1);
  scene.Update(animator);
  EXPECT_EQ(0u, scene.FirstTargetOf(animator)) << "that of the last update is forgotten";
  EXPECT_EQ(1u, scene.At(entity).worldVersion()) << "and no tree updated";
  scene.SetTarget(animator, 1, 0xFFFFFFFFu);
  scene.SetPlay(animator, 1, {clip, 0, 1});
  scene.Update(animator);
  EXPECT_EQ(0u, scene.FirstTargetOf(animator));
  EXPECT_EQ(1u, scene.At(entity).worldVersion());
}

TEST_F(AnimatorComponentTest, ChannelsWithoutKeysLeaveTheirFieldsUnchanged) {
  const uint32_t entity = scene.Add3D();
  Entity3DRecord& record = scene.Record3D(entity);
  for (uint32_t type = 1; type <= 13; ++type) {
    std::memset(&record, 0x5A, 44);
    record.rotationMode = 3;
    Entity3DRecord expected = record;
    const size_t words[] = {5, 6, 7, 8, 9, 10, 1, 2, 3, 4, 1, 2, 3};
    const float value = 0.125f;
    std::memcpy(reinterpret_cast<uint8_t*>(&expected) + 4 * words[type - 1], &value, 4);
    expected.rotationMode = type == 10 ? 1 : 3;
    const uint32_t clip = scene.AddClip(10, {Constant(0, type, value)});
    scene.Update(scene.AddAnimator({{clip, 0, 1}}, {entity}));
    EXPECT_EQ(0, std::memcmp(&expected, &record, 44)) << "type " << type;
  }
}

class ApplySampleTest : public AnimationSceneTest {
 protected:
  static ClipSample Sample(bool isQuaternion, const std::vector<float>& channels) {
    ClipSample sample;
    std::copy(channels.begin(), channels.end(), sample.channel);
    sample.isQuaternion = isQuaternion;
    return sample;
  }
};

TEST_F(ApplySampleTest, TheFourthRotationChannelSetsTheRotationMode) {
  const uint32_t entity = scene.Add3D();
  Entity3DRecord& record = scene.Record3D(entity);
  const std::vector<float> all = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  ApplySample(Sample(true, all), &scene.At(entity));
  EXPECT_EQ(1, record.rotationMode);
  EXPECT_TRUE(SameFloats({7, 8, 9, 10}, record.rotation));
  EXPECT_TRUE(SameFloats({1, 2, 3}, record.position));
  EXPECT_TRUE(SameFloats({4, 5, 6}, record.scale));
  ApplySample(Sample(false, all), &scene.At(entity));
  EXPECT_EQ(0, record.rotationMode) << "also back to angles";
  std::vector<float> three = all;
  three[9] = kNone;
  record.rotationMode = 7;
  ApplySample(Sample(true, three), &scene.At(entity));
  EXPECT_EQ(7, record.rotationMode);
}

TEST_F(ApplySampleTest, InfinitiesAreWritten) {
  const uint32_t entity = scene.Add3D();
  const std::vector<float> infinite(10, -kInfinity);
  ApplySample(Sample(true, infinite), &scene.At(entity));
  EXPECT_TRUE(SameFloats(infinite, scene.Record3D(entity).rotation)) << "ten numbers in a row";
}

TEST_F(ApplySampleTest, RandomSamplesChangeOnlyTheirFields) {
  AnimationRandom random(8);
  AnimatorStage stage;
  const uint32_t solid = stage.Add(true, 3) + 1;
  const uint32_t flat = stage.Add(false, 3) + 1;
  for (int i = 0; i < 3000; ++i) {
    const uint32_t handle = random.Chance(70) ? solid : flat;
    ReferenceSample expected;
    expected.isQuaternion = random.Chance(50);
    ClipSample sample;
    for (int c = 0; c < kReferenceChannels; ++c) {
      expected.channel[c] = random.Chance(30) ? kNone : random.Odd(-4, 4);
      sample.channel[c] = expected.channel[c];
    }
    sample.isQuaternion = expected.isQuaternion;
    ApplySample(sample, &stage.scene.At(handle));
    ReferenceApply(expected, handle == solid, stage.plain.At(handle).sharedRecord());
    stage.plain.At(handle).PropagateMarkDirty(false);
    float local[16];
    if (handle == solid) {
      ReferenceLocalMatrix3D(stage.plain.At(handle).sharedRecord(), local);
    } else {
      ReferenceLocalMatrix2D(stage.plain.At(handle).sharedRecord(), local);
    }
    stage.plain.At(handle).UpdateLocalMatrix();
    ASSERT_TRUE(SameFloats(local, stage.scene.At(handle).localMatrix(), 16)) << i;
    ASSERT_TRUE(stage.Agree()) << i;
    if (random.Chance(10)) {
      stage.WriteRecord(handle, &random);
      stage.Refresh();
    }
  }
}

// Random animators on random forests: every byte of every entity is compared after each update.
class RandomAnimators {
 public:
  explicit RandomAnimators(uint32_t seed) : random(seed) {
    stage.Populate(&random, 2 + random.Below(6));
    const uint32_t clipCount = 1 + random.Below(5);
    for (uint32_t i = 0; i < clipCount; ++i) {
      clips.push_back(stage.AddClip(random.Clip(random.Chance(50))));
    }
  }

  void Step() {
    const std::vector<AnimationScene::Play> plays = Plays(1 + random.Below(5));
    std::vector<uint32_t> targets;
    uint32_t length = 1;
    for (const AnimationScene::Play& play : plays) {
      length += static_cast<uint32_t>(stage.ClipOf(play.clip).tracks.size());
    }
    // As clips of one character do, or at random.
    const bool isCharacter = random.Chance(60);
    const uint32_t start = random.Below(100);
    uint32_t place = 0;
    for (const AnimationScene::Play& play : plays) {
      const size_t tracks = stage.ClipOf(play.clip).tracks.size();
      for (size_t i = 0; i < tracks; ++i, ++place) {
        const std::vector<uint32_t>& all = stage.Entities();
        targets.push_back(isCharacter && random.Chance(97)
                              ? all[(start + i) % static_cast<uint32_t>(all.size())]
                              : stage.AnyTarget(&random));
      }
    }
    targets.push_back(stage.AnyTarget(&random));
    if (random.Chance(5)) {
      targets.resize(1 + random.Below(length));
    }
    AnimatorStage::Animator animator = stage.AddAnimator(plays, targets);
    for (uint32_t updates = 1 + random.Below(4); updates != 0; --updates) {
      stage.Update(animator);
      ASSERT_TRUE(stage.AgreeOnFirst(animator));
      ASSERT_TRUE(stage.Agree());
      for (AnimationScene::Play& play : animator.plays) {
        play.time = random.Time(stage.ClipOf(play.clip));
        play.weight = Weight();
      }
      stage.SetPlays(&animator, animator.plays);
      if (random.Chance(30)) {
        stage.WriteRecord(
            stage.Entities()[random.Below(static_cast<uint32_t>(stage.Entities().size()))],
            &random);
        stage.Refresh();
      }
    }
  }

 private:
  float Weight() {
    return random.Chance(75) ? random.OneOf({1.0f, 0.2f, 0.6f, random.Real(0, 1)})
                             : random.OneOf({0.0f, -0.5f, kNone, 1.5f, 1e-45f, 1e-20f, kInfinity});
  }

  std::vector<AnimationScene::Play> Plays(uint32_t count) {
    std::vector<AnimationScene::Play> plays;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t clip = clips[random.Below(static_cast<uint32_t>(clips.size()))];
      plays.push_back({clip, random.Time(stage.ClipOf(clip)), Weight()});
    }
    return plays;
  }

  AnimationRandom random;
  AnimatorStage stage;
  std::vector<uint32_t> clips;
};

TEST(AnimatorComponentRandomTest, AnimatorsMatchThePlainModel) {
  for (int seed = 0; seed < Rounds(600); ++seed) {
    RandomAnimators animators(static_cast<uint32_t>(seed));
    for (int step = 0; step < 8; ++step) {
      animators.Step();
      if (::testing::Test::HasFailure()) {
        FAIL() << "seed " << seed << ", step " << step;
      }
    }
  }
}

constexpr char kSource[] = "..\\..\\Engine\\Animation\\AnimatorComponent";
constexpr char kMissing[] = "[NQ_FATAL][Engine]: AnimationClipModel not found\n";

// What the SIGABRT handler prints: the x of an entity.
const float* abortedX;

void PrintX(int) {
  std::fprintf(stdout, "x is %g\n", static_cast<double>(*abortedX));
  std::fflush(stdout);
  std::signal(SIGABRT, SIG_DFL);
}

TEST(AnimatorComponentDeathTest, AMissingClipIsFatalAtAnyWeightAndNothingIsWritten) {
  for (const float weight : {1.0f, 0.0f, -1.0f, kNone}) {
    for (const bool comesLast : {false, true}) {
      EXPECT_TRUE(EndsWith(std::string(kMissing) + "x is 7\n", kSource, 29,
                           [weight, comesLast] {
                             AnimationScene scene;
                             const uint32_t entity = scene.Add3D();
                             scene.MoveTo(entity, 7, 0, 0);
                             const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
                             const AnimationScene::Play good = {clip, 0, 1};
                             const AnimationScene::Play bad = {clip + 0x1000, 0, weight};
                             const uint32_t animator =
                                 comesLast ? scene.AddAnimator({good, good, bad}, {entity, entity})
                                           : scene.AddAnimator({bad, good}, {entity, entity});
                             abortedX = scene.Record3D(entity).position;
                             std::signal(SIGABRT, PrintX);
                             scene.Update(animator);
                           }))
          << weight << comesLast;
    }
  }
}

TEST(AnimatorComponentDeathTest, AReleasedClipIsFatal) {
  EXPECT_TRUE(EndsWith(kMissing, kSource, 29, [] {
    AnimationScene scene;
    const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
    const uint32_t animator = scene.AddAnimator({{clip, 0, 1}}, {scene.Add3D()});
    scene.Update(animator);
    scene.ReleaseClip(clip);
    scene.Update(animator);
  }));
}

TEST(AnimatorComponentDeathTest, AFreshBlockIsFatal) {
  EXPECT_TRUE(EndsWith(kMissing, kSource, 29, [] {
    AnimationScene scene;
    scene.Update(scene.AddAnimator(1, 1));
  }));
}

TEST(AnimatorComponentDeathTest, AMalformedClipIsFatalAtTheFirstUpdateEvenAtWeight0) {
  EXPECT_TRUE(
      EndsWith("created\n[NQ_FATAL][Engine]: wrong sample type\n",
               "..\\..\\Engine\\Animation\\AnimationClipModel", 328, [] {
                 AnimationScene scene;
                 const uint32_t clip = scene.AddClip(10, {Constant(0, 14, 1)});
                 const uint32_t animator = scene.AddAnimator({{clip, 0, 0}}, {scene.Add3D()});
                 NQ_LOG("created", "\n");
                 scene.Update(animator);
               }));
}

// The tree of an entity without a root is climbed to its top, which a parent cycle does not have.
TEST(AnimatorComponentDeathTest, AParentCycleIsFatal) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  AnimationScene scene;
  const uint32_t e = scene.Add3D(2);
  scene.Link(e, e + 1);
  scene.Link(e + 1, e);
  scene.RunCommands();
  const uint32_t clip = scene.AddClip(10, {Constant(0, kPosition, 1)});
  const uint32_t animator = scene.AddAnimator({{clip, 0, 1}}, {e});
  EXPECT_EXIT(
      {
        std::fflush(stdout);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        scene.Update(animator);
      },
      testing::KilledBySignal(SIGABRT),
      "^\\[NQ_FATAL\\]\\[Engine\\]: Parent cycle detected, entity: 409[67]\n"
      "Assertion failed: 0, file Engine/Entity/WorldTransform, line [0-9]+\n"
      "(qemu: [^\n]*\n)?$");  // added by an emulator, if one runs this
}

}  // namespace
}  // namespace nq::engine
