// An engine for tests of culling: entities in the world, objects on them, cameras.
#ifndef NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGSCENE_H_
#define NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGSCENE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Engine/Culling/ComponentSystem.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"
#include "tests/native/Engine/Culling/CullingObject.h"
#include "tests/native/Engine/Culling/ReferenceCulling.h"

namespace nq::engine {

// One engine. Remaining batches are released at the end.
class CullingScene {
 public:
  CullingScene();
  ~CullingScene();
  CullingScene(const CullingScene&) = delete;
  CullingScene& operator=(const CullingScene&) = delete;

  EngineCore* Core() { return core; }
  EntitySystem* Entities() { return core->Entities(); }

  // Batches; the key is the handle of element 0. Entities have scale 1 and are roots that no pass
  // has computed yet.
  uint32_t AddEntities(bool isThreeD, int32_t count);
  uint32_t Add3D(int32_t count = 1) { return AddEntities(true, count); }
  uint32_t Add2D(int32_t count = 1) { return AddEntities(false, count); }
  uint32_t AddObjects(int32_t count = 1);

  void ReleaseEntities(uint32_t handle);
  void ReleaseObjects(uint32_t handle);

  // Moves a 3D entity and refreshes the world.
  void MoveTo(uint32_t entity, float x, float y, float z);
  void ScaleTo(uint32_t entity, float x, float y, float z);
  Entity3DRecord& EntityRecord(uint32_t entity);
  void Command(uint32_t number, uint32_t handle);
  void Refresh(uint32_t dirtyEntity);

  // The world matrix stored by the engine.
  float* WorldMatrix(uint32_t entity) { return Entities()->Tree().WorldMatrix(entity); }
  uint32_t WorldVersion(uint32_t entity) { return Entities()->FindEntity(entity)->worldVersion(); }

  // Enables an object with all layers.
  void Put(uint32_t object, uint32_t entity, float x, float y, float z, float radius);
  CullingRecord& Record(uint32_t object);
  CullingObject Object(uint32_t object) { return FindCullingObject(core, object); }

  // A 3D entity at a point, with an object of that radius around it. Returns the object's handle.
  uint32_t AddSphere(float x, float y, float z, float radius);

  CullResult Cull(const ReferenceCamera& camera, uint32_t mask, const uint32_t* list,
                  uint32_t listCount);

  // A camera at the origin that looks down the negative z axis, 90 degrees wide and high, from 1 to
  // 100.
  CullResult Look(uint32_t mask = 0xFFFFFFFFu);
  CullResult Look(const std::vector<uint32_t>& list, uint32_t mask = 0xFFFFFFFFu);
  std::vector<uint32_t> Seen() { return Look().objects; }

  static ReferenceCamera Straight();

 private:
  EngineRuntime* runtime;
  EngineCore* core;
  std::map<uint32_t, CullingRecord*> objects;  // records by key
  std::map<uint32_t, bool> entities;           // keys, and whether 3D
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_CULLING_CULLINGSCENE_H_
