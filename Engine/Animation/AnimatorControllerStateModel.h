// A state of a layer: a weighted set of clips.
#ifndef NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_
#define NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_

#include <cstdint>

#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/AnimationRecord.h"

namespace nq::engine {

class EngineCore;

// All its data is in its shared block (AnimationRecord.h).
struct AnimatorControllerStateModel {
  const ControllerStateRecord& Record() const {
    return *reinterpret_cast<const ControllerStateRecord*>(data);
  }
  const ControllerClipRecord& Clip(uint32_t k) const {
    return reinterpret_cast<const ControllerClipRecord*>(data + sizeof(ControllerStateRecord))[k];
  }

  EngineCore* core;  // not reference-counted
  uint8_t* data;     // the block; the value owns it
  uint32_t clipCount;
};

// The value behind a state's handle.
class AnimatorControllerStateModelValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~AnimatorControllerStateModelValue() override {
    if (component != &first) {
      delete component;
    }
  }

  // Allocates a zeroed block for `count` clips, and creates the state on it. Kept on purpose: a
  // second call does not delete the first state; the native surface is fixed.
  void* Allocate(uint32_t count) override;

  AnimatorControllerStateModel* component = nullptr;

 private:
  // The first one is part of the value, so that a look-up leads to memory nearby.
  AnimatorControllerStateModel first = {};
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_
