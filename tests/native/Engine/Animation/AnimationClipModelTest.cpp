// Parsing of clips, their frame cache, and random clips against a plain model.
#include "Engine/Animation/AnimationClipModel.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "Common/Def/Log.h"
#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Animation/ParsedTracks.h"

namespace nq::engine {
namespace {

constexpr uint32_t kQuaternionWType = 10;

AnimationClipModel ModelOf(const std::vector<uint8_t>& bytes) {
  return AnimationClipModel(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

// A clip of a few frames at 30 per second.
AnimationClipModel ModelOf(uint32_t frameCount, const std::vector<ReferenceCurve>& curves) {
  return ModelOf(ReferenceBytes(30.0f, frameCount, curves));
}

// A sample of the model: the value of one channel of one target.
float ValueOf(const SampleMap& samples, uint32_t target, uint32_t channel) {
  const ClipSample* sample = samples.Find(target);
  EXPECT_NE(nullptr, sample) << "target " << target;
  return sample == nullptr ? kNone : sample->channel[channel];
}

void SetWord(std::vector<uint8_t>* bytes, size_t offset, uint32_t word) {
  std::memcpy(bytes->data() + offset, &word, 4);
}

TEST(AnimationClipModelTest, BytesNoLongerThanAHeaderAreIgnored) {
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 60, {Constant(0, 1, 5)});
  for (uint32_t size = 0; size <= 16; ++size) {
    AnimationClipModel model(size == 0 ? nullptr : bytes.data(), size);
    EXPECT_EQ(0u, model.TrackCount()) << size;
    EXPECT_EQ(0u, model.frameCount());
    EXPECT_EQ(0u, model.framesPerSecond());
    EXPECT_EQ(0u, model.SampleAtFrame(0).Size());
    EXPECT_EQ(0u, model.SampleAtFrame(7).Size());
    EXPECT_EQ(0u, model.SampleAtTime(0.5f).Size());
    EXPECT_TRUE(ParsedTracks::Of(model).empty());
    EXPECT_EQ(0u, model.CachedFrames());
  }
}

TEST(AnimationClipModelTest, FrameCountAndRateAreReadWithoutCurves) {
  std::vector<uint8_t> bytes = ReferenceBytes(25.0f, 60, {});
  bytes.resize(20);
  AnimationClipModel model = ModelOf(bytes);
  EXPECT_EQ(0u, model.TrackCount());
  EXPECT_EQ(60u, model.frameCount());
  EXPECT_EQ(25u, model.framesPerSecond());
  EXPECT_EQ(0u, model.SampleAtFrame(61).Size());
  EXPECT_EQ(0u, model.SampleAtTime(1.5f).Size());
}

TEST(AnimationClipModelTest, TheRateIsTruncated) {
  struct {
    float stored;
    uint32_t used;
  } const rates[] = {{29.97f, 29},
                     {0.5f, 0},
                     {-1.0f, 0xFFFFFFFFu},
                     {3.0e9f, 3000000000u},
                     {kNone, 0x80000000u},
                     {5.0e9f, 0x80000000u},
                     {kInfinity, 0x80000000u}};
  for (const auto& rate : rates) {
    AnimationClipModel model = ModelOf(ReferenceBytes(rate.stored, 1, {Constant(0, 1, 5)}));
    model.EnsureParsed();
    EXPECT_EQ(rate.used, model.framesPerSecond()) << rate.stored;
  }
}

TEST(AnimationClipModelTest, EachTypeFeedsItsChannel) {
  const uint32_t channels[] = {kX,     kY,     kZ,     kSizeX, kSizeY, kSizeZ, kTurnX,
                               kTurnY, kTurnZ, kTurnW, kTurnX, kTurnY, kTurnZ};
  for (uint32_t type = 1; type <= 13; ++type) {
    AnimationClipModel model = ModelOf(10, {Constant(0, type, 5)});
    const ClipSample* sample = model.SampleAtFrame(0).Find(0);
    ASSERT_NE(nullptr, sample);
    ReferenceSample expected;
    expected.isQuaternion = type == 10;
    std::fill(expected.channel, expected.channel + kReferenceChannels, kNone);
    expected.channel[channels[type - 1]] = 5;
    EXPECT_TRUE(SameSample(expected, *sample)) << "type " << type;
  }
}

TEST(AnimationClipModelTest, RotationChannelsWithoutAKeyOfWAreNoQuaternion) {
  AnimationClipModel model =
      ModelOf(10, {{0, kQuaternionWType, {}}, Constant(0, 11, 0.5f), {1, kQuaternionWType, {}}});
  EXPECT_EQ(2u, model.TrackCount()) << "a curve without keys counts";
  const SampleMap& samples = model.SampleAtFrame(0);
  EXPECT_FALSE(samples.Find(0)->isQuaternion);
  EXPECT_EQ(0.5f, samples.Find(0)->channel[kTurnX]);
  EXPECT_FALSE(samples.Find(1)->isQuaternion);
  for (const float channel : samples.Find(1)->channel) {
    EXPECT_TRUE(std::isnan(channel));
  }
}

TEST(AnimationClipModelTest, AQuaternionStaysOneWhateverFollows) {
  AnimationClipModel model =
      ModelOf(10, {Constant(0, 10, 0.5f), Constant(0, 7, 0.25f), {0, 10, {}}, Constant(0, 1, 3)});
  EXPECT_TRUE(model.SampleAtFrame(0).Find(0)->isQuaternion);
}

TEST(AnimationClipModelTest, AnglesAndQuaternionPartsShareAChannelInCurveOrder) {
  const ReferenceCurve angle = {0, 7, {{0, 1, 0, 0}, {10, 2, 0, 0}}};
  const ReferenceCurve part = {0, 11, {{20, 3, 0, 0}, {30, 4, 0, 0}}};
  AnimationClipModel model = ModelOf(100, {angle, part});
  const std::vector<ClipKey> keys =
      (model.EnsureParsed(), ParsedTracks::Of(model).at(0).channels[kTurnX]);
  ASSERT_EQ(4u, keys.size());
  for (uint32_t k = 0; k < 4; ++k) {
    EXPECT_EQ(10 * k, keys[k].frame);
    EXPECT_EQ(static_cast<float>(k + 1), keys[k].value);
  }
  EXPECT_EQ(2.5f, ValueOf(model.SampleAtTime(15.0f), 0, kTurnX)) << "across the seam";

  AnimationClipModel swapped = ModelOf(100, {part, angle});
  EXPECT_EQ(3.0f, ValueOf(swapped.SampleAtTime(15.0f), 0, kTurnX)) << "nothing sorts them";
}

TEST(AnimationClipModelTest, CurvesOfOneTargetAreOneTrack) {
  AnimationClipModel model =
      ModelOf(10, {Constant(5, 1, 1), Constant(2, 1, 2), Constant(5, 2, 3), Constant(5, 10, 1)});
  EXPECT_EQ(2u, model.TrackCount());
  const SampleMap& samples = model.SampleAtFrame(0);
  ASSERT_EQ(2u, samples.Size());
  EXPECT_EQ(2u, samples.Target(0)) << "ascending";
  EXPECT_EQ(5u, samples.Target(1));
  EXPECT_EQ(1.0f, ValueOf(samples, 5, kX));
  EXPECT_EQ(3.0f, ValueOf(samples, 5, kY));
  EXPECT_EQ(2.0f, ValueOf(samples, 2, kX));
  EXPECT_EQ(nullptr, samples.Find(0));
  EXPECT_EQ(nullptr, samples.Find(3));
  EXPECT_EQ(nullptr, samples.Find(6));
}

TEST(AnimationClipModelTest, AKeyMayEndWithTheBytes) {
  const std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {Constant(0, 1, 5)});
  AnimationClipModel model = ModelOf(bytes);
  EXPECT_EQ(44u, bytes.size());
  EXPECT_EQ(5.0f, ValueOf(model.SampleAtFrame(0), 0, kX));
  std::vector<uint8_t> more = bytes;
  more.resize(77, 0xEE);
  AnimationClipModel longer = ModelOf(more);
  EXPECT_EQ(5.0f, ValueOf(longer.SampleAtFrame(0), 0, kX)) << "what follows is not looked at";
}

TEST(AnimationClipModelTest, AClipKeepsACopyOfItsBytes) {
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {Constant(0, 1, 5)});
  AnimationClipModel model = ModelOf(bytes);
  std::fill(bytes.begin(), bytes.end(), static_cast<uint8_t>(0xEE));
  EXPECT_EQ(5.0f, ValueOf(model.SampleAtFrame(0), 0, kX));
}

TEST(AnimationClipModelTest, AnInvalidTypeIsAcceptedWithoutKeys) {
  AnimationClipModel model = ModelOf(10, {{0, 99, {}}, {1, 0, {}}, Constant(0, 1, 5)});
  EXPECT_EQ(2u, model.TrackCount());
}

TEST(AnimationClipModelTest, FramesWrapAtTheClipsLength) {
  AnimationClipModel model = ModelOf(60, {{0, 1, {{0, 0, 0, 0}, {59, 59, 0, 0}}}});
  const SampleMap* first = &model.SampleAtFrame(0);
  EXPECT_EQ(first, &model.SampleAtFrame(60));
  EXPECT_EQ(first, &model.SampleAtFrame(120));
  EXPECT_EQ(1u, model.CachedFrames());
  EXPECT_EQ(59.0f, ValueOf(model.SampleAtFrame(59), 0, kX));
  // 2^32 - 1 is 71582788 times 60 and 15.
  EXPECT_EQ(&model.SampleAtFrame(15), &model.SampleAtFrame(0xFFFFFFFFu));
  EXPECT_EQ(3u, model.CachedFrames());
}

TEST(AnimationClipModelTest, AFrameIsComputedOnceAndCached) {
  AnimationClipModel model = ModelOf(60, {{0, 1, {{0, 0, 0, 0}, {59, 59, 0, 0}}}});
  ClipSample* cached = const_cast<ClipSample*>(model.SampleAtFrame(59).Find(0));
  cached->channel[kX] = -7;
  EXPECT_EQ(-7.0f, ValueOf(model.SampleAtFrame(119), 0, kX)) << "not computed anew";
}

TEST(AnimationClipModelTest, TimesWrapAtTheClipsLengthAndAreNotCached) {
  AnimationClipModel model = ModelOf(60, {{0, 1, {{0, 3, 0, 0}, {30, 6, 0, 0}, {60, 9, 0, 0}}}});
  EXPECT_EQ(3.0f, ValueOf(model.SampleAtTime(60.0f), 0, kX));
  EXPECT_EQ(3.0f, ValueOf(model.SampleAtTime(120.0f), 0, kX));
  EXPECT_EQ(6.0f, ValueOf(model.SampleAtTime(90.0f), 0, kX));
  EXPECT_EQ(4.5f, ValueOf(model.SampleAtTime(15.0f), 0, kX));
  EXPECT_EQ(4.5f, ValueOf(model.SampleAtTime(75.0f), 0, kX));
  EXPECT_EQ(0u, model.CachedFrames());
}

TEST(AnimationClipModelTest, ANegativeTimeStaysNegative) {
  AnimationClipModel model = ModelOf(60, {{0, 1, {{0, 3, 0, 0}, {60, 9, 0, 0}}}});
  for (const float time : {-0.5f, -30.0f, -59.5f, -61.0f, -1e9f, -0.0f}) {
    EXPECT_EQ(3.0f, ValueOf(model.SampleAtTime(time), 0, kX)) << time;
  }
}

TEST(AnimationClipModelTest, NaNAndInfiniteTimesGiveTheLastValue) {
  AnimationClipModel model = ModelOf(60, {{0, 1, {{0, 3, 0, 0}, {60, 9, 0, 0}}}});
  for (const float time : {kNone, kInfinity, -kInfinity}) {
    EXPECT_EQ(9.0f, ValueOf(model.SampleAtTime(time), 0, kX)) << time;  // the remainder is NaN
  }
}

TEST(AnimationClipModelTest, AClipOf0FramesHasTracksButNoSamples) {
  AnimationClipModel model = ModelOf(0, {Constant(0, 1, 5)});
  EXPECT_EQ(1u, model.TrackCount());
  EXPECT_EQ(0u, model.SampleAtFrame(0).Size());
  EXPECT_EQ(&model.SampleAtFrame(3), &model.SampleAtFrame(4));
  SampleMap samples = ModelOf(10, {Constant(0, 1, 5)}).SampleAtTime(0.5f);
  model.SampleAtTime(0.5f, &samples);
  EXPECT_EQ(0u, samples.Size());
  EXPECT_EQ(nullptr, samples.Find(0));
  EXPECT_EQ(0u, model.CachedFrames());
}

TEST(AnimationClipModelTest, AClipOf1FrameIsAlwaysAtItsStart) {
  AnimationClipModel model = ModelOf(1, {{0, 1, {{0, 3, 0, 0}, {1, 9, 0, 0}}}});
  EXPECT_EQ(3.0f, ValueOf(model.SampleAtFrame(7), 0, kX));
  EXPECT_EQ(3.0f, ValueOf(model.SampleAtTime(7.0f), 0, kX));
  EXPECT_EQ(6.0f, ValueOf(model.SampleAtTime(7.5f), 0, kX));
  EXPECT_EQ(1u, model.CachedFrames());
}

TEST(AnimationClipModelTest, CachedSamplesStayValidWhenOthersAreAdded) {
  AnimationClipModel model = ModelOf(5000, {{0, 1, {{0, 0, 0, 0}, {5000, 1, 1, 0}}}});
  std::vector<const SampleMap*> maps;
  std::vector<float> values;
  for (uint32_t frame = 0; frame < 5000; ++frame) {
    maps.push_back(&model.SampleAtFrame(frame));
    values.push_back(ValueOf(*maps.back(), 0, kX));
  }
  EXPECT_EQ(5000u, model.CachedFrames());
  for (uint32_t frame = 0; frame < 5000; ++frame) {
    ASSERT_EQ(maps[frame], &model.SampleAtFrame(frame + 5000));
    ASSERT_EQ(values[frame], ValueOf(*maps[frame], 0, kX));
  }
  EXPECT_EQ(5000u, model.CachedFrames());
}

TEST(AnimationClipModelTest, ReusingTheSamplesOfAnotherClipLeavesNoTrace) {
  AnimationClipModel large =
      ModelOf(10, Constants(0, 1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}) + Constants(1, 1, {1, 2, 3}));
  AnimationClipModel small = ModelOf(10, {Constant(9, 2, 5)});
  SampleMap samples;
  large.SampleAtTime(0.5f, &samples);
  EXPECT_EQ(2u, samples.Size());
  small.SampleAtTime(0.5f, &samples);
  EXPECT_EQ(1u, samples.Size());
  EXPECT_EQ(nullptr, samples.Find(0));
  EXPECT_TRUE(std::isnan(ValueOf(samples, 9, kX)));
  EXPECT_EQ(5.0f, ValueOf(samples, 9, kY));
  large.SampleAtTime(0.5f, &samples);
  EXPECT_EQ(3.0f, ValueOf(samples, 1, kZ));
}

