// The evaluation of common controllers in one pass over the bones, four bones at a time.
#ifndef NQ_ENGINE_ANIMATION_FUSEDEVALUATION_H_
#define NQ_ENGINE_ANIMATION_FUSEDEVALUATION_H_

#include <array>
#include <cstdint>
#include <vector>

#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/PoseRows.h"
#include "Engine/Animation/SampleMap.h"

namespace nq::engine {

class AnimationClipModel;
class AnimatorControllerModel;
class EntityPoseWriter;
struct BoneRun;
struct AnimatorControllerStateModel;

// Where ControllerEvaluation makes a pass over all bones for each state and layer, this class keeps
// the poses of four bones (slots of the binding's rest poses) in registers through all states and
// layers, up to the entities' records. The bits of the results are those of ControllerEvaluation,
// which evaluates what this class refuses:
//
//   - a state that fills up with rest poses
//   - clips with Euler angles, or with several targets for one entity
//   - more than kMaxClips clips at once, or references to more than kMaxReferences poses
//   - a channel or rotation that becomes NaN (whose payload would depend on the order of operands)
//   - rest poses that completing a layer would insert
//
// The last two are found on the way. What was written until then is what the general evaluation
// writes again.
//
// Thread safety: as ControllerEvaluation.
class FusedEvaluation {
 public:
  // Evaluates a controller with a binding. False if it refuses: the caller evaluates in full.
  bool Run(AnimatorControllerModel* controller, AnimationClipBinding* binding);

 private:
  static constexpr uint32_t kMaxClips = 16;
  static constexpr uint32_t kMaxReferences = 8;
  static constexpr uint32_t kGroups = 16;  // of four slots, in a block
  static constexpr uint32_t kBlock = 4 * kGroups;

  struct FourSamples;
  struct FourRotations;
  struct BlockRotations;
  struct BlockPoses;

  // Samples of a clip, found by slot.
  struct Samples {
    Samples() = default;
    Samples(const SlotSamples* bySlot, const SampleMap& map);

    // The sample of a slot, or null.
    const ClipSample* Find(uint32_t slot) const {
      const uint32_t position = bySlot->At(slot);
      return position < count ? samples + position : nullptr;
    }

    const SlotSamples* bySlot = nullptr;
    const ClipSample* samples = nullptr;
    uint32_t count = 0;
    uint32_t orderEnd = 0;  // each slot below this one has the sample of the same number
  };

  struct Clip {
    Samples own;
    Samples reference;  // of additive layers
    const uint8_t* moves;
    float weight;
  };

  // Indices of consecutive elements.
  struct Range {
    uint32_t begin;
    uint32_t end;
  };

  struct State {
    float weight;
    Range clips;
  };

  struct Layer {
    Merge merge;
    bool additive;
    float share;
    const float* mask;  // by slot; null for a layer that is not masked
    Range states;
  };

  // A pose that is subtracted. Characters of a crowd mostly share them, and they mostly stay from
  // frame to frame.
  struct Reference {
    uint64_t serial = 0;    // of the clip; 0 for none
    uint32_t timeBits = 0;  // of the sampled time, a float
    uint64_t run = 0;       // the last one that used it
    SampleMap samples;
  };

  // Lists what is evaluated, in order, and samples it.
  bool Gather(AnimatorControllerModel* controller, AnimationClipBinding* binding);
  bool GatherLayer(const AnimatorControllerModel& controller, const ControllerLayerRecord& record,
                   AnimationClipBinding* binding);
  bool GatherState(const AnimatorControllerStateModel& state, bool additive,
                   AnimationClipBinding* binding);
  bool GatherClip(const ControllerClipRecord& entry, bool additive, AnimationClipBinding* binding);
  bool FindReference(const ControllerClipRecord& entry, AnimationClipBinding* binding, Clip* clip);
  const SampleMap* SampleReference(AnimationClipModel* model, float time);

  // The pass over a block of slots: first positions and scales of the bones that have some, then
  // the rotations of groups of four. Each step of these goes over all groups, since the groups are
  // independent of each other: while one waits for a square root or a division, the next proceeds.
  bool PoseBlock(uint32_t slot, uint32_t slots, RestPoses* restPoses, EntityPoseWriter* writer);
  uint32_t MovingLanes(uint32_t slot) const;
  bool BlendMovingBone(uint32_t slot, RestPoses* restPoses, float* scales, PoseRow* rows) const;
  static void AddChannels(const Clip& clip, uint32_t slot, float w, bool additive, PoseRow* pose);
  bool BlendMovingBones(uint32_t slot, uint32_t groups, RestPoses* restPoses);
  bool BlendRotations(uint32_t slot, uint32_t groups, RestPoses* restPoses,
                      BlockRotations* rotations) const;
  void SumLayerRotations(const Layer& layer, uint32_t slot, uint32_t groups,
                         BlockRotations* rotations) const;
  static void AddClipRotations(const Clip& clip, const Layer& layer, uint32_t slot, bool isFirst,
                               FourRotations* rotations);
  static void AddStateRotations(const FourRotations& state, __m128 s, bool isFirst,
                                FourRotations* rotations);
  static bool CompleteRotations(const Layer& layer, uint32_t groups, const float* scales,
                                RestPoses* restPoses, FourRotations* rotations);
  static void MergeLayerRotations(const Layer& layer, uint32_t slot, uint32_t groups,
                                  RestPoses* restPoses, BlockRotations* rotations);
  bool Moves(uint32_t bone) const { return (moving[bone / 4] >> bone % 4 & 1) != 0; }
  void WriteBlock(const BlockPoses& poses, const uint32_t* numbers, uint32_t bones,
                  EntityPoseWriter* writer) const;
  void WriteRun(const BlockPoses& poses, uint32_t begin, const BoneRun& run) const;

  uint64_t run = 0;                 // counts calls of Run
  PrefetchList* touched = nullptr;  // of the controller that is evaluated
  uint32_t slotEnd = 0;
  std::vector<Clip> clips;
  std::vector<State> states;
  std::vector<Layer> layers;
  std::array<SampleMap, kMaxClips> samples;  // of `clips`
  std::array<Reference, kMaxReferences> references;

  // Of the block's bones that move.
  uint32_t moving[kGroups];   // bits of the lanes of each group
  PoseRow rows[kBlock][2];    // final positions and scales
  std::vector<float> scaleZ;  // scale z in each layer, kBlock apart; 0 for the other bones
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_FUSEDEVALUATION_H_
