// The system of culling objects.
#ifndef NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_
#define NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_

#include <cstdint>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Engine/Culling/CullResult.h"
#include "Engine/Culling/Culler.h"
#include "Engine/Culling/CullingComponentValue.h"
#include "Engine/Culling/ViewVolume.h"

namespace nq::engine {

class EngineCore;

// Owns all culling objects of one engine and finds those that a camera sees. Script thread only.
class ComponentSystem {
 public:
  explicit ComponentSystem(EngineCore* core);
  virtual ~ComponentSystem() = default;
  ComponentSystem(const ComponentSystem&) = delete;
  ComponentSystem& operator=(const ComponentSystem&) = delete;

  // A new batch of objects, all disabled. All zero for a count of 0 or if no handle is left.
  NativeValueInfo CreateCullingComponent(uint32_t count);

  // Releases the whole batch of `handle`. May destroy the core and this system with it.
  void ReleaseCullingComponent(uint32_t handle) { cullingComponents.Release(handle); }

  // The batch of `handle`, or null. Not owned.
  CullingComponentValue* FindCullingComponent(uint32_t handle) const {
    return cullingComponents.Find(handle);
  }

  // The objects that the camera sees, of those in `list`, or of all if it is null, sorted by depth.
  // The result is owned by this system, and valid until the next call.
  const CullResult& CullWithFrustum(uint32_t mask, const CameraPose& pose,
                                    const PerspectiveLens& lens, const uint32_t* list,
                                    uint32_t listCount);
  const CullResult& CullOrtho(uint32_t mask, const CameraPose& pose, const OrthographicLens& lens,
                              const uint32_t* list, uint32_t listCount);

  EngineCore* const core;  // not reference-counted

 private:
  const CullResult& TestAndSortObjects(const ViewVolume& view, uint32_t mask, const uint32_t* list,
                                       uint32_t listCount);
  void TestBatch(CullingComponentValue* batch, uint32_t mask, const TransformTree& tree);
  void TestList(uint32_t mask, const uint32_t* list, uint32_t listCount, const TransformTree& tree);

  HandlerAllocator<CullingComponentValue> cullingComponents;
  Culler culler;
  CullResult result;
  uint32_t seenLeaveCount = 0;  // LeaveCount of the entities' TransformTree at the last call
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_
