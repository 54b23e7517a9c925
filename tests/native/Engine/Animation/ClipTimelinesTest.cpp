// Sampling by timelines gives the same results as sampling channels one by one.
#include "Engine/Animation/ClipTimelines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Animation/ParsedTracks.h"

namespace nq::engine {
namespace {

std::vector<ClipTrack> TracksOf(const std::map<uint32_t, ReferenceTrack>& tracks) {
  std::vector<ClipTrack> result;
  for (const auto& [target, track] : tracks) {
    ClipTrack ours;
    ours.isQuaternion = track.isQuaternion;
    for (uint32_t c = 0; c < kClipChannels; ++c) {
      for (const ReferenceKey& key : track.channels[c]) {
        ours.channels[c].push_back(ClipKey{key.frame, key.value, key.inTangent, key.outTangent});
      }
    }
    result.push_back(ours);
  }
  return result;
}

// Samples `clip` at a time, and compares with the channels sampled one by one by the model.
class Judge {
 public:
  explicit Judge(const ReferenceClip& clip) : clip(clip), tracks(TracksOf(clip.tracks)) {
    timelines.Build(tracks);
    EXPECT_EQ(tracks.size(), timelines.TrackCount());
  }

  ::testing::AssertionResult Agrees(float time) const {
    // Poisoned, with one sample too many.
    std::vector<ClipSample> samples(tracks.size() + 1);
    std::memset(static_cast<void*>(samples.data()), 0x5A, samples.size() * sizeof(ClipSample));
    timelines.Sample(time, clip.rate, samples.data());
    uint32_t i = 0;
    for (const auto& [target, track] : clip.tracks) {
      const ReferenceSample expected = ReferenceSampleTrack(track, time, clip.rate);
      const ::testing::AssertionResult same = SameSample(expected, samples[i]);
      if (!same) {
        return ::testing::AssertionFailure()
               << "time " << time << ", target " << target << ": " << same.message();
      }
      ++i;
    }
    uint32_t poison;
    std::memcpy(&poison, &samples[i].channel[0], 4);
    return poison == 0x5A5A5A5Au ? ::testing::AssertionSuccess()
                                 : ::testing::AssertionFailure() << "one sample too many";
  }

  ::testing::AssertionResult KeepsItsTracks() const {
    const std::vector<ClipTrack> kept = ParsedTracks::Of(timelines);
    if (kept.size() != tracks.size()) {
      return ::testing::AssertionFailure() << kept.size() << " tracks";
    }
    for (size_t t = 0; t < tracks.size(); ++t) {
      if (kept[t].isQuaternion != tracks[t].isQuaternion) {
        return ::testing::AssertionFailure() << "form of track " << t;
      }
      for (uint32_t c = 0; c < kClipChannels; ++c) {
        const std::vector<ClipKey>& keys = tracks[t].channels[c];
        const std::vector<ClipKey>& ours = kept[t].channels[c];
        if (keys.size() != ours.size() ||
            (!keys.empty() &&
             std::memcmp(keys.data(), ours.data(), keys.size() * sizeof(ClipKey)) != 0)) {
          return ::testing::AssertionFailure() << "track " << t << ", channel " << c;
        }
      }
    }
    return ::testing::AssertionSuccess();
  }

