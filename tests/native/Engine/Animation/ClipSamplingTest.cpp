// Values of single channels, and the blend of two samples.
#include "Engine/Animation/ClipSampling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Engine/Animation/ClipTimelines.h"
#include "tests/native/Engine/Animation/AnimationScene.h"

namespace nq::engine {
namespace {

constexpr uint32_t kRate = 30;

std::vector<ClipKey> KeysOf(const std::vector<ReferenceKey>& keys) {
  std::vector<ClipKey> result;
  for (const ReferenceKey& key : keys) {
    result.push_back(ClipKey{key.frame, key.value, key.inTangent, key.outTangent});
  }
  return result;
}

// One track, sampled by itself.
ClipSample SampleTrack(const ClipTrack& track, float time, uint32_t rate) {
  ClipTimelines timelines;
  timelines.Build({track});
  ClipSample sample;
  timelines.Sample(time, rate, &sample);
  return sample;
}

// The value of a channel whose neighbours have no keys.
float SampleChannel(const std::vector<ClipKey>& keys, float time, uint32_t rate) {
  ClipTrack track;
  track.channels[0] = keys;
  return SampleTrack(track, time, rate).channel[0];
}

float At(const std::vector<ReferenceKey>& keys, float time, uint32_t rate = kRate) {
  return SampleChannel(KeysOf(keys), time, rate);
}

ReferenceSample Pose(bool isQuaternion, const std::vector<float>& rotation) {
  ReferenceSample sample;
  sample.isQuaternion = isQuaternion;
  std::fill(sample.channel, sample.channel + kReferenceChannels, kNone);
  std::copy(rotation.begin(), rotation.end(), sample.channel + kTurnX);
  return sample;
}

ClipSample Ours(const ReferenceSample& sample) {
  ClipSample result;
  std::copy(sample.channel, sample.channel + kReferenceChannels, result.channel);
  result.isQuaternion = sample.isQuaternion;
  return result;
}

// Blends with the engine's code, and compares the result with the model's.
ClipSample Blended(const ReferenceSample& a, const ReferenceSample& b, float t, bool many) {
  ReferenceSample expected = a;
  ReferenceBlend(&expected, b, t, many);
  ClipSample sample = Ours(a);
  const ClipSample other = Ours(b);
  BlendSample(&sample, other, t, many);
  EXPECT_TRUE(SameSample(expected, sample)) << "t " << t << ", many " << many;
  EXPECT_TRUE(SameSample(b, other));
  return sample;
}

void ExpectRotation(const std::vector<float>& expected, const ClipSample& sample) {
  for (size_t i = 0; i < expected.size(); ++i) {
    if (std::isnan(expected[i])) {
      EXPECT_TRUE(std::isnan(sample.channel[kTurnX + i])) << i;
    } else {
      EXPECT_NEAR(expected[i], sample.channel[kTurnX + i], 1e-6f) << i;
    }
  }
}

TEST(ClipSamplingTest, AChannelWithoutKeysIsNaNAtAnyTime) {
  for (const float time : {0.0f, 1.5f, -1.0f, kNone, kInfinity, -kInfinity}) {
    EXPECT_TRUE(std::isnan(At({}, time))) << time;
  }
}

TEST(ClipSamplingTest, AChannelOfOneKeyHoldsItsValueAtAnyTime) {
  for (const float time : {0.0f, 7.0f, 6.5f, 1e9f, -3.25f, kNone, kInfinity, -kInfinity}) {
    EXPECT_EQ(2.5f, At({{7, 2.5f, 100, kInfinity}}, time)) << time;
  }
}

TEST(ClipSamplingTest, TheFirstValueHoldsBeforeTheFirstKeyAndTheLastAfterTheLast) {
  const std::vector<ReferenceKey> keys = {{10, 1, 5, 5}, {20, 2, 5, 5}, {30, 4, 5, 5}};
  for (const float time : {-kInfinity, -5.5f, 0.0f, 9.99f, 10.0f}) {
    EXPECT_EQ(1.0f, At(keys, time)) << time;
  }
  for (const float time : {30.0f, 30.01f, 31.0f, 1e30f, kInfinity}) {
    EXPECT_EQ(4.0f, At(keys, time)) << time;
  }
}

TEST(ClipSamplingTest, ATimeOfNaNGivesTheLastValue) {
  EXPECT_EQ(4.0f, At({{10, 1, 5, 5}, {20, 2, 5, 5}, {30, 4, 5, 5}}, kNone));
  EXPECT_EQ(4.0f, At({{30, 1, 0, 0}, {20, 2, 0, 0}, {10, 4, 0, 0}}, kNone));
}

TEST(ClipSamplingTest, ExactlyOnAKeyTheCurveIsNotEvaluated) {
  // Tangents that would yield NaN: an infinity times zero.
  const std::vector<ReferenceKey> keys = {
      {0, 1, 0, 0}, {10, 2, kInfinity, 3e38f}, {20, 3, kInfinity, 0}};
  EXPECT_EQ(2.0f, At(keys, 10));
  EXPECT_EQ(3.0f, At(keys, 20));
  EXPECT_EQ(2.0f, At(keys, 10, 0)) << "not even with 0 frames per second";
}

//   value 8 |              .--o       Hermite weights at the middle: 1/2, 1/2, 1/8, -1/8
//           |           .-
//         0 o---------'
//           0    frames        30
TEST(ClipSamplingTest, TheMiddleOfASegment) {
  EXPECT_EQ(4.0f, At({{0, 0, 0, 0}, {30, 8, 0, 0}}, 15));
  // A second long at 30 frames per second: tangents count in full.
  EXPECT_EQ(4.0f + 0.5f, At({{0, 0, 0, 4}, {30, 8, 0, 0}}, 15));
  EXPECT_EQ(4.0f - 0.75f, At({{0, 0, 0, 0}, {30, 8, 6, 0}}, 15));
  EXPECT_EQ(4.0f + 0.5f - 0.75f, At({{0, 0, 9, 4}, {30, 8, 6, 9}}, 15)) << "only the inner ones";
  // Half a second long at 60.
  EXPECT_EQ(4.0f + 0.25f, At({{0, 0, 0, 4}, {30, 8, 0, 0}}, 15, 60));
  EXPECT_EQ(4.0f - 0.375f, At({{0, 0, 0, 0}, {30, 8, 6, 0}}, 15, 60));
}

// At a quarter the weights are 27/32, 5/32, 9/64 and -3/64, all exact.
TEST(ClipSamplingTest, AQuarterOfASegment) {
  EXPECT_EQ(27.0f, At({{8, 32, 0, 0}, {24, 0, 0, 0}}, 12, 16));
  EXPECT_EQ(5.0f, At({{8, 0, 0, 0}, {24, 32, 0, 0}}, 12, 16));
  EXPECT_EQ(9.0f, At({{8, 0, 0, 64}, {24, 0, 0, 0}}, 12, 16));
  EXPECT_EQ(-3.0f, At({{8, 0, 0, 0}, {24, 0, 64, 0}}, 12, 16));
}

TEST(ClipSamplingTest, AnInfiniteOutTangentAtTheSegmentsStartMakesAStep) {
  for (const float infinite : {kInfinity, -kInfinity}) {
    const std::vector<ReferenceKey> keys = {{0, 1, 0, infinite}, {10, 2, 0, 0}, {20, 3, 0, 0}};
    EXPECT_EQ(1.0f, At(keys, 0.5f));
    EXPECT_EQ(1.0f, At(keys, 9.99f));
    EXPECT_EQ(2.0f, At(keys, 10));
    EXPECT_EQ(2.5f, At(keys, 15)) << "the next segment is none";
  }
}

TEST(ClipSamplingTest, AnInfiniteOutTangentAtTheSegmentsEndMakesAStep) {
  for (const float infinite : {kInfinity, -kInfinity}) {
    const std::vector<ReferenceKey> keys = {{0, 1, 0, 0}, {10, 2, 0, infinite}, {20, 3, 0, 0}};
    EXPECT_EQ(1.0f, At(keys, 5));
    EXPECT_EQ(2.0f, At(keys, 15));
  }
}

TEST(ClipSamplingTest, AnInfiniteInTangentMakesNoStep) {
  EXPECT_EQ(-kInfinity, At({{0, 1, 0, 0}, {10, 2, kInfinity, 0}}, 5)) << "its weight is negative";
  EXPECT_EQ(kInfinity, At({{0, 1, 0, 0}, {10, 2, -kInfinity, 0}}, 5));
  EXPECT_EQ(1.5f, At({{0, 1, kInfinity, 0}, {10, 2, 0, 0}}, 5)) << "before the segment";
}

TEST(ClipSamplingTest, OfTwoKeysOnAFrameTheFirstIsFound) {
  const std::vector<ReferenceKey> keys = {
      {0, 1, 0, 0}, {10, 2, 0, 0}, {10, 7, 0, 0}, {20, 9, 0, 0}};
  EXPECT_EQ(2.0f, At(keys, 10));
  EXPECT_EQ(1.5f, At(keys, 5)) << "up to the first of them";
  EXPECT_EQ(8.0f, At(keys, 15)) << "from the second on";
}

// The search stops at the first key that is at or after the time, whatever follows.
TEST(ClipSamplingTest, UnsortedKeysAreSearchedInStoredOrder) {
  const std::vector<ReferenceKey> keys = {
      {20, 1, 0, 0}, {10, 3, 0, 0}, {30, 5, 0, 0}, {25, 6, 0, 0}, {40, 7, 0, 0}};
  EXPECT_EQ(1.0f, At(keys, 5)) << "the first is at or after it";
  EXPECT_EQ(1.0f, At(keys, 15));
  EXPECT_EQ(1.0f, At(keys, 20));
  EXPECT_EQ(4.6875f, At(keys, 25)) << "three quarters from 10 to 30; 25 itself stands behind";
  EXPECT_EQ(5.0f, At(keys, 30));
  EXPECT_EQ(6.5f, At(keys, 32.5f)) << "half way from 25 to 40";
  EXPECT_EQ(7.0f, At(keys, 41));
}

TEST(ClipSamplingTest, ZeroFramesPerSecondMakeSegmentsOfInfiniteLength) {
  EXPECT_TRUE(std::isnan(At({{0, 1, 0, 0}, {10, 2, 0, 0}}, 5, 0))) << "0 times infinity";
  EXPECT_TRUE(std::isnan(At({{0, 1, 0, 4}, {10, 2, 0, 0}}, 5, 0)));
  EXPECT_EQ(kInfinity, At({{0, 1, 0, 4}, {10, 2, -4, 0}}, 5, 0));
  EXPECT_EQ(-kInfinity, At({{0, 1, 0, -4}, {10, 2, 4, 0}}, 5, 0));
  EXPECT_EQ(1.0f, At({{0, 1, 0, kInfinity}, {10, 2, 0, 0}}, 5, 0)) << "a step is not evaluated";
  EXPECT_EQ(2.0f, At({{0, 1, 0, 0}, {10, 2, 0, 0}}, 10, 0));
}

TEST(ClipSamplingTest, FramesAreOrderedAsFloatsAndMatchedAsIntegers) {
  // As a float 16777217 is 16777216.
  const std::vector<ReferenceKey> keys = {
      {16777210, 1, 0, 0}, {16777217, 2, 0, 0}, {16777230, 3, 0, 0}};
  EXPECT_NE(2.0f, At(keys, 16777216.0f)) << "found there, but not hit";
  EXPECT_TRUE(SameFloat(ReferenceSampleChannel(keys, 16777216.0f, kRate), At(keys, 16777216.0f)));
  const std::vector<ReferenceKey> hit = {
      {16777210, 1, 0, 0}, {16777216, 2, 0, 0}, {16777230, 3, 0, 0}};
  EXPECT_EQ(2.0f, At(hit, 16777216.0f));
  EXPECT_EQ(3.0f, At(keys, 16777230.0f));
}

TEST(ClipSamplingTest, ANegativeZeroIsTime0) {
  EXPECT_EQ(3.0f, At({{0, 3, 0, 0}, {10, 2, 0, 0}}, -0.0f));
}

TEST(ClipSamplingTest, RandomChannelsMatchTheModelBitForBit) {
  const int rounds = Rounds(60000);
  int evaluated = 0;
  for (int round = 0; round < rounds; ++round) {
    AnimationRandom random(static_cast<uint32_t>(round));
    const std::vector<ReferenceKey> keys = random.Keys(random.Frames());
    const std::vector<ClipKey> ours = KeysOf(keys);
    const uint32_t rate = ReferenceTruncate(random.Rate());
    ReferenceClip clip({});
    clip.tracks[0].channels[0] = keys;
    for (int i = 0; i < 20; ++i) {
      const float time = random.Time(clip);
      const float expected = ReferenceSampleChannel(keys, time, rate);
      const float actual = SampleChannel(ours, time, rate);
      ASSERT_TRUE(SameFloat(expected, actual))
          << "seed " << round << ", time " << time << ": " << actual << " instead of " << expected;
      const bool isKeys =
          std::any_of(keys.begin(), keys.end(),
                      [expected](const ReferenceKey& key) { return key.value == expected; });
      evaluated += !isKeys && !std::isnan(expected) ? 1 : 0;
    }
  }
  EXPECT_GT(evaluated, 2 * rounds);
}

TEST(ClipSamplingTest, ATrackIsSampledAsTenChannels) {
  ClipTrack track;
  track.isQuaternion = true;
  for (uint32_t c = 0; c < kClipChannels; ++c) {
    if (c != 4) {
      track.channels[c] = KeysOf({{0, static_cast<float>(c), 0, 0}, {10, 20, 0, 0}});
    }
  }
  ReferenceSample expected;
  expected.isQuaternion = true;
  for (int c = 0; c < kReferenceChannels; ++c) {
    expected.channel[c] = (static_cast<float>(c) + 20.0f) / 2;
  }
  expected.channel[4] = kNone;
  EXPECT_TRUE(SameSample(expected, SampleTrack(track, 5, kRate)));
}

TEST(ClipSamplingTest, QuaternionsAreSampledAsPlainNumbers) {
  ClipTrack track;
  track.isQuaternion = true;
  track.channels[kTurnX] = KeysOf({{0, 1, 0, 0}, {10, 0, 0, 0}});
  track.channels[kTurnY] = KeysOf({{0, 0, 0, 0}, {10, 0, 0, 0}});
  track.channels[kTurnZ] = KeysOf({{0, 0, 0, 0}, {10, 0, 0, 0}});
  track.channels[kTurnW] = KeysOf({{0, 0, 0, 0}, {10, -1, 0, 0}});
  const ClipSample sample = SampleTrack(track, 5, kRate);
  EXPECT_EQ(0.5f, sample.channel[kTurnX]);
  EXPECT_EQ(-0.5f, sample.channel[kTurnW]) << "neither on the arc nor of length 1";
}

TEST(ClipSamplingTest, LerpOfTwoNumbers) {
  EXPECT_EQ(7.0f, LerpChannel(4, 8, 0.75f));
  EXPECT_EQ(4.0f, LerpChannel(4, 8, 0));
  EXPECT_EQ(8.0f, LerpChannel(4, 8, 1));
}

TEST(ClipSamplingTest, LerpLetsAnAbsentSideContributeNothing) {
  EXPECT_EQ(6.0f, LerpChannel(kNone, 8, 0.75f)) << "its own weight, not its full value";
  EXPECT_EQ(1.0f, LerpChannel(4, kNone, 0.75f));
  EXPECT_EQ(4.0f, LerpChannel(4, kNone, 0)) << "t of 0 keeps a";
  EXPECT_EQ(8.0f, LerpChannel(kNone, 8, 1)) << "t of 1 gives b";
  EXPECT_TRUE(std::isnan(LerpChannel(kNone, kNone, 0.75f)));
}

TEST(ClipSamplingTest, LerpComputesItsTermsInTheStatedOrder) {
  AnimationRandom random(11);
  for (int i = 0; i < 20000; ++i) {
    const float a = random.Odd(-100, 100);
    const float b = random.Odd(-100, 100);
    const float t = random.Odd(-0.25f, 1.25f);
    ASSERT_TRUE(SameFloat(ReferenceLerp(a, b, t), LerpChannel(a, b, t)))
        << a << ' ' << b << ' ' << t;
  }
}

TEST(ClipSamplingTest, PositionAndScaleAreLerped) {
  ReferenceSample a = Pose(false, {});
  ReferenceSample b = Pose(false, {});
  const float from[6] = {0, 10, 20, kNone, 40, kNone};
  const float to[6] = {8, kNone, 28, 38, 48, kNone};
  std::copy(from, from + 6, a.channel);
  std::copy(to, to + 6, b.channel);
  const ClipSample sample = Blended(a, b, 0.25f, false);
  const float expected[6] = {2, 7.5f, 22, 9.5f, 42, kNone};
  EXPECT_TRUE(SameFloats(expected, sample.channel, 6));
  EXPECT_TRUE(SameFloats(expected, Blended(a, b, 0.25f, true).channel, 6));
}

TEST(ClipSamplingTest, AnglesAreLerpedAndTheFourthChannelIsUnchanged) {
  for (const bool many : {false, true}) {
    const ClipSample sample =
        Blended(Pose(false, {1, 2, kNone, 9}), Pose(true, {3, kNone, 4, 0}), 0.5f, many);
    EXPECT_FALSE(sample.isQuaternion) << "what comes in is not asked";
    const float expected[4] = {2, 1, 2, 9};
    EXPECT_TRUE(SameFloats(expected, sample.channel + kTurnX, 4));
  }
}

TEST(ClipSamplingTest, AQuaternionTreatsAnglesAsAMissingQuaternion) {
  // Angles have no fourth channel, and so count as a missing quaternion.
  const ClipSample sample =
      Blended(Pose(true, {0, 0, 0.6f, 0.8f}), Pose(false, {1, 2, 3, kNone}), 0.5f, false);
  EXPECT_TRUE(sample.isQuaternion);
  const float expected[4] = {0, 0, 0.6f, 0.8f};
  EXPECT_TRUE(SameFloats(expected, sample.channel + kTurnX, 4));
}

TEST(ClipSamplingTest, AMissingQuaternionIsReplacedOrSkipped) {
  const std::vector<float> whole = {0.5f, 0.5f, 0.5f, 0.5f};
  const std::vector<float> none = {kNone, kNone, kNone, kNone};
  for (const bool many : {false, true}) {
    for (size_t absent = 0; absent < 4; ++absent) {
      std::vector<float> partial = {0.1f, 0.2f, 0.3f, 0.4f};
      partial[absent] = kNone;
      const ReferenceSample complete = Pose(true, whole);
      const ReferenceSample broken = Pose(true, partial);
      EXPECT_TRUE(SameFloats(whole, Blended(complete, broken, 0.75f, many).channel + kTurnX));
      EXPECT_TRUE(SameFloats(whole, Blended(broken, complete, 0.75f, many).channel + kTurnX));
      EXPECT_TRUE(
          SameFloats(none, Blended(broken, Pose(true, none), 0.75f, many).channel + kTurnX));
    }
  }
}

//   about z:  0 and 90 degrees, a third of the way is 30 degrees
TEST(ClipSamplingTest, TwoQuaternionsAreSlerped) {
  const float h = std::sqrt(0.5f);
  const ClipSample sample =
      Blended(Pose(true, {0, 0, 0, 1}), Pose(true, {0, 0, h, h}), 1 / 3.0f, false);
  ExpectRotation({0, 0, 0.258819045f, 0.965925826f}, sample);
}

TEST(ClipSamplingTest, SlerpTakesTheShorterArc) {
  const float h = std::sqrt(0.5f);
  const ClipSample sample =
      Blended(Pose(true, {0, 0, 0, 1}), Pose(true, {0, 0, -h, -h}), 1 / 3.0f, false);
  ExpectRotation({0, 0, 0.258819045f, 0.965925826f}, sample);
}

TEST(ClipSamplingTest, SlerpOfNearlyEqualQuaternionsIsLinearAndNotNormalised) {
  // Lengths other than 1 lead there, too: the dot product is at least 1 - 1e-6.
  const ClipSample sample =
      Blended(Pose(true, {0, 0, 0, 2}), Pose(true, {2, 0, 0, 2}), 0.25f, false);
  const float expected[4] = {0.5f, 0, 0, 2};
  EXPECT_TRUE(SameFloats(expected, sample.channel + kTurnX, 4));
}

TEST(ClipSamplingTest, TheLinearThresholdOfSlerpIsComparedInDouble) {
  // Around a dot product of 1 - 1e-6: floats there are 6e-8 apart.
  for (int ulps = -40; ulps <= 40; ++ulps) {
    float w = 1.0f - 1e-6f;
    for (int i = 0; i < std::abs(ulps); ++i) {
      w = std::nextafter(w, ulps < 0 ? 0.0f : 2.0f);
    }
    for (const float t : {0.3f, 0.9f}) {
      Blended(Pose(true, {0, 0, 0, 1}), Pose(true, {0.3f, 0.2f, 0.1f, w}), t, false);
      Blended(Pose(true, {0, 0, 0, -1}), Pose(true, {0.3f, 0.2f, 0.1f, w}), t, false);
    }
  }
}

TEST(ClipSamplingTest, ManyQuaternionsAreAddedAsScaledRotations) {
  const float h = std::sqrt(0.5f);
  // Half of 90 degrees about z, as sine and cosine of 22.5 degrees, added to the sum.
  const ReferenceSample turned = Pose(true, {0, 0, h, h});
  ExpectRotation({0, 0, 0.382683432f, 1.923879533f},
                 Blended(Pose(true, {0, 0, 0, 1}), turned, 0.5f, true));
  // The same rotation by its negative: the dot product with the sum is negative, so h is, too.
  ExpectRotation({0, 0, -0.382683432f, 1.923879533f},
                 Blended(Pose(true, {0, 0, 0, 1}), Pose(true, {0, 0, -h, -h}), 0.5f, true));
  ExpectRotation({0, 0, -0.382683432f, -1.0f + 0.923879533f},
                 Blended(Pose(true, {0, 0, 0, -1}), turned, 0.5f, true));
}

TEST(ClipSamplingTest, BlendsOfManyNegateAQuaternionWhoseWIsNotPositive) {
  // w of 0 counts as not positive: a half turn about x is taken about -x.
  ExpectRotation({-0.707106781f + 0.5f, 0, 0, 0.5f + 0.707106781f},
                 Blended(Pose(true, {0.5f, 0, 0, 0.5f}), Pose(true, {1, 0, 0, 0}), 0.5f, true));
}

// A half turn is orthogonal to the identity: a dot product of 0 counts as positive.
TEST(ClipSamplingTest, BlendsOfManyTreatADotProductOf0AsPositive) {
  ExpectRotation({-0.707106781f, 0, 0, 1.707106781f},
                 Blended(Pose(true, {0, 0, 0, 1}), Pose(true, {1, 0, 0, 0}), 0.5f, true));
}

TEST(ClipSamplingTest, BlendsOfManyPropagateTheNaNOfARotationWithoutAxis) {
  const ClipSample sample =
      Blended(Pose(true, {0, 0, 0.6f, 0.8f}), Pose(true, {0, 0, 0, 1}), 0.5f, true);
  ExpectRotation({kNone, kNone, kNone, 1.8f}, sample);
}

TEST(ClipSamplingTest, RandomBlendsMatchTheModelBitForBit) {
  AnimationRandom random(12);
  int slerped = 0;
  for (int i = 0; i < Rounds(60000); ++i) {
    ReferenceSample a = Pose(random.Chance(80), {});
    ReferenceSample b = Pose(random.Chance(80), {});
    const bool isOdd = random.Chance(20);
    for (int c = 0; c < kReferenceChannels; ++c) {
      const float reach = c < 6 ? 10.0f : 1.0f;
      a.channel[c] = isOdd ? random.Odd(-reach, reach) : random.Real(-reach, reach);
      b.channel[c] = isOdd ? random.Odd(-reach, reach) : random.Real(-reach, reach);
      if (random.Chance(3)) {
        (random.Chance(50) ? a : b).channel[c] = kNone;
      }
    }
    if (random.Chance(20)) {
      for (int c = 6; c < kReferenceChannels; ++c) {
        b.channel[c] = a.channel[c] + random.Real(-1e-3f, 1e-3f);
      }
    }
    const float t = random.Chance(90) ? random.Real(0, 1) : random.Odd(0, 1);
    const bool many = random.Chance(50);
    slerped += !many && a.isQuaternion && !isOdd ? 1 : 0;
    Blended(a, b, t, many);
    if (::testing::Test::HasFailure()) {
      FAIL() << "round " << i;
    }
  }
  EXPECT_GT(slerped, Rounds(60000) / 5);
}

// Four slerps at once, compared with the model.
TEST(SlerpFourTest, RandomPairsMatchTheModelBitForBit) {
  AnimationRandom random(13);
  int computed = 0;
  int linear = 0;
  for (int round = 0; round < Rounds(60000); ++round) {
    ReferenceSample a[4];
    ReferenceSample b[4];
    const auto gather = [](const ReferenceSample(&samples)[4]) {
      return TransposeFour(
          _mm_loadu_ps(samples[0].channel + kTurnX), _mm_loadu_ps(samples[1].channel + kTurnX),
          _mm_loadu_ps(samples[2].channel + kTurnX), _mm_loadu_ps(samples[3].channel + kTurnX));
    };
    for (int lane = 0; lane < 4; ++lane) {
      a[lane] = Pose(true, {});
      b[lane] = Pose(true, {});
      // Equal, nearly equal, opposite, perpendicular, long and any.
      const uint32_t kind = random.Below(10);
      for (int c = 6; c < kReferenceChannels; ++c) {
        a[lane].channel[c] = random.Real(-0.7f, 0.7f);
        b[lane].channel[c] = kind == 0   ? a[lane].channel[c]
                             : kind == 1 ? a[lane].channel[c] + random.Real(-2e-3f, 2e-3f)
                             : kind == 2 ? -a[lane].channel[c]
                             : kind == 3 ? random.OneOf({0.0f, -0.0f, kInfinity})
                             : kind == 4 ? random.Real(-2, 2)
                                         : random.Real(-0.7f, 0.7f);
      }
    }
    const float t = random.Chance(90) ? random.Real(0, 1) : random.OneOf({0.0f, 0.5f, 1.0f, 1e-9f});
    FourQuaternions blended;
    if (!SlerpFour(gather(a), gather(b), t, &blended)) {
      continue;
    }
    ++computed;
    __m128 rotations[4];
    StoreTransposed(blended, rotations);
    for (int lane = 0; lane < 4; ++lane) {
      ReferenceSample expected = a[lane];
      ReferenceBlend(&expected, b[lane], t, false);
      float actual[4];
      _mm_storeu_ps(actual, rotations[lane]);
      ASSERT_TRUE(SameFloats(expected.channel + kTurnX, actual, 4)) << "round " << round;
      linear += a[lane].channel[kTurnX] == b[lane].channel[kTurnX] ? 1 : 0;
    }
  }
  EXPECT_GT(computed, Rounds(60000) * 99 / 100);
  EXPECT_GT(linear, 0);
}

// On both sides of the distance from which rotations are blended linearly.
TEST(SlerpFourTest, TheLinearThresholdIsThatOfSingleSlerps) {
  const FourQuaternions a = {_mm_set1_ps(1), _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
  int unsure = 0;
  for (int below = 0; below < 40; ++below) {
    const float cosine = 1.0f - static_cast<float>(below) / 16777216.0f;
    const FourQuaternions b = {_mm_set1_ps(cosine), _mm_set1_ps(0.25f), _mm_set1_ps(-1),
                               _mm_set1_ps(2)};
    FourQuaternions blended;
    if (!SlerpFour(a, b, 0.3f, &blended)) {
      ++unsure;
      continue;
    }
    __m128 rotations[4];
    StoreTransposed(blended, rotations);
    float actual[4];
    _mm_storeu_ps(actual, rotations[2]);
    const ClipSample expected =
        Blended(Pose(true, {1, 0, 0, 0}), Pose(true, {cosine, 0.25f, -1, 2}), 0.3f, false);
    ASSERT_TRUE(SameFloats(expected.channel + kTurnX, actual, 4)) << below;
  }
  // At 18 the angle's sine is next to a rounding tie.
  EXPECT_EQ(1, unsure);
}

}  // namespace
}  // namespace nq::engine
