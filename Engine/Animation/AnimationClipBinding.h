// Ties clips to the entities that they move, for one animator controller.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONCLIPBINDING_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONCLIPBINDING_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/RestPoses.h"

namespace nq::engine {

class AnimationClipModel;
class EngineCore;
class Entity;

// Which sample of a clip poses each slot of a binding's rest poses.
class SlotSamples {
 public:
  static constexpr uint32_t kNoSample = 0xFFFFFFFFu;

  // The position of a slot's sample, or kNoSample.
  uint32_t At(uint32_t slot) const {
    return slot >= end ? kNoSample : isInOrder ? slot : positions[slot];
  }

  bool isUsable = false;   // no two samples pose the same slot
  bool isInOrder = false;  // sample i poses slot i, up to `end`: `positions` is empty
  uint32_t end = 0;        // above the last slot that has a sample
  std::vector<uint32_t> positions;

  uint64_t serial = 0;  // of the clip that it was made for; 0 for none
};

// Holds, for each clip, the entities of its target indices, and for each bound entity the rest pose
// that blending falls back on. Only 3D entities are bound.
//
// TARGET LISTS, as the script passes them: 4-byte words at any offset of a buffer. First
// `clipCount` clip handles, then for each clip a count n and n entity handles; 0xFFFFFFFF is an
// index without a target. `targetWords` counts the words after the clip handles.
//
// Thread safety: creation and Update on the script thread. Evaluation reads the binding and adds
// keys to `defaults`, in one task at a time: controllers that share a binding must not share a
// batch.
class AnimationClipBinding {
 public:
  // What Update does with the rest poses of entities that were removed, kept or added.
  enum Mode : uint32_t {
    kKeepPose = 0,      // removed or kept entities: the old rest pose is kept
    kSnapshotPose = 1,  // kept or added entities: their records become the rest pose
    kWriteBack = 2,     // bit that combines with these: also write the old rest pose to the entity
  };

  // An entry of a clip's list.
  struct Target {
    uint32_t handle;  // kNoHandle for none
    uint32_t slot;    // in `defaults`, as last looked up by SlotsOf
  };

  AnimationClipBinding(EngineCore* core, uint32_t clipCount, uint32_t targetWords)
      : core(core), clipCount(clipCount), targetWords(targetWords) {}
  AnimationClipBinding(const AnimationClipBinding&) = delete;
  AnimationClipBinding& operator=(const AnimationClipBinding&) = delete;

  // Reads the lists, and takes snapshots of all bound entities if `mode` is exactly 1. If the lists
  // can't be read, the binding has none.
  void Create(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips, uint32_t words,
              uint32_t mode);

  // Reads target lists and adds the entities they name to `resolved`. Returns false and changes
  // nothing else if a clip does not resolve or a group exceeds the word count passed at creation,
  // which later lists do not change.
  bool ParseTargets(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips, uint32_t words,
                    std::map<uint32_t, Entity*>* resolved);

  // Replaces the lists; see Mode. Returns false and changes nothing if the new ones can't be read.
  bool Update(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips, uint32_t words,
              uint32_t removedMode, uint32_t keptMode, uint32_t addedMode);

  // The list of a clip with its slots brought up to date, or null.
  const std::vector<Target>* SlotsOf(uint32_t clipHandle);

  // The same by slot, for the clip that the handle names. Only if HasList.
  const SlotSamples* SamplesBySlot(uint32_t clipHandle, AnimationClipModel* clip);

  // True if the binding has a list for the clip, even an empty one.
  bool HasList(uint32_t clipHandle) const { return clipTargets.count(clipHandle) != 0; }

  // The topmost 3D ancestor of the first entity that the lists name, in ascending order of clips;
  // null if they name none, or once its batch is released.
  Entity* rootEntity() const;

  EngineCore* const core;  // not reference-counted
  const uint32_t clipCount;
  const uint32_t targetWords;
  RestPoses defaults;

  // --- For native callers only: no frame runs these, and JavaScript can't reach them.

  // The entity of a clip's target index, or null.
  Entity* FindTarget(uint32_t clipHandle, uint32_t targetIndex) const;

  // Writes all rest poses to their entities.
  void WriteDefaults() const;

 private:
  // A clip's targets, as an index into `targetLists`, and what was derived from them.
  struct ClipTargets {
    size_t list;
    SlotSamples bySlot;
  };

  void FindRoot();
  void LookUpSlots();
  void Snapshot(const Entity* entity);

  std::map<uint32_t, ClipTargets> clipTargets;   // by clip handle
  std::vector<std::vector<Target>> targetLists;  // clips with the same targets share one
  uint64_t slotsVersion = 0;                     // version of `defaults` at the last slot look-up
  uint32_t root = 0;                             // handle, 0 for none
  uint32_t rootGeneration = 0;
};

// The value behind a binding's handle.
class AnimationClipBindingValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;

  AnimationClipBinding* component = nullptr;

  // `component`, once it is created: part of the value, so that a look-up leads to memory nearby.
  std::optional<AnimationClipBinding> binding;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONCLIPBINDING_H_
