// One authored animation, given once and read many times.
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

// Keeps a copy of the bytes (ClipFormat.h) and parses them at first use, on whichever thread gets
// there first. Knows nothing of entities: curves name small target indices.
//
// Malformed bytes end the process at first use, not at creation, with "[NQ_FATAL][Engine]: " and
// one of "wrong sample type\n", "animation clip header data error\n", "animation clip content data
// error\n".
//
// Thread safety: any number of tasks may share a model. Sampling holds the model's lock, so tasks
// at one clip run one after the other.
class AnimationClipModel {
 public:
  // Copies `size` bytes. Up to the size of a header nothing is copied: such a clip has no tracks,
  // and 0 frames, whatever the bytes say.
  AnimationClipModel(const uint8_t* data, uint32_t size);
  AnimationClipModel(const AnimationClipModel&) = delete;
  AnimationClipModel& operator=(const AnimationClipModel&) = delete;

  void EnsureParsed() {
    if (!parsed.load(std::memory_order_acquire)) {
      Parse();
    }
  }

  // Distinct target indices. A curve without keys counts.
  uint32_t TrackCount() {
    EnsureParsed();
    return static_cast<uint32_t>(targets.size());
  }

  // The samples at a whole frame, modulo the clip's length. Computed once in the life of the model;
  // the result stays valid and unchanged as long as that.
  const SampleMap& SampleAtFrame(uint32_t frame);

  // The samples at any moment, wrapped at the clip's length. A negative time stays negative and
  // samples the first keys. The second form reuses the memory of `samples`.
  SampleMap SampleAtTime(float time);
  void SampleAtTime(float time, SampleMap* samples);

  // For looking at a parsed model, while no task uses it.
  uint32_t frameCount() const NQ_NO_THREAD_SAFETY_ANALYSIS { return frames; }
  uint32_t framesPerSecond() const NQ_NO_THREAD_SAFETY_ANALYSIS { return rate; }
  size_t CachedFrames() const NQ_NO_THREAD_SAFETY_ANALYSIS { return frameCache.size(); }

 private:
  friend struct ParsedTracks;  // puts the tracks together again, for tests

  void Parse() NQ_EXCLUDES(lock);
  void SampleAllAt(float time, SampleMap* samples) const NQ_REQUIRES(lock);

  Mutex lock;
  std::atomic<bool> parsed;

  // Written by the parse alone, which every reader has behind it.
  std::vector<uint32_t> targets;  // target indices, ascending
  ClipTimelines timelines;        // the tracks, in that order

  uint32_t frames NQ_GUARDED_BY(lock) = 0;
  uint32_t rate NQ_GUARDED_BY(lock) = 0;  // frames per second
  const SampleMap emptySamples;           // what a clip of 0 frames answers with
  std::unordered_map<uint32_t, SampleMap> frameCache NQ_GUARDED_BY(lock);  // never trimmed
  std::unique_ptr<uint8_t[]> raw NQ_GUARDED_BY(lock);                      // until parsed
  uint32_t rawSize NQ_GUARDED_BY(lock) = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONCLIPMODEL_H_
