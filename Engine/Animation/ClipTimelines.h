// The keys of a clip, laid out so that all channels with keys on the same frames are sampled at
// once.
#ifndef NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
#define NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "Engine/Animation/ClipSampling.h"

namespace nq::engine {

// Tools key whole characters on the same frames, so that a moment needs one search and one set of
// weights for all channels of a timeline. A timeline is a table with a row for each frame and a
// column for each group of up to four channels of a track: position, scale or rotation. The rows
// follow each other in memory, so the two rows that a moment lies between are side by side, and are
// read from left to right:
//
//                 groups:   track 0    track 0    track 3
//                           position   rotation   scale
//     frames   times
//                         +----------+----------+----------+
//        0      0.0       | x y z -  | x y z w  | - y - -  |   keys[0]  keys[1]  keys[2]
//        5      5.0       | x y z -  | x y z w  | - y - -  |   keys[3]  keys[4]  keys[5]
//       12     12.0       | x y z -  | x y z w  | - y - -  |   ...
//                         +----------+----------+----------+
//
// A cell (Keys) is the values of the four lanes, then their in tangents, then their out tangents. A
// lane marked - is not present: the channel has no keys, or other frames, and so is in another
// timeline, as scale x and z of track 3 may be.
//
// The results are those of channels sampled one by one, to the last bit.
//
// Immutable once built: any number of threads may sample.
class ClipTimelines {
 public:
  // Lays out the keys of `tracks`, in their order. Once.
  void Build(const std::vector<ClipTrack>& tracks);

  // Writes the samples of all tracks, in their order. A channel without keys is not a number;
  // before the first key its value holds, after the last one that of the last, and exactly on a key
  // the key's own. A segment steps if the out tangent at either end of it is infinite. Quaternions
  // are sampled like any four numbers: neither slerp nor a change of sign nor normalising happens
  // here.
  void Sample(float time, uint32_t framesPerSecond, ClipSample* samples) const;

  uint32_t TrackCount() const { return static_cast<uint32_t>(blank.size()); }

 private:
  friend struct ParsedTracks;  // puts the tracks together again, for tests

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
    // Over the frames of a channel, at least one.
    explicit Timeline(const std::vector<uint32_t>& keyFrames);

    // Copies the keys of the groups, of which there are no more from now on.
    void LayOutKeys(const std::vector<ClipTrack>& tracks);

    size_t FirstAtOrAfter(float time) const;

    std::vector<uint32_t> frames;
    std::vector<float> times;  // the frames as floats
    bool ascends;              // no frame is below the one ahead of it
    bool steps = false;        // a tangent that leaves a key is infinite
    float keysPerFrame;        // on average; for a first guess at a key
    std::vector<Group> groups;
    std::vector<Keys> keys;  // of all groups on the first frame, then on the second...
  };

  // Positions of timelines while they are built: by frames, and by channel of a track, which has
  // none without keys.
  using TimelinesByFrames = std::map<std::vector<uint32_t>, uint32_t>;
  using TimelineOfChannel = std::array<uint32_t, kClipChannels>;
  static constexpr uint32_t kNone = 0xFFFFFFFFu;

  void AddBlank(const ClipTrack& track);

  // Finds the timelines of a track's channels, and adds those that are new.
  TimelineOfChannel FindTimelines(const ClipTrack& track, TimelinesByFrames* byFrames);

  // Adds the groups of a run of channels, one to each timeline that has some of them.
  void AddGroups(uint32_t track, uint8_t firstChannel, uint8_t channelCount,
                 const TimelineOfChannel& timelineOf);

  static void SampleTimeline(const Timeline& timeline, float time, uint32_t framesPerSecond,
                             ClipSample* samples);

  std::vector<Timeline> timelines;
  std::vector<ClipSample> blank;  // what a sample is without any keys
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
