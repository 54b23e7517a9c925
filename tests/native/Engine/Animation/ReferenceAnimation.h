// A slow model of clips and their players, against which the engine is compared: ordered maps,
// walks from the first key on, one operation at a time. Shares no code with what it judges.
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

// A curve as it stands in the bytes of a clip.
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

  // What a player of the clip sees at a moment.
  ReferenceSamples Play(float time) const {
    return ReferenceIsWhole(time) ? SampleAtFrame(ReferenceTruncate(time)) : SampleAtTime(time);
  }

  std::map<uint32_t, ReferenceTrack> tracks;
  uint32_t frameCount = 0;
  uint32_t rate = 0;

 private:
  ReferenceSamples SampleAll(float time) const;
};

// What an animator is told of one clip.
struct ReferencePlay {
  const ReferenceClip* clip;
  float time;
  float weight;
};

// A sample on its way into an entity.
struct ReferenceWrite {
  uint32_t handle;
  ReferenceSample sample;
};

// What one update of an animator writes, in order. Handles that name no entity are among it; places
// past the end of the target table are not.
std::vector<ReferenceWrite> ReferenceUpdate(const std::vector<ReferencePlay>& plays,
                                            const std::vector<uint32_t>& targets);

// Writes a sample into a shared record.
void ReferenceApply(const ReferenceSample& sample, bool isThreeD, uint8_t* record);

// Random numbers of a kind that tests of animation need. The same ones for the same seed.
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

  // Now and then a number that is none, infinite, huge, tiny or zero of either sign.
  float Odd(float low, float high);

  // Frames of a channel's keys: mostly ascending, in steps that are even or not, at times with
  // doubles, out of order, or beyond what a float can hold exactly.
  std::vector<uint32_t> Frames();

  // Keys on these frames; some leave a step.
  std::vector<ReferenceKey> Keys(const std::vector<uint32_t>& frames);

  // Curves of a few targets: channels on frames that all share, or on their own, some without keys,
  // some fed by two curves. `targetCount` gets the number of indices that are handed out in a row;
  // a gap or a large index may come on top.
  std::vector<ReferenceCurve> Curves(uint32_t* targetCount, bool ordinary);

  float Rate();
  uint32_t FrameCount();

  // The bytes of a clip of all this. An ordinary one has numbers as a tool would write them, and
  // target indices in a row.
  std::vector<uint8_t> Clip(bool ordinary);

  // A moment that has a meaning for the keys of `clip`, or none whatever.
  float Time(const ReferenceClip& clip);

 private:
  std::mt19937 generator;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCEANIMATION_H_
