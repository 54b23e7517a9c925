// Poses a set of entities from layers of states.
#ifndef NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERMODEL_H_
#define NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERMODEL_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/PrefetchList.h"

namespace nq::engine {

class EngineCore;

// The weight of a layer for each entity. An entity that is not in the mask has weight 1.
class ControllerMask {
 public:
  // Replaces the mask by `count` records, at least 1; the first of several for an entity counts.
  void Set(const uint8_t* records, uint32_t count);

  // Weights by slot of a binding's rest poses; 1 for entities not in the mask, and in up to three
  // more slots, so that four at a time can be read.
  const float* WeightsBySlot(const RestPoses& restPoses);

  // Notes what WeightsBySlot read and returned.
  void NoteTouched(PrefetchList* touched) const {
    touched->Note(this);
    touched->Note(weights.data(), weights.size() * sizeof(weights[0]));
  }

 private:
  std::vector<ControllerMaskRecord> entries;  // in ascending order of entities
  std::vector<float> weights;
  uint64_t seenVersion = 0;  // version of the rest poses that `weights` was made for; 0 for none
};

// The masks of a controller's layers. Only masked layers have one: controllers with many layers and
// few masks use no memory for the others.
class ControllerMasks {
 public:
  // Replaces the mask of a layer by `count` records; 0 records unmask it.
  void Set(uint32_t layer, const uint8_t* records, uint32_t count);

  // The mask of a layer, or null for one that is not masked. Valid until the next Set.
  ControllerMask* Find(uint32_t layer);

 private:
  std::map<uint32_t, ControllerMask> byLayer;
};

// Holds no state machine and no clock: the script sets in the shared block, and in those of the
// states, which states are live, at which time and with which weight, and the controller evaluates
// that.
//
// Thread safety: updates of controllers with different bindings and entities may run concurrently.
class AnimatorControllerModel {
 public:
  // `data` is the block, which the value owns.
  AnimatorControllerModel(EngineCore* core, uint8_t* data, uint32_t layerCount)
      : core(core), data(data), layerCount(layerCount) {}
  virtual ~AnimatorControllerModel() = default;
  AnimatorControllerModel(const AnimatorControllerModel&) = delete;
  AnimatorControllerModel& operator=(const AnimatorControllerModel&) = delete;

  // Evaluates once, into the records of the bound entities. Builds the local matrix of each posed
  // entity and marks it, even if nothing was stored.
  virtual void Update();

  // Sets the mask of a layer from `count` records at `bytes + offset`; 0 records unmask it. False
  // if there is no such layer. Script thread only.
  bool SetMask(uint32_t index, const uint8_t* bytes, uint32_t offset, uint32_t count);

  // The binding that the block names, or null.
  AnimationClipBinding* Binding() const;

  const ControllerLayerRecord& Layer(uint32_t index) const {
    return reinterpret_cast<const ControllerLayerRecord*>(data + kControllerLayersOffset)[index];
  }

  EngineCore* const core;  // not reference-counted
  uint8_t* const data;     // not owned
  const uint32_t layerCount;
  ControllerMasks masks;
  PrefetchList touched;  // by the last update
};

// The value behind a controller's handle.
class AnimatorControllerModelValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~AnimatorControllerModelValue() override {
    if (!first.has_value() || component != &*first) {
      delete component;
    }
  }

  // Allocates a zeroed block for `count` layers, and creates the controller on it. Kept on purpose:
  // a second call does not delete the first controller; the native surface is fixed.
  void* Allocate(uint32_t count) override;

  AnimatorControllerModel* component = nullptr;

 private:
  // The first one is part of the value, so that a look-up leads to memory nearby.
  std::optional<AnimatorControllerModel> first;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERMODEL_H_
