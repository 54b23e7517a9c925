// Lazy creation of the systems, and forwarding to them. The composition root of the native side.
#include "Engine/Entity/EngineCore.h"

#include "Common/Def/EngineRuntime.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Culling/ComponentSystem.h"
#include "Engine/Entity/EntitySystem.h"
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

namespace nq::engine {

namespace {

bool IsBatchCount(int32_t count) {
  return count >= 1 && count <= kMaxBatchCount;
}

template <typename System>
System* Ensure(System** slot, EngineCore* core) {
  if (*slot == nullptr) {
    *slot = new System(core);
  }
  return *slot;
}

}  // namespace

EngineCore::EngineCore(EngineRuntime* runtime) : runtime(runtime) {
  runtime->AddReference();
}

EngineCore::~EngineCore() {
  delete entitySystem;
  delete componentSystem;
  delete animationSystem;
  delete matrixFlowSystem;
  runtime->DropReference();
}

EntitySystem* EngineCore::Entities() {
  return Ensure(&entitySystem, this);
}

ComponentSystem* EngineCore::Components() {
  return Ensure(&componentSystem, this);
}

AnimationSystem* EngineCore::Animation() {
  return Ensure(&animationSystem, this);
}

MatrixFlowSystem* EngineCore::MatrixFlow() {
  return Ensure(&matrixFlowSystem, this);
}

NativeValueInfo EngineCore::CreateEntities2D(int32_t count) {
  return IsBatchCount(count) ? Entities()->CreateEntities(false, static_cast<uint32_t>(count))
                             : NativeValueInfo();
}

NativeValueInfo EngineCore::CreateEntities3D(int32_t count) {
  return IsBatchCount(count) ? Entities()->CreateEntities(true, static_cast<uint32_t>(count))
                             : NativeValueInfo();
}

void EngineCore::SetEntityName(uint32_t handle, const std::string& name) {
  Entities()->SetEntityName(handle, name);
}

void EngineCore::ReleaseEntities(uint32_t handle) {
  Entities()->ReleaseEntities(handle);
}

MemoryBlock EngineCore::DirtyEntitiesBlock() {
  return Entities()->DirtyEntitiesBlock();
}

MemoryBlock EngineCore::EntityCommandsBlock() {
  return Entities()->EntityCommandsBlock();
}

void EngineCore::RefreshWorldTransform() {
  Entities()->RefreshWorldTransform();
}

void EngineCore::RefreshEntity(uint32_t handle) {
  Entities()->RefreshEntity(handle);
}

NativeValueInfo EngineCore::CreateCullingComponent(int32_t count) {
  return IsBatchCount(count) ? Components()->CreateCullingComponent(static_cast<uint32_t>(count))
                             : NativeValueInfo();
}

void EngineCore::ReleaseCullingComponent(uint32_t handle) {
  Components()->ReleaseCullingComponent(handle);
}

const CullResult& EngineCore::CullWithFrustum(uint32_t mask, const CameraPose& pose,
                                              const PerspectiveLens& lens, const uint32_t* list,
                                              uint32_t listCount) {
  return Components()->CullWithFrustum(mask, pose, lens, list, listCount);
}

const CullResult& EngineCore::CullOrtho(uint32_t mask, const CameraPose& pose,
                                        const OrthographicLens& lens, const uint32_t* list,
                                        uint32_t listCount) {
  return Components()->CullOrtho(mask, pose, lens, list, listCount);
}

NativeValueInfo EngineCore::CreateAnimatorComponent(uint32_t clipCount, uint32_t entityCount) {
  return Animation()->CreateAnimatorComponent(clipCount, entityCount);
}

void EngineCore::ReleaseAnimatorComponent(uint32_t handle) {
  Animation()->ReleaseAnimatorComponent(handle);
}

NativeValueInfo EngineCore::CreateSkinningMatrixComponent(uint32_t count) {
  return Animation()->CreateSkinningMatrixComponent(count);
}

void EngineCore::ReleaseSkinningMatrixComponent(uint32_t handle) {
  Animation()->ReleaseSkinningMatrixComponent(handle);
}

NativeValueInfo EngineCore::CreateAnimatorControllerModel(uint32_t count) {
  return Animation()->CreateAnimatorControllerModel(count);
}

void EngineCore::ReleaseAnimatorControllerModel(uint32_t handle) {
  Animation()->ReleaseAnimatorControllerModel(handle);
}

NativeValueInfo EngineCore::CreateAnimatorControllerStateModel(uint32_t count) {
  return Animation()->CreateAnimatorControllerStateModel(count);
}

void EngineCore::ReleaseAnimatorControllerStateModel(uint32_t handle) {
  Animation()->ReleaseAnimatorControllerStateModel(handle);
}

uint32_t EngineCore::CreateAnimationClipBinding(const uint8_t* bytes, uint32_t byteOffset,
                                                uint32_t clipCount, uint32_t targetWords,
                                                uint32_t mode) {
  return Animation()->CreateBinding(bytes, byteOffset, clipCount, targetWords, mode);
}

void EngineCore::ReleaseAnimationClipBinding(uint32_t handle) {
  Animation()->ReleaseAnimationClipBinding(handle);
}

uint32_t EngineCore::CreateAnimationClipModel(const uint8_t* data, uint32_t size) {
  return Animation()->CreateAnimationClipModel(data, size);
}

void EngineCore::ReleaseAnimationClipModel(uint32_t handle) {
  Animation()->ReleaseAnimationClipModel(handle);
}

uint32_t EngineCore::CreateSkeletonBonesInverseModel(const uint8_t* data, uint32_t size) {
  return Animation()->CreateSkeletonBonesInverseModel(data, size);
}

void EngineCore::ReleaseSkeletonBonesInverseModel(uint32_t handle) {
  Animation()->ReleaseSkeletonBonesInverseModel(handle);
}

NativeValueInfo EngineCore::CreateCommandBuffer(int32_t size) {
  return MatrixFlow()->CreateCommandBuffer(size);
}

NativeValueInfo EngineCore::ResizeCommandBuffer(uint32_t handle, uint32_t size) {
  return MatrixFlow()->ResizeCommandBuffer(handle, size);
}

void EngineCore::ReleaseCommandBuffer(uint32_t handle) {
  MatrixFlow()->ReleaseCommandBuffer(handle);
}

int32_t EngineCore::ExecuteCommandBuffer(uint32_t handle) {
  return MatrixFlow()->ExecuteCommandBuffer(handle);
}

void EngineCore::UpdateAnimator(uint32_t handle) {
  Animation()->UpdateAnimator(handle);
}

void EngineCore::UpdateAnimatorController(uint32_t handle) {
  Animation()->UpdateAnimatorController(handle);
}

void EngineCore::UpdateSkinningMatrix(uint32_t handle) {
  Animation()->UpdateSkinningMatrix(handle);
}

}  // namespace nq::engine
