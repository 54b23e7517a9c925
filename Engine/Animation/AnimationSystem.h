// The system of clips, animators, controllers and skinning.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_

#include <cstdint>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimatorComponent.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/DataModels.h"
#include "Engine/Animation/SkinningMatrixComponent.h"

namespace nq::engine {

class EngineCore;

// Owns all animation content and players of one engine. Each table issues its own handles.
//
// Thread safety: creation and release on the script thread. Find... and Update... also in worker
// tasks, while the script thread waits for them: nothing changes a table meanwhile.
class AnimationSystem {
 public:
  explicit AnimationSystem(EngineCore* core);
  virtual ~AnimationSystem() = default;
  AnimationSystem(const AnimationSystem&) = delete;
  AnimationSystem& operator=(const AnimationSystem&) = delete;

  // All zero if a count is 0 or no handle is left.
  NativeValueInfo CreateAnimatorComponent(uint32_t clipCount, uint32_t entityCount);
  NativeValueInfo CreateSkinningMatrixComponent(uint32_t count);
  NativeValueInfo CreateAnimatorControllerModel(uint32_t layerCount);
  NativeValueInfo CreateAnimatorControllerStateModel(uint32_t clipCount);

  // A binding over target lists (see AnimationClipBinding). If the lists can't be read, it binds
  // nothing. 0 if a count is 0 or no handle is left.
  uint32_t CreateBinding(const uint8_t* bytes, uint32_t byteOffset, uint32_t clipCount,
                         uint32_t targetWords, uint32_t mode);

  // Copies the bytes. Never rejects content: a clip is parsed when it is first used. 0 if no handle
  // is left.
  uint32_t CreateAnimationClipModel(const uint8_t* data, uint32_t size);
  uint32_t CreateSkeletonBonesInverseModel(const uint8_t* data, uint32_t size);

  // Players may still hold the released handle: their updates then find nothing.
  void ReleaseAnimatorComponent(uint32_t handle) { animatorComponents.Release(handle); }
  void ReleaseAnimationClipBinding(uint32_t handle) { bindings.Release(handle); }
  void ReleaseAnimatorControllerModel(uint32_t handle) { controllerModels.Release(handle); }
  void ReleaseAnimatorControllerStateModel(uint32_t handle) { stateModels.Release(handle); }
  void ReleaseSkinningMatrixComponent(uint32_t handle) { skinningComponents.Release(handle); }
  void ReleaseAnimationClipModel(uint32_t handle) { clipModels.Release(handle); }
  void ReleaseSkeletonBonesInverseModel(uint32_t handle) { bonesModels.Release(handle); }

  // Null if there is none. Not owned. The element index of a handle is ignored.
  AnimatorComponent* FindAnimatorComponent(uint32_t handle) const;
  AnimationClipBinding* FindAnimationClipBinding(uint32_t handle) const;
  AnimatorControllerModel* FindAnimatorControllerModel(uint32_t handle) const;
  AnimatorControllerStateModel* FindAnimatorControllerStateModel(uint32_t handle) const;
  SkinningMatrixComponent* FindSkinningMatrixComponent(uint32_t handle) const;
  AnimationClipModel* FindAnimationClipModel(uint32_t handle) const;
  SkeletonBonesInverseModel* FindSkeletonBonesInverseModel(uint32_t handle) const;

  // Updates the player of `handle`, if there is one. Entities in a tree that refreshes do not reach
  // from a root get their world matrices at once.
  void UpdateAnimator(uint32_t handle);
  void UpdateAnimatorController(uint32_t handle);
  void UpdateSkinningMatrix(uint32_t handle);

  EngineCore* const core;  // not reference-counted

 private:
  // Destroyed from the last to the first.
  HandlerAllocator<AnimatorComponentValue> animatorComponents;
  HandlerAllocator<AnimationClipBindingValue> bindings;
  HandlerAllocator<AnimatorControllerModelValue> controllerModels;
  HandlerAllocator<AnimatorControllerStateModelValue> stateModels;
  HandlerAllocator<SkinningMatrixComponentValue> skinningComponents;
  HandlerAllocator<SkeletonBonesInverseModelValue> bonesModels;
  HandlerAllocator<AnimationClipModelValue> clipModels;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_