// Whole and fractional times of random clips, in any order, so that cached frames are sampled as
// well.
TEST(AnimationClipModelTest, RandomClipsMatchThePlainModel) {
  int sampled = 0;
  for (int round = 0; round < Rounds(6000); ++round) {
    AnimationRandom random(100000u + static_cast<uint32_t>(round));
    const std::vector<uint8_t> bytes = random.Clip(random.Chance(20));
    const ReferenceClip clip(bytes);
    AnimationClipModel model = ModelOf(bytes);
    SampleMap reused;
    for (int i = 0; i < 12; ++i) {
      const float time = random.Time(clip);
      const uint32_t frame = random.Chance(80) ? random.Below(80) : random.Bits();
      switch (random.Below(4)) {
        case 0:
          ASSERT_TRUE(SameSamples(clip.SampleAtTime(time), model.SampleAtTime(time)))
              << "seed " << round << ", time " << time;
          break;
        case 1:
          model.SampleAtTime(time, &reused);
          ASSERT_TRUE(SameSamples(clip.SampleAtTime(time), reused))
              << "seed " << round << ", time " << time;
          break;
        case 2:
          ASSERT_TRUE(SameSamples(clip.SampleAtFrame(frame), model.SampleAtFrame(frame)))
              << "seed " << round << ", frame " << frame;
          break;
        default:
          ASSERT_EQ(clip.tracks.size(), model.TrackCount());
          break;
      }
      sampled += static_cast<int>(clip.tracks.size());
    }
    model.EnsureParsed();
    ASSERT_EQ(bytes.size() > 16 ? clip.frameCount : 0, model.frameCount());
    ASSERT_EQ(bytes.size() > 16 ? clip.rate : 0, model.framesPerSecond());
    const std::map<uint32_t, ClipTrack> tracks = ParsedTracks::Of(model);
    ASSERT_EQ(clip.tracks.size(), tracks.size());
    for (const auto& [target, track] : clip.tracks) {
      ASSERT_EQ(track.isQuaternion, tracks.at(target).isQuaternion);
      for (int c = 0; c < kReferenceChannels; ++c) {
        const std::vector<ClipKey>& keys = tracks.at(target).channels[c];
        ASSERT_EQ(track.channels[c].size(), keys.size());
        ASSERT_TRUE(keys.empty() || std::memcmp(track.channels[c].data(), keys.data(),
                                                keys.size() * sizeof(ClipKey)) == 0);
      }
    }
  }
  EXPECT_GT(sampled, 30 * Rounds(6000));
}

