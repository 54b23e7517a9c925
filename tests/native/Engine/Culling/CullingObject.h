// A view of one culling object of a batch, for tests.
#ifndef NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGOBJECT_H_
#define NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGOBJECT_H_

#include <cstdint>

#include "Engine/Culling/ComponentSystem.h"
#include "Engine/Culling/CullingComponentValue.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

// A view of one object, whose fields are in its batch's arrays. Valid as long as the batch.
// Converts to false if a look-up has found none.
class CullingObject {
 public:
  CullingObject() = default;
  CullingObject(CullingComponentValue* batch, uint32_t index, EngineCore* core,
                const TransformTree* tree)
      : batch(batch), index(index), engineCore(core), tree(tree) {}

  explicit operator bool() const { return batch != nullptr; }

  // The entity that was found under seenEntityHandle, of either kind; null if none was, or if its
  // batch has been released since.
  Entity* entity() const {
    const uint32_t generation = batch->generations[index];
    return generation != CullingComponentValue::kNoEntity &&
                   generation != CullingComponentValue::kReleasedEntity &&
                   generation == tree->Generation(seenEntityHandle())
               ? tree->EntityOf(seenEntityHandle())
               : nullptr;
  }
  EngineCore* core() const { return engineCore; }
  const CullingRecord* record() const { return &batch->Record(index); }
  uint32_t handle() const { return batch->handle | index; }
  float depth() const { return batch->depths[index]; }
  Vector3 worldCenter() const {
    return Vector3{batch->spheres.x[index], batch->spheres.y[index], batch->spheres.z[index]};
  }
  float worldRadius() const { return batch->spheres.radius[index]; }
  uint32_t seenWorldVersion() const { return batch->caches[index].seenWorldVersion; }
  uint32_t seenEntityHandle() const { return batch->caches[index].seenEntityHandle; }

 private:
  CullingComponentValue* batch = nullptr;
  uint32_t index = 0;
  EngineCore* engineCore = nullptr;
  const TransformTree* tree = nullptr;
};

// The object of `handle`; false if there is no such batch, or no such index in it.
inline CullingObject FindCullingObject(EngineCore* core, uint32_t handle) {
  CullingComponentValue* batch = core->Components()->FindCullingComponent(handle);
  const uint32_t index = HandleElement(handle);
  return batch == nullptr || index >= batch->Count()
             ? CullingObject()
             : CullingObject(batch, index, core, &core->Entities()->Tree());
}

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGOBJECT_H_
