// An animation clip: immutable content that many players share.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONCLIPMODEL_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONCLIPMODEL_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Common/Def/Mutex.h"
#include "Engine/Animation/ClipTimelines.h"
#include "Engine/Animation/SampleMap.h"

namespace nq::engine {

// Which channels the tracks of a clip have keys for.
struct ClipShape {
  bool hasAngles = false;      // some track has keys of Euler angles
  std::vector<uint8_t> moves;  // by track: 1 if it has keys of position or scale, else 0
};

// Keeps a copy of the bytes (ClipFormat.h) and parses it lazily, on the first thread that uses it.
// Knows nothing of entities: curves name small target indices.
//
// Malformed bytes end the process at first use, not at creation, with "[NQ_FATAL][Engine]: " and
// one of "wrong sample type\n", "animation clip header data error\n", "animation clip content data
// error\n".
//
// Thread safety: any number of tasks may share a model. Sampling holds the model's lock, so tasks
// that sample the same clip run one after the other.
class AnimationClipModel {
 public:
  // Copies `size` bytes. If they are no more than a header, nothing is copied: such a clip has no
  // tracks and 0 frames, whatever the bytes contain.
  AnimationClipModel(const uint8_t* data, uint32_t size);
  AnimationClipModel(const AnimationClipModel&) = delete;
  AnimationClipModel& operator=(const AnimationClipModel&) = delete;

  void EnsureParsed() {
    if (!parsed.load(std::memory_order_acquire)) {
      Parse();
    }
  }

  // The number of distinct target indices. A curve without keys counts.
  uint32_t TrackCount() {
    EnsureParsed();
    return static_cast<uint32_t>(targets.size());
  }

  // The target indices, ascending: one per track, in the order of the samples.
  const std::vector<uint32_t>& Targets() {
    EnsureParsed();
    return targets;
  }
  const ClipShape& Shape() {
    EnsureParsed();
    return shape;
  }

  // The samples at a whole frame, modulo the clip's length. Computed once and cached; the result
  // stays valid and unchanged for the life of the model.
  const SampleMap& SampleAtFrame(uint32_t frame);

  // The samples at any time, wrapped at the clip's length. A negative time is not wrapped and
  // samples the first keys. The second overload reuses the memory of `samples`.
  SampleMap SampleAtTime(float time);
  void SampleAtTime(float time, SampleMap* samples);

  // From 1, unique across all models ever created: unlike an address, never that of a model which
  // was released before.
  const uint64_t serial;

  // For inspecting a parsed model while no task uses it.
  uint32_t frameCount() const NQ_NO_THREAD_SAFETY_ANALYSIS { return frames; }
  uint32_t framesPerSecond() const NQ_NO_THREAD_SAFETY_ANALYSIS { return rate; }
  size_t CachedFrames() const NQ_NO_THREAD_SAFETY_ANALYSIS { return frameCache.size(); }

 private:
  friend struct ParsedTracks;  // reconstructs the tracks, for tests

  void Parse() NQ_EXCLUDES(lock);
  void SampleAllAt(float time, SampleMap* samples) const NQ_REQUIRES(lock);

  Mutex lock;
  std::atomic<bool> parsed;

  // Written by the parse only, which precedes every read.
  std::vector<uint32_t> targets;  // target indices, ascending
  ClipTimelines timelines;        // the tracks, in that order
  ClipShape shape;

  uint32_t frames NQ_GUARDED_BY(lock) = 0;
  uint32_t rate NQ_GUARDED_BY(lock) = 0;  // frames per second
  const SampleMap emptySamples;           // the result for a clip of 0 frames
  std::unordered_map<uint32_t, SampleMap> frameCache NQ_GUARDED_BY(lock);  // never evicted
  std::unique_ptr<uint8_t[]> raw NQ_GUARDED_BY(lock);                      // until parsed
  uint32_t rawSize NQ_GUARDED_BY(lock) = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONCLIPMODEL_H_
