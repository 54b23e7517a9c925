// The keys of a clip, laid out so that all channels with keys on the same frames are sampled
// together (SIMD).
#ifndef NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
#define NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "Engine/Animation/ClipSampling.h"

namespace nq::engine {

// Tools key whole characters on the same frames, so one search and one set of weights serve all
// channels of a timeline. A timeline is a table with a row for each frame and a column for each
// group of up to four channels of a track: position, scale or rotation. The rows are contiguous in
// memory, so the two rows before and after a time are adjacent, and are read from left to right:
//
//                 groups:   track 0    track 3    track 0
//                           position   scale      rotation
//     frames   times
//                         +----------+----------+----------+
//        0      0.0       | x y z -  | - y - -  | x y z w  |   keys[0]  keys[1]  keys[2]
//        5      5.0       | x y z -  | - y - -  | x y z w  |   keys[3]  keys[4]  keys[5]
//       12     12.0       | x y z -  | - y - -  | x y z w  |   ...
//                         +----------+----------+----------+
//
// A cell (Keys) is the values of the four lanes, then their in tangents, then their out tangents. A
// lane marked - is not present: the channel has no keys, or other frames and so another timeline,
// as scale x and z of track 3 may have.
//
// The results are bit-identical to sampling the channels one by one.
//
// Immutable once built: any number of threads may sample.
class ClipTimelines {
 public:
  // Lays out the keys of `tracks`, in their order. Called once.
  void Build(const std::vector<ClipTrack>& tracks);

  // Writes the samples of all tracks, in their order. A channel without keys is NaN. Before the
  // first key its value holds, after the last key that key's value, and exactly on a key the key's
  // own. A segment steps if the out tangent at either end of it is infinite. Quaternions are
  // sampled like any four numbers: no slerp, no sign change and no normalising happens here.
  void Sample(float time, uint32_t framesPerSecond, ClipSample* samples) const;

  // The two halves of Sample: the first writes samples without any keys, the second all channels
  // with keys, into samples of these timelines at any time.
  void Clear(ClipSample* samples) const;
  void SampleKeyed(float time, uint32_t framesPerSecond, ClipSample* samples) const;

  uint32_t TrackCount() const { return static_cast<uint32_t>(blank.size()); }

 private:
  friend struct ParsedTracks;  // reconstructs the tracks, for tests

  // Up to four channels of a track, adjacent in memory.
  struct Group {
    uint32_t track;
    uint8_t firstChannel;
    uint8_t channelCount;  // 3 or 4
    uint8_t present;       // bit i: channel firstChannel + i is one of this timeline
    bool writesFour;       // what absent channels write is overwritten later, or already correct
  };

  // Consecutive groups of consecutive tracks, with the same first channel. Where groups may write
  // all four channels, as those of whole characters do, their samples are written without looking
  // at each group.
  struct Run {
    uint32_t group;  // the first
    uint32_t count;  // 1 if it does not write four
    bool writesFour;
  };

  // The keys of a group on one frame.
  struct alignas(16) Keys {
    float value[4];
    float inTangent[4];
    float outTangent[4];
  };

  struct Timeline {
    // From the frames of a channel, at least one.
    explicit Timeline(const std::vector<uint32_t>& keyFrames);

    // Orders the groups and copies their keys; no group may be added afterwards.
    void LayOutKeys(const std::vector<ClipTrack>& tracks);

    size_t FirstAtOrAfter(float time) const;

    std::vector<uint32_t> frames;
    std::vector<float> times;   // the frames as floats
    bool ascends;               // every frame is at or above the one before it
    bool steps = false;         // an out tangent is infinite
    float keysPerFrame;         // on average; for the first guess in a key search
    std::vector<Group> groups;  // in the end all positions, then all scales, then all rotations
    std::vector<Run> runs;      // all groups, in order
    std::vector<Keys> keys;     // of all groups on the first frame, then on the second...
  };

  // Indices of timelines during Build: by frames, and by channel of a track; a channel without keys
  // has none.
  using TimelinesByFrames = std::map<std::vector<uint32_t>, uint32_t>;
  using TimelineOfChannel = std::array<uint32_t, kClipChannels>;
  static constexpr uint32_t kNone = 0xFFFFFFFFu;

  void AddBlank(const ClipTrack& track);

  // Finds the timelines of a track's channels, and adds new ones.
  TimelineOfChannel FindTimelines(const ClipTrack& track, TimelinesByFrames* byFrames);

  // Adds the groups of a run of channels, one to each timeline that holds some of them.
  void AddGroups(uint32_t track, uint8_t firstChannel, uint8_t channelCount,
                 const TimelineOfChannel& timelineOf);

  static void SampleTimeline(const Timeline& timeline, float time, uint32_t framesPerSecond,
                             ClipSample* samples);

  // Calls `valueOf` with the number of each group, and stores the four values it returns.
  template <typename ValueOf>
  static void StoreGroups(const Timeline& timeline, ClipSample* samples, ValueOf valueOf);

  std::vector<Timeline> timelines;
  std::vector<ClipSample> blank;  // the sample without any keys: all NaN
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPTIMELINES_H_
