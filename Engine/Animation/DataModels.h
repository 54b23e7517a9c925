// The values behind the handles of data models: content that the script passes once and components
// share.
#ifndef NQ_ENGINE_ANIMATION_DATAMODELS_H_
#define NQ_ENGINE_ANIMATION_DATAMODELS_H_

#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/SkeletonBonesInverseModel.h"

namespace nq::engine {

class AnimationClipModelValue final : public HandlerValue {
 public:
  using HandlerValue::HandlerValue;
  ~AnimationClipModelValue() override { delete model; }

  AnimationClipModel* model = nullptr;  // set right after the handle is issued
};

class SkeletonBonesInverseModelValue final : public HandlerValue {
 public:
  using HandlerValue::HandlerValue;
  ~SkeletonBonesInverseModelValue() override { delete model; }

  SkeletonBonesInverseModel* model = nullptr;  // set right after the handle is issued
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_DATAMODELS_H_