constexpr char kSource[] = "..\\..\\Engine\\Animation\\AnimationClipModel";
constexpr char kTypeError[] = "[NQ_FATAL][Engine]: wrong sample type\n";
constexpr char kHeaderError[] = "[NQ_FATAL][Engine]: animation clip header data error\n";
constexpr char kContentError[] = "[NQ_FATAL][Engine]: animation clip content data error\n";

// Creates a model and prints that, then uses it.
::testing::AssertionResult FailsAtFirstUse(const std::string& message, int line,
                                           const std::vector<uint8_t>& bytes) {
  for (const int use : {0, 1, 2, 3}) {
    const ::testing::AssertionResult result =
        EndsWith("created\n" + message, kSource, line, [&bytes, use] {
          AnimationClipModel model = ModelOf(bytes);
          NQ_LOG("created", "\n");
          if (use == 0) {
            model.EnsureParsed();
          } else if (use == 1) {
            model.TrackCount();
          } else if (use == 2) {
            model.SampleAtFrame(0);
          } else {
            model.SampleAtTime(0.5f);
          }
        });
    if (!result) {
      return result;
    }
  }
  return ::testing::AssertionSuccess();
}

TEST(AnimationClipModelDeathTest, ATypeOutsideOfOneToThirteenIsFatal) {
  for (const uint32_t type : {0u, 14u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_TRUE(FailsAtFirstUse(
        kTypeError, 328,
        ReferenceBytes(30.0f, 10, {Constant(0, 1, 1), Constant(0, type, 1), Constant(0, 2, 1)})))
        << type;
  }
}

TEST(AnimationClipModelDeathTest, AnOffsetThatDoesNotFitTheCurvesIsFatal) {
  const std::vector<uint8_t> good = ReferenceBytes(30.0f, 10, {Constant(0, 1, 1)});
  for (const uint32_t offset : {0u, 16u, 27u, 29u, 40u, 28u + 0x80000000u, 0xFFFFFFFFu}) {
    std::vector<uint8_t> bytes = good;
    SetWord(&bytes, 0, offset);
    EXPECT_TRUE(FailsAtFirstUse(kHeaderError, 364, bytes)) << offset;
  }
  std::vector<uint8_t> none = ReferenceBytes(30.0f, 10, {});
  none.resize(32);
  SetWord(&none, 0, 28);
  EXPECT_TRUE(FailsAtFirstUse(kHeaderError, 364, none)) << "not even without curves";
}

TEST(AnimationClipModelDeathTest, AKeyPastTheEndIsFatal) {
  std::vector<uint8_t> bytes =
      ReferenceBytes(30.0f, 10, {Constant(0, 1, 1), {1, 2, {Flat(0, 1), Flat(5, 2)}}});
  for (const size_t missing : {1u, 4u, 15u, 16u, 17u, 48u}) {
    const std::vector<uint8_t> cut(bytes.begin(),
                                   bytes.end() - static_cast<std::ptrdiff_t>(missing));
    EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, cut)) << missing;
  }
  SetWord(&bytes, 16 + 12 + 8, 3);
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
  SetWord(&bytes, 16 + 12 + 8, 0xFFFFFFFFu);
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
}

TEST(AnimationClipModelDeathTest, AKeyPastTheEndIsFatalBeforeItsType) {
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {Constant(0, 99, 1)});
  bytes.pop_back();
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
}

TEST(AnimationClipModelDeathTest, TheFirstWrongTypeIsFatalBeforeALaterCurvesEnd) {
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {Constant(0, 99, 1), Constant(0, 1, 1)});
  bytes.pop_back();
  EXPECT_TRUE(FailsAtFirstUse(kTypeError, 328, bytes));
}

TEST(AnimationClipModelDeathTest, CurvesPastTheEndAreFatal) {
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {{0, 1, {}}, {0, 2, {}}});
  bytes.resize(39);
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
  bytes.resize(17);
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
}

TEST(AnimationClipModelDeathTest, TwelveTimesTheCurvesIsTakenIn32Bits) {
  // 12 x 0x40000000 is 0: the header fits, the curves do not.
  std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {});
  bytes.resize(32);
  SetWord(&bytes, 12, 0x40000000u);
  EXPECT_TRUE(FailsAtFirstUse(kContentError, 377, bytes));
}

}  // namespace
}  // namespace nq::engine
