// Creation and release of animation content and players, and the updates that the script calls.
#include "Engine/Animation/AnimationSystem.h"

#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

// The native object of a value in `table`, or null.
template <typename Value>
auto* ComponentOf(const HandlerAllocator<Value>& table, uint32_t handle) {
  Value* value = table.Find(handle);
  return value == nullptr ? nullptr : value->component;
}

// A value with a block for `count` elements; all zero if `count` is 0.
template <typename Value>
NativeValueInfo CreateOver(HandlerAllocator<Value>* table, uint32_t count) {
  Value* value = count == 0 ? nullptr : table->Allocate();
  if (value == nullptr) {
    return NativeValueInfo();
  }
  value->Allocate(count);
  return value->Info();
}

template <typename Value>
auto* ModelOf(const HandlerAllocator<Value>& table, uint32_t handle) {
  Value* value = table.Find(handle);
  return value == nullptr ? nullptr : value->model;
}

}  // namespace

AnimationSystem::AnimationSystem(EngineCore* core)
    : core(core),
      animatorComponents(core),
      bindings(core),
      controllerModels(core),
      stateModels(core),
      skinningComponents(core),
      bonesModels(core),
      clipModels(core) {}

NativeValueInfo AnimationSystem::CreateAnimatorComponent(uint32_t clipCount, uint32_t entityCount) {
  if (clipCount == 0 || entityCount == 0) {
    return NativeValueInfo();
  }
  AnimatorComponentValue* value = animatorComponents.Allocate();
  if (value == nullptr) {
    return NativeValueInfo();
  }
  void* memory = value->Allocate(AnimatorBlockBytes(clipCount, entityCount));
  value->component =
      new AnimatorComponent(core, static_cast<uint8_t*>(memory), clipCount, entityCount);
  return value->Info();
}

NativeValueInfo AnimationSystem::CreateSkinningMatrixComponent(uint32_t count) {
  return CreateOver(&skinningComponents, count);
}

NativeValueInfo AnimationSystem::CreateAnimatorControllerModel(uint32_t layerCount) {
  return CreateOver(&controllerModels, layerCount);
}

NativeValueInfo AnimationSystem::CreateAnimatorControllerStateModel(uint32_t clipCount) {
  return CreateOver(&stateModels, clipCount);
}

uint32_t AnimationSystem::CreateBinding(const uint8_t* bytes, uint32_t byteOffset,
                                        uint32_t clipCount, uint32_t targetWords, uint32_t mode) {
  if (clipCount == 0 || targetWords == 0) {
    return 0;
  }
  AnimationClipBindingValue* value = bindings.Allocate();
  if (value == nullptr) {
    return 0;
  }
  value->component = &value->binding.emplace(core, clipCount, targetWords);
  value->component->Create(bytes, byteOffset, clipCount, targetWords, mode);
  return value->handle;
}

uint32_t AnimationSystem::CreateAnimationClipModel(const uint8_t* data, uint32_t size) {
  AnimationClipModelValue* value = clipModels.Allocate();
  if (value == nullptr) {
    return 0;
  }
  value->model = new AnimationClipModel(data, size);
  return value->handle;
}

uint32_t AnimationSystem::CreateSkeletonBonesInverseModel(const uint8_t* data, uint32_t size) {
  SkeletonBonesInverseModelValue* value = bonesModels.Allocate();
  if (value == nullptr) {
    return 0;
  }
  value->model = new SkeletonBonesInverseModel(data, size);
  return value->handle;
}

AnimatorComponent* AnimationSystem::FindAnimatorComponent(uint32_t handle) const {
  return ComponentOf(animatorComponents, handle);
}

AnimationClipBinding* AnimationSystem::FindAnimationClipBinding(uint32_t handle) const {
  return ComponentOf(bindings, handle);
}

AnimatorControllerModel* AnimationSystem::FindAnimatorControllerModel(uint32_t handle) const {
  return ComponentOf(controllerModels, handle);
}

AnimatorControllerStateModel* AnimationSystem::FindAnimatorControllerStateModel(
    uint32_t handle) const {
  return ComponentOf(stateModels, handle);
}

SkinningMatrixComponent* AnimationSystem::FindSkinningMatrixComponent(uint32_t handle) const {
  return ComponentOf(skinningComponents, handle);
}

AnimationClipModel* AnimationSystem::FindAnimationClipModel(uint32_t handle) const {
  return ModelOf(clipModels, handle);
}

SkeletonBonesInverseModel* AnimationSystem::FindSkeletonBonesInverseModel(uint32_t handle) const {
  return ModelOf(bonesModels, handle);
}

void AnimationSystem::UpdateAnimator(uint32_t handle) {
  AnimatorComponent* component = FindAnimatorComponent(handle);
  if (component == nullptr) {
    return;
  }
  component->AnimatorComponent::Update();
  if (component->entityCount == 0 || component->firstTarget == nullptr) {
    return;
  }
  // Walks the links only: reading the entities' own records would cost cache misses.
  const TransformTree& tree = core->Entities()->Tree();
  const uint32_t top = tree.WalkUp(component->firstTargetHandle, CycleReport::kReached,
                                   [](uint32_t) { return true; });
  if (!tree.Links(top).IsRoot()) {
    tree.EntityOf(top)->UpdateTree();
  }
}

void AnimationSystem::UpdateAnimatorController(uint32_t handle) {
  AnimatorControllerModel* controller = FindAnimatorControllerModel(handle);
  if (controller == nullptr) {
    return;
  }
  controller->Update();
  const AnimationClipBinding* binding = controller->Binding();
  Entity* root = binding == nullptr ? nullptr : binding->rootEntity();
  if (root != nullptr && !core->Entities()->IsRoot(root)) {
    root->UpdateTree();
  }
}

void AnimationSystem::UpdateSkinningMatrix(uint32_t handle) {
  SkinningMatrixComponent* component = FindSkinningMatrixComponent(handle);
  if (component != nullptr) {
    component->SkinningMatrixComponent::Update();
  }
}

}  // namespace nq::engine
