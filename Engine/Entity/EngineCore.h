// The object that every wrapper holds: the four systems, and the operations on them.
#ifndef NQ_ENGINE_ENTITY_ENGINECORE_H_
#define NQ_ENGINE_ENTITY_ENGINECORE_H_

#include <cstdint>
#include <string>

#include "Common/Def/HandlerOwner.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryBlock.h"

namespace nq::engine {

class AnimationSystem;
class ComponentSystem;
class EntitySystem;
class MatrixFlowSystem;
struct CameraPose;
struct CullResult;
struct OrthographicLens;
struct PerspectiveLens;

// Creates each system when it is first needed and forwards to it. Starts with one reference; every
// wrapper and every value in a system's table holds another one. Holds one on the runtime.
//
// The destructor deletes the systems in the order of the accessors below, then drops its reference
// on the runtime.
//
// Thread safety: script thread. Worker tasks may use the accessors of systems that exist already,
// and the operations that say so.
class EngineCore final : public HandlerOwner {
 public:
  explicit EngineCore(EngineRuntime* runtime);
  ~EngineCore() override;

  EngineRuntime* Runtime() override { return runtime; }

  EntitySystem* Entities();
  ComponentSystem* Components();
  AnimationSystem* Animation();
  MatrixFlowSystem* MatrixFlow();

  // Batches of 1 to 4095 entities. Any other count, including a negative one, returns all zero and
  // creates no system.
  NativeValueInfo CreateEntities2D(int32_t count);
  NativeValueInfo CreateEntities3D(int32_t count);

  // Sets the name of `handle`'s entity; it may be empty. Unknown handles are ignored.
  void SetEntityName(uint32_t handle, const std::string& name);

  // Releases the whole batch of `handle`.
  void ReleaseEntities(uint32_t handle);

  // The buffers behind "dirtyEntities" and "entityCommands", of 49152 bytes each.
  MemoryBlock DirtyEntitiesBlock();
  MemoryBlock EntityCommandsBlock();

  // A frame's transform pass: computes world matrices from what the script wrote.
  void RefreshWorldTransform();

  // The same for one entity, for native callers that need its matrix at once.
  void RefreshEntity(uint32_t handle);

  // Batches of 1 to 4095 culling objects; other counts are handled as above.
  NativeValueInfo CreateCullingComponent(int32_t count);
  void ReleaseCullingComponent(uint32_t handle);

  // The objects that a camera sees, of those whose layers overlap `mask`: from `list`, `listCount`
  // handles, or all if `list` is null. Sorted by depth. Valid until the next of these calls.
  const CullResult& CullWithFrustum(uint32_t mask, const CameraPose& pose,
                                    const PerspectiveLens& lens, const uint32_t* list,
                                    uint32_t listCount);
  const CullResult& CullOrtho(uint32_t mask, const CameraPose& pose, const OrthographicLens& lens,
                              const uint32_t* list, uint32_t listCount);

  // Animators and skinning components. All zero for a count of 0.
  NativeValueInfo CreateAnimatorComponent(uint32_t clipCount, uint32_t entityCount);
  void ReleaseAnimatorComponent(uint32_t handle);
  NativeValueInfo CreateSkinningMatrixComponent(uint32_t count);
  void ReleaseSkinningMatrixComponent(uint32_t handle);

  // Controllers, their states and their bindings; see AnimationSystem.
  NativeValueInfo CreateAnimatorControllerModel(uint32_t count);
  void ReleaseAnimatorControllerModel(uint32_t handle);
  NativeValueInfo CreateAnimatorControllerStateModel(uint32_t count);
  void ReleaseAnimatorControllerStateModel(uint32_t handle);
  uint32_t CreateAnimationClipBinding(const uint8_t* bytes, uint32_t byteOffset, uint32_t clipCount,
                                      uint32_t targetWords, uint32_t mode);
  void ReleaseAnimationClipBinding(uint32_t handle);

  // Content that components share. The bytes are copied; see AnimationSystem.
  uint32_t CreateAnimationClipModel(const uint8_t* data, uint32_t size);
  void ReleaseAnimationClipModel(uint32_t handle);
  uint32_t CreateSkeletonBonesInverseModel(const uint8_t* data, uint32_t size);
  void ReleaseSkeletonBonesInverseModel(uint32_t handle);

  // Buffers of arithmetic over shared memory; see MatrixFlowSystem.
  NativeValueInfo CreateCommandBuffer(int32_t size);
  NativeValueInfo ResizeCommandBuffer(uint32_t handle, uint32_t size);
  void ReleaseCommandBuffer(uint32_t handle);
  int32_t ExecuteCommandBuffer(uint32_t handle);

  // Evaluates one component. Also callable in worker tasks.
  void UpdateAnimator(uint32_t handle);
  void UpdateAnimatorController(uint32_t handle);
  void UpdateSkinningMatrix(uint32_t handle);

 private:
  EngineRuntime* const runtime;  // one counted reference
  EntitySystem* entitySystem = nullptr;
  ComponentSystem* componentSystem = nullptr;
  AnimationSystem* animationSystem = nullptr;
  MatrixFlowSystem* matrixFlowSystem = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENGINECORE_H_