 private:
  const ReferenceClip& clip;
  const std::vector<ClipTrack> tracks;
  ClipTimelines timelines;
};

TEST(ClipTimelinesTest, NoTracksYieldNoSamples) {
  const ReferenceClip clip({});
  const Judge judge(clip);
  EXPECT_TRUE(judge.Agrees(0));
  EXPECT_TRUE(judge.KeepsItsTracks());
}

TEST(ClipTimelinesTest, ATrackWithoutKeysYieldsNaNs) {
  ReferenceClip clip({});
  clip.tracks[3].isQuaternion = true;
  clip.tracks[4].isQuaternion = false;
  const Judge judge(clip);
  EXPECT_TRUE(judge.Agrees(0));
  EXPECT_TRUE(judge.Agrees(kNone));
}

// Every set of channels on one timeline, the others on another or absent: what a group writes to
// the lanes of its neighbours must not be visible.
TEST(ClipTimelinesTest, EverySetOfChannelsOnATimelineIsSampledSeparately) {
  for (const bool otherIsAbsent : {true, false}) {
    for (const bool otherComesFirst : {true, false}) {
      for (uint32_t mask = 0; mask < 1024; ++mask) {
        AnimationRandom random(mask);
        ReferenceClip clip({});
        clip.rate = 30;
        // A first track that determines the order of the two timelines.
        clip.tracks[0].channels[0] = random.Keys(otherComesFirst ? std::vector<uint32_t>{0, 4, 9}
                                                                 : std::vector<uint32_t>{0, 5, 10});
        for (const uint32_t target : {1u, 2u}) {
          for (uint32_t c = 0; c < kClipChannels; ++c) {
            const bool isOurs = (mask >> c & 1u) != 0;
            if (isOurs || !otherIsAbsent) {
              clip.tracks[target].channels[c] = random.Keys(
                  isOurs ? std::vector<uint32_t>{0, 5, 10} : std::vector<uint32_t>{0, 4, 9});
            }
          }
        }
        clip.tracks[2].isQuaternion = true;
        const Judge judge(clip);
        for (const float time : {0.0f, 2.5f, 5.0f, 6.5f, 9.5f, 12.0f}) {
          ASSERT_TRUE(judge.Agrees(time))
              << "channels " << std::hex << mask << ' ' << otherIsAbsent << otherComesFirst;
        }
        ASSERT_TRUE(judge.KeepsItsTracks()) << std::hex << mask;
      }
    }
  }
}

// Ten channels of one track, each on different frames.
TEST(ClipTimelinesTest, EveryChannelMayHaveItsOwnFrames) {
  AnimationRandom random(5);
  ReferenceClip clip({});
  clip.rate = 24;
  for (uint32_t c = 0; c < kClipChannels; ++c) {
    clip.tracks[0].channels[c] = random.Keys({c, 10 + c, 20 + 2 * c});
    clip.tracks[1].channels[9 - c] = random.Keys({c, 10 + c, 20 + 2 * c});
  }
  const Judge judge(clip);
  for (float time = -1; time < 45; time += 0.25f) {
    ASSERT_TRUE(judge.Agrees(time));
  }
  EXPECT_TRUE(judge.KeepsItsTracks());
}

// The first guess in a key search fails: frames are unevenly spaced.
TEST(ClipTimelinesTest, UnevenlySpacedFramesAreFound) {
  const std::vector<uint32_t> kinds[] = {
      {0, 1, 2, 3, 1000},
      {0, 997, 998, 999, 1000},
      {0, 0, 0, 1000},
      {0, 1000, 1000, 1000},
      {500, 501, 999},
      {0, 1, 10, 100, 1000},
      {7},
      {7, 7, 7},
      {0, 4294967295u},
      {4294967294u, 4294967295u, 4294967295u},
      {16777216, 16777217, 16777218, 16777219, 16777220},
  };
  AnimationRandom random(6);
  for (const std::vector<uint32_t>& frames : kinds) {
    ReferenceClip clip({});
    clip.rate = 30;
    clip.tracks[0].channels[2] = random.Keys(frames);
    const Judge judge(clip);
    for (const uint32_t frame : frames) {
      const float exact = static_cast<float>(frame);
      for (const float time : {exact, std::nextafter(exact, 0.0f), std::nextafter(exact, 1e10f),
                               exact - 0.5f, exact + 0.5f, exact - 1, exact + 1, exact / 2}) {
        ASSERT_TRUE(judge.Agrees(time));
      }
    }
    for (const float time : {kNone, kInfinity, -kInfinity, -0.0f, -1.0f, 1e30f, -1e30f}) {
      ASSERT_TRUE(judge.Agrees(time));
    }
  }
}

TEST(ClipTimelinesTest, AStepInOneLaneDoesNotAffectTheOthers) {
  const uint32_t lanes[] = {kX, kY, kZ, kSizeX, kSizeY, kSizeZ, kTurnX, kTurnY, kTurnZ, kTurnW};
  for (const uint32_t lane : lanes) {
    for (const bool atEnd : {false, true}) {
      ReferenceClip clip({});
      clip.rate = 30;
      for (const uint32_t c : lanes) {
        const float value = static_cast<float>(c);
        clip.tracks[0].channels[c] = {{0, value, 0, 1}, {10, value + 4, 1, 1}};
      }
      clip.tracks[0].channels[lane][atEnd ? 1 : 0].outTangent = -kInfinity;
      const Judge judge(clip);
      ASSERT_TRUE(judge.Agrees(5)) << lane;
      ASSERT_TRUE(judge.Agrees(10)) << lane;
    }
  }
}

TEST(ClipTimelinesTest, RandomClipsMatchTheModelBitForBit) {
  for (int round = 0; round < Rounds(6000); ++round) {
    AnimationRandom random(static_cast<uint32_t>(round));
    const ReferenceClip clip(random.Clip(random.Chance(20)));
    const Judge judge(clip);
    for (int i = 0; i < 12; ++i) {
      ASSERT_TRUE(judge.Agrees(random.Time(clip))) << "seed " << round;
    }
    ASSERT_TRUE(judge.KeepsItsTracks()) << "seed " << round;
  }
}

}  // namespace
}  // namespace nq::engine
