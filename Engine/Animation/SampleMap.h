// Samples of a clip's tracks at one time.
#ifndef NQ_ENGINE_ANIMATION_SAMPLEMAP_H_
#define NQ_ENGINE_ANIMATION_SAMPLEMAP_H_

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Engine/Animation/ClipSampling.h"

namespace nq::engine {

// One sample per target index, in ascending order of the indices. The indices are owned by the clip
// model, which must outlive the map.
class SampleMap {
 public:
  uint32_t Size() const { return count; }

  // The target index and the sample at a position.
  uint32_t Target(uint32_t i) const { return targets[i]; }
  const ClipSample& Sample(uint32_t i) const { return samples[i]; }
  const ClipSample* Data() const { return samples.data(); }

  // True if the target indices, at least one, have no gaps: they are distinct and ascend.
  bool IsDense() const { return targets[count - 1] - targets[0] == count - 1; }

  // The sample of a target index, or null.
  const ClipSample* Find(uint32_t target) const {
    const uint32_t* found = std::lower_bound(targets, targets + count, target);
    return found != targets + count && *found == target ? &samples[found - targets] : nullptr;
  }

  // Makes room for `count` samples of the clip with this serial number (0: of no clip), which the
  // caller fills. Reuses its memory.
  ClipSample* Reset(const uint32_t* targetIndices, uint32_t targetCount, uint64_t clipSerial) {
    targets = targetIndices;
    serial = clipSerial;
    count = targetCount;
    if (samples.size() < count) {
      samples.resize(count);
    }
    return samples.data();
  }

  // The serial number that the last Reset was given; 0 before the first.
  uint64_t Serial() const { return serial; }

 private:
  uint64_t serial = 0;
  const uint32_t* targets = nullptr;
  uint32_t count = 0;
  std::vector<ClipSample> samples;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_SAMPLEMAP_H_
