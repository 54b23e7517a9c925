// A slow model of clips and animators, to compare the engine with: ordered maps, linear searches,
// one operation at a time. Shares no code with the engine.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCEANIMATION_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCEANIMATION_H_

#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace nq::engine {

constexpr int kReferenceChannels = 10;

struct ReferenceKey {
  uint32_t frame;
  float value;
  float inTangent;
  float outTangent;
};

struct ReferenceTrack {
  bool isQuaternion = false;
  std::vector<ReferenceKey> channels[kReferenceChannels];
};

struct ReferenceSample {
  bool isQuaternion;
  float channel[kReferenceChannels];
};

typedef std::map<uint32_t, ReferenceSample> ReferenceSamples;

// A curve as in the bytes of a clip.
struct ReferenceCurve {
  uint32_t target;
  uint32_t type;
  std::vector<ReferenceKey> keys;
};

// The bytes of a clip.
std::vector<uint8_t> ReferenceBytes(float rate, uint32_t frameCount,
                                    const std::vector<ReferenceCurve>& curves);

uint32_t ReferenceTruncate(float value);
bool ReferenceIsWhole(float value);

float ReferenceSampleChannel(const std::vector<ReferenceKey>& keys, float time, uint32_t rate);
ReferenceSample ReferenceSampleTrack(const ReferenceTrack& track, float time, uint32_t rate);

float ReferenceLerp(float a, float b, float t);
void ReferenceBlend(ReferenceSample* blended, const ReferenceSample& other, float t, bool many);

// A clip, parsed from well-formed bytes.
class ReferenceClip {
 public:
  explicit ReferenceClip(const std::vector<uint8_t>& bytes);

  ReferenceSamples SampleAtFrame(uint32_t frame) const;
  ReferenceSamples SampleAtTime(float time) const;

  // The samples that a player of the clip uses at a time.
  ReferenceSamples Play(float time) const {
    return ReferenceIsWhole(time) ? SampleAtFrame(ReferenceTruncate(time)) : SampleAtTime(time);
  }

  std::map<uint32_t, ReferenceTrack> tracks;
  uint32_t frameCount = 0;
  uint32_t rate = 0;

 private:
  ReferenceSamples SampleAll(float time) const;
};

// What an animator plays of one clip.
struct ReferencePlay {
  const ReferenceClip* clip;
  float time;
  float weight;
};

// A sample to be written to an entity.
struct ReferenceWrite {
  uint32_t handle;
  ReferenceSample sample;
};

// The writes of one update of an animator, in order. Includes handles that name no entity; excludes
// entries past the end of the target table.
std::vector<ReferenceWrite> ReferenceUpdate(const std::vector<ReferencePlay>& plays,
                                            const std::vector<uint32_t>& targets);

// Writes a sample to a shared record.
void ReferenceApply(const ReferenceSample& sample, bool isThreeD, uint8_t* record);

// Random numbers for tests of animation. The same for the same seed.
class AnimationRandom {
 public:
  explicit AnimationRandom(uint32_t seed) : generator(seed) {}

  uint32_t Bits() { return static_cast<uint32_t>(generator()); }
  uint32_t Below(uint32_t count) { return Bits() % count; }
  bool Chance(uint32_t percent) { return Below(100) < percent; }
  float Real(float low, float high) {
    return low + (high - low) * (static_cast<float>(Bits() >> 8) / 16777216.0f);
  }
  template <typename T>
  T OneOf(std::initializer_list<T> choice) {
    return choice.begin()[Below(static_cast<uint32_t>(choice.size()))];
  }

  // Sometimes NaN, infinite, huge, tiny or zero of either sign.
  float Odd(float low, float high);

  // Frames of a channel's keys: mostly ascending, evenly spaced or not, sometimes with duplicates,
  // unsorted, or beyond what a float represents exactly.
  std::vector<uint32_t> Frames();

  // Keys on these frames; some make a step.
  std::vector<ReferenceKey> Keys(const std::vector<uint32_t>& frames);

  // Curves of a few targets: channels on shared or different frames, some without keys, some with
  // two curves. `targetCount` receives the number of consecutive indices; a gap or a large index
  // may be added.
  std::vector<ReferenceCurve> Curves(uint32_t* targetCount, bool ordinary);

  float Rate();
  uint32_t FrameCount();

  // The bytes of a random clip. An ordinary one has numbers as a tool would write them, and
  // consecutive target indices.
  std::vector<uint8_t> Clip(bool ordinary);

  // A time of interest for the keys of `clip`, or an arbitrary one.
  float Time(const ReferenceClip& clip);

 private:
  std::mt19937 generator;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCEANIMATION_H_
