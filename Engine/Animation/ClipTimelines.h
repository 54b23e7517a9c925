// The keys of a clip, laid out so that all channels with keys on the same frames are sampled at
// once.
#ifndef NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
#define NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Engine/Animation/ClipSampling.h"

namespace nq::engine {

// Tools key whole characters on the same frames, so that a moment needs one search and one set of
// weights for all of a timeline's channels. Channels of a track stand in groups of four: position,
// scale, rotation. The results are those of SampleChannel, to the last bit.
//
// Immutable once built: any number of threads may sample.
class ClipTimelines {
 public:
  // Lays out the keys of `tracks`, in their order.
  void Build(const std::vector<ClipTrack>& tracks);

  // Writes the samples of all tracks, in their order.
  void Sample(float time, uint32_t framesPerSecond, ClipSample* samples) const;

  // The tracks that were laid out.
  std::vector<ClipTrack> Tracks() const;
  uint32_t TrackCount() const { return static_cast<uint32_t>(blank.size()); }

 private:
  // Up to four channels of a track, side by side.
  struct Group {
    uint32_t track;
    uint8_t firstChannel;
    uint8_t channelCount;  // 3 or 4
    uint8_t present;       // bit i: channel firstChannel + i is one of this timeline
    bool writesFour;       // what the absent ones write is overwritten, or right as it is
  };

  // The keys that a group has on one frame.
  struct alignas(16) Keys {
    float value[4];
    float inTangent[4];
    float outTangent[4];
  };

  struct Timeline {
    std::vector<uint32_t> frames;
    std::vector<float> times;  // the frames as floats
    bool ascends;              // no frame is below the one ahead of it
    bool steps;                // a tangent that leaves a key is infinite
    float keysPerFrame;        // on average; for a first guess at a key
    std::vector<Group> groups;
    std::vector<Keys> keys;  // of all groups on the first frame, then on the second...

    size_t FirstAtOrAfter(float time) const;
  };

  static void SampleTimeline(const Timeline& timeline, float time, uint32_t framesPerSecond,
                             ClipSample* samples);

  std::vector<Timeline> timelines;
  std::vector<ClipSample> blank;  // what a sample is without any keys
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
