// The functions that JavaScript calls: one engine per instance of the module. Conversion of
// arguments, checks of buffers and the classes are in lib/wasm/engine.js; here a call reaches one
// operation of the core. Addresses are those of the instance's memory; JavaScript passes no address
// that it was not given.
#include "wasm/Interface.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Unaligned.h"
#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Culling/CullResult.h"
#include "Engine/Culling/CullingRecord.h"
#include "Engine/Culling/ViewVolume.h"
#include "Engine/Entity/EngineCore.h"

namespace nq::engine {

namespace {

EngineCore* core = nullptr;

// Where JavaScript reads results; it gets the addresses from nqStart and nqCulled.
CreatedRecord created;
CulledRecord culled;

void* cullingResultBuffer = nullptr;  // from the general heap, owned
uint32_t cullingResultCapacity = kCullingResultCapacity;

uint32_t AddressOf(const void* pointer) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

void Publish(const NativeValueInfo& info) {
  created.handle = info.handle;
  created.size = info.size;
  created.memoryID = info.memoryID;
  created.pointer = AddressOf(info.pointer);
}

void PublishBlock(const MemoryBlock& block) {
  NativeValueInfo info;
  info.size = block.size;
  info.pointer = block.pointer;
  Publish(info);
}

// Evaluates the components of a list: a count word n and n handles, whose memory has `bytes` bytes.
// A count that exceeds them does nothing.
void UpdateEach(void (EngineCore::*update)(uint32_t handle), const uint8_t* list, uint32_t bytes) {
  const uint32_t count = ReadWord(list, 0);
  if (count > bytes / kWordBytes || count * kWordBytes + kWordBytes > bytes) {
    return;
  }
  for (uint32_t i = 1; i <= count; ++i) {
    (core->*update)(ReadWord(list, i));
  }
}

CameraPose PoseOf(const float* numbers) {
  CameraPose pose;
  pose.eye = {numbers[0], numbers[1], numbers[2]};
  pose.target = {numbers[3], numbers[4], numbers[5]};
  pose.up = {numbers[6], numbers[7], numbers[8]};
  return pose;
}

void PublishCulled(const CullResult& result) {
  culled.count = static_cast<uint32_t>(result.objects.size());
  culled.hash = result.hash;
  culled.objects = AddressOf(result.objects.data());
  culled.distances = AddressOf(result.distances.data());
}

constexpr int kPoseNumbers = 9;

}  // namespace

// Creates the engine, and the system of entities. Returns the address of the record of created
// objects.
NQ_EXPORT(nqStart) const CreatedRecord* nqStart() {
  // What is printed without a line feed must not wait for one.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  core = new EngineCore(new EngineRuntime(new MemoryAllocator()));
  core->Entities();
  cullingResultBuffer = std::calloc(1, CullingResultBytes(cullingResultCapacity));
  return &created;
}

// The address of the record of culling results.
NQ_EXPORT(nqCulled) const CulledRecord* nqCulled() {
  return &culled;
}

// The shared buffers, as records without a handle.
NQ_EXPORT(nqDirtyEntities) void nqDirtyEntities() {
  PublishBlock(core->DirtyEntitiesBlock());
}
NQ_EXPORT(nqEntityCommands) void nqEntityCommands() {
  PublishBlock(core->EntityCommandsBlock());
}
NQ_EXPORT(nqCullingResult) void nqCullingResult() {
  MemoryBlock block;
  block.size = static_cast<uint32_t>(CullingResultBytes(cullingResultCapacity));
  block.pointer = cullingResultBuffer;
  PublishBlock(block);
}

// Memory for arguments.
NQ_EXPORT(nqAllocate) void* nqAllocate(uint32_t bytes) {
  return std::malloc(bytes);
}
NQ_EXPORT(nqFree) void nqFree(void* pointer) {
  std::free(pointer);
}

NQ_EXPORT(nqCreateEntities) void nqCreateEntities(bool isThreeD, uint32_t count) {
  const int32_t signedCount = static_cast<int32_t>(count);
  Publish(isThreeD ? core->CreateEntities3D(signedCount) : core->CreateEntities2D(signedCount));
}

NQ_EXPORT(nqCreateCulling) void nqCreateCulling(uint32_t count) {
  Publish(core->CreateCullingComponent(static_cast<int32_t>(count)));
}
NQ_EXPORT(nqCreateAnimator) void nqCreateAnimator(uint32_t clipCount, uint32_t entityCount) {
  Publish(core->CreateAnimatorComponent(clipCount, entityCount));
}
NQ_EXPORT(nqCreateSkinning) void nqCreateSkinning(uint32_t count) {
  Publish(core->CreateSkinningMatrixComponent(count));
}
NQ_EXPORT(nqCreateController) void nqCreateController(uint32_t layerCount) {
  Publish(core->CreateAnimatorControllerModel(layerCount));
}
NQ_EXPORT(nqCreateState) void nqCreateState(uint32_t clipCount) {
  Publish(core->CreateAnimatorControllerStateModel(clipCount));
}
NQ_EXPORT(nqCreateCommandBuffer) void nqCreateCommandBuffer(uint32_t size) {
  Publish(core->CreateCommandBuffer(static_cast<int32_t>(size)));
}

// Content and bindings: a handle, 0 if nothing was created.
NQ_EXPORT(nqCreateClip) uint32_t nqCreateClip(const uint8_t* data, uint32_t size) {
  return core->CreateAnimationClipModel(data, size);
}
NQ_EXPORT(nqCreateBones) uint32_t nqCreateBones(const uint8_t* data, uint32_t size) {
  return core->CreateSkeletonBonesInverseModel(data, size);
}
NQ_EXPORT(nqCreateBinding)
uint32_t nqCreateBinding(const uint8_t* bytes, uint32_t byteOffset, uint32_t clipCount,
                         uint32_t targetWords, uint32_t mode) {
  return core->CreateAnimationClipBinding(bytes, byteOffset, clipCount, targetWords, mode);
}

NQ_EXPORT(nqHasBinding) bool nqHasBinding(uint32_t handle) {
  return core->Animation()->FindAnimationClipBinding(handle) != nullptr;
}
NQ_EXPORT(nqUpdateBinding)
bool nqUpdateBinding(uint32_t handle, const uint8_t* bytes, uint32_t byteOffset, uint32_t clipCount,
                     uint32_t targetWords, uint32_t removedMode, uint32_t keptMode,
                     uint32_t addedMode) {
  AnimationClipBinding* binding = core->Animation()->FindAnimationClipBinding(handle);
  return binding != nullptr && binding->Update(bytes, byteOffset, clipCount, targetWords,
                                               removedMode, keptMode, addedMode);
}

NQ_EXPORT(nqHasController) bool nqHasController(uint32_t handle) {
  return core->Animation()->FindAnimatorControllerModel(handle) != nullptr;
}
NQ_EXPORT(nqUpdateController) void nqUpdateController(uint32_t handle) {
  AnimatorControllerModel* controller = core->Animation()->FindAnimatorControllerModel(handle);
  if (controller != nullptr) {
    controller->Update();
  }
}
NQ_EXPORT(nqSetMask)
void nqSetMask(uint32_t handle, uint32_t index, const uint8_t* bytes, uint32_t byteOffset,
               uint32_t count) {
  AnimatorControllerModel* controller = core->Animation()->FindAnimatorControllerModel(handle);
  if (controller != nullptr) {
    controller->SetMask(index, bytes, byteOffset, count);
  }
}

NQ_EXPORT(nqSetEntityName)
void nqSetEntityName(uint32_t handle, const char* name, uint32_t length) {
  core->SetEntityName(handle, std::string(name, length));
}

NQ_EXPORT(nqRefreshWorldTransform) void nqRefreshWorldTransform() {
  core->RefreshWorldTransform();
}

NQ_EXPORT(nqUpdateAnimator) void nqUpdateAnimator(uint32_t handle) {
  core->UpdateAnimator(handle);
}
NQ_EXPORT(nqUpdateSkinningMatrix) void nqUpdateSkinningMatrix(uint32_t handle) {
  core->UpdateSkinningMatrix(handle);
}
NQ_EXPORT(nqUpdateAnimators) void nqUpdateAnimators(const uint8_t* list, uint32_t bytes) {
  UpdateEach(&EngineCore::UpdateAnimator, list, bytes);
}
NQ_EXPORT(nqUpdateAnimatorControllers)
void nqUpdateAnimatorControllers(const uint8_t* list, uint32_t bytes) {
  UpdateEach(&EngineCore::UpdateAnimatorController, list, bytes);
}
NQ_EXPORT(nqUpdateSkinningMatrices)
void nqUpdateSkinningMatrices(const uint8_t* list, uint32_t bytes) {
  UpdateEach(&EngineCore::UpdateSkinningMatrix, list, bytes);
}

// `numbers`: eye, target, up, and the lens. `list`: handles of the objects to test, or null.
NQ_EXPORT(nqCullFrustum)
void nqCullFrustum(uint32_t mask, const float* numbers, const uint32_t* list, uint32_t listCount) {
  const float* from = numbers + kPoseNumbers;
  const PerspectiveLens lens = {from[0], from[1], from[2], from[3]};
  PublishCulled(core->CullWithFrustum(mask, PoseOf(numbers), lens, list, listCount));
}
NQ_EXPORT(nqCullOrtho)
void nqCullOrtho(uint32_t mask, const float* numbers, const uint32_t* list, uint32_t listCount) {
  const float* from = numbers + kPoseNumbers;
  const OrthographicLens lens = {from[0], from[1], from[2], from[3], from[4], from[5]};
  PublishCulled(core->CullOrtho(mask, PoseOf(numbers), lens, list, listCount));
}

// Copies the last result into the buffer of culling results. True if that was replaced by a larger
// one.
NQ_EXPORT(nqStoreCulled) bool nqStoreCulled() {
  if (culled.count == 0) {
    return false;
  }
  const bool grows = culled.count > cullingResultCapacity;
  if (grows) {
    cullingResultCapacity = culled.count + kCullingResultSlack;
    cullingResultBuffer =
        std::realloc(cullingResultBuffer, CullingResultBytes(cullingResultCapacity));
  }
  uint8_t* buffer = static_cast<uint8_t*>(cullingResultBuffer);
  WriteUnaligned(buffer + kCullingResultHashOffset, culled.hash);
  WriteUnaligned(buffer + kCullingResultCountOffset, culled.count);
  const size_t listBytes = culled.count * sizeof(uint32_t);
  uint8_t* objects = buffer + kCullingResultObjectsOffset;
  std::memcpy(objects, reinterpret_cast<const void*>(culled.objects), listBytes);
  std::memcpy(objects + listBytes, reinterpret_cast<const void*>(culled.distances), listBytes);
  return grows;
}

NQ_EXPORT(nqExecute) int32_t nqExecute(uint32_t handle) {
  return core->ExecuteCommandBuffer(handle);
}

NQ_EXPORT(nqRelease) void nqRelease(ObjectKind kind, uint32_t handle) {
  switch (kind) {
    case ObjectKind::kEntities:
      core->ReleaseEntities(handle);
      break;
    case ObjectKind::kCulling:
      core->ReleaseCullingComponent(handle);
      break;
    case ObjectKind::kAnimator:
      core->ReleaseAnimatorComponent(handle);
      break;
    case ObjectKind::kSkinning:
      core->ReleaseSkinningMatrixComponent(handle);
      break;
    case ObjectKind::kClip:
      core->ReleaseAnimationClipModel(handle);
      break;
    case ObjectKind::kBones:
      core->ReleaseSkeletonBonesInverseModel(handle);
      break;
    case ObjectKind::kBinding:
      core->ReleaseAnimationClipBinding(handle);
      break;
    case ObjectKind::kController:
      core->ReleaseAnimatorControllerModel(handle);
      break;
    case ObjectKind::kState:
      core->ReleaseAnimatorControllerStateModel(handle);
      break;
    case ObjectKind::kCommandBuffer:
      core->ReleaseCommandBuffer(handle);
      break;
  }
}

}  // namespace nq::engine
