// A state of a layer: a weighted set of clips.
#ifndef NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_
#define NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_

#include <cstdint>

#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/AnimationRecord.h"

namespace nq::engine {

class EngineCore;

// Everything about it stands in its shared block (AnimationRecord.h).
struct AnimatorControllerStateModel {
  const ControllerStateRecord& Record() const {
    return *reinterpret_cast<const ControllerStateRecord*>(data);
  }
  const ControllerClipRecord& Clip(uint32_t k) const {
    return reinterpret_cast<const ControllerClipRecord*>(data + sizeof(ControllerStateRecord))[k];
  }

  EngineCore* core;  // not counted
  uint8_t* data;     // the block; the value owns it
  uint32_t clipCount;
};

// The value behind a state's handle.
class AnimatorControllerStateModelValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~AnimatorControllerStateModelValue() override { delete component; }

  // Takes a zeroed block for `count` clips, and makes the state over it.
  // Kept on purpose: an earlier state is not deleted.
  void* Allocate(uint32_t count) override;

  AnimatorControllerStateModel* component = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATORCONTROLLERSTATEMODEL_H_
