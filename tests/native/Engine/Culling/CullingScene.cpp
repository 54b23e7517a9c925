// The operations of culling scenes.
#include "tests/native/Engine/Culling/CullingScene.h"

#include <cmath>

namespace nq::engine {

CullingScene::CullingScene()
    : runtime(new EngineRuntime(new MemoryAllocator)), core(new EngineCore(runtime)) {}

CullingScene::~CullingScene() {
  for (const auto& batch : objects) {
    core->ReleaseCullingComponent(batch.first);
  }
  for (const auto& batch : entities) {
    core->ReleaseEntities(batch.first);
  }
  core->DropReference();
  runtime->DropReference();
}

uint32_t CullingScene::AddEntities(bool isThreeD, int32_t count) {
  const NativeValueInfo info =
      isThreeD ? core->CreateEntities3D(count) : core->CreateEntities2D(count);
  entities[info.handle] = isThreeD;
  for (int32_t i = 0; i < count; ++i) {
    const uint32_t handle = info.handle + static_cast<uint32_t>(i);
    if (isThreeD) {
      float* scale = EntityRecord(handle).scale;
      scale[0] = scale[1] = scale[2] = 1.0f;
    }
    Entities()->AddRoot(handle);
  }
  return info.handle;
}

uint32_t CullingScene::AddObjects(int32_t count) {
  const NativeValueInfo info = core->CreateCullingComponent(count);
  objects[info.handle] = static_cast<CullingRecord*>(info.pointer);
  return info.handle;
}

void CullingScene::ReleaseEntities(uint32_t handle) {
  entities.erase(HandleKey(handle));
  core->ReleaseEntities(handle);
}

void CullingScene::ReleaseObjects(uint32_t handle) {
  objects.erase(HandleKey(handle));
  core->ReleaseCullingComponent(handle);
}

Entity3DRecord& CullingScene::EntityRecord(uint32_t entity) {
  return *reinterpret_cast<Entity3DRecord*>(Entities()->FindEntity(entity)->sharedRecord());
}

void CullingScene::Command(uint32_t number, uint32_t handle) {
  uint32_t* stream = static_cast<uint32_t*>(core->EntityCommandsBlock().pointer);
  stream[0] = 8;
  stream[1] = number;
  stream[2] = handle;
  Entities()->RunEntityCommands(false);
}

void CullingScene::Refresh(uint32_t dirtyEntity) {
  uint32_t* list = static_cast<uint32_t*>(core->DirtyEntitiesBlock().pointer);
  list[0] = 1;
  list[1] = dirtyEntity;
  core->RefreshWorldTransform();
}

void CullingScene::MoveTo(uint32_t entity, float x, float y, float z) {
  float* position = EntityRecord(entity).position;
  position[0] = x;
  position[1] = y;
  position[2] = z;
  Refresh(entity);
}

void CullingScene::ScaleTo(uint32_t entity, float x, float y, float z) {
  float* scale = EntityRecord(entity).scale;
  scale[0] = x;
  scale[1] = y;
  scale[2] = z;
  Refresh(entity);
}

CullingRecord& CullingScene::Record(uint32_t object) {
  return objects.at(HandleKey(object))[HandleElement(object)];
}

void CullingScene::Put(uint32_t object, uint32_t entity, float x, float y, float z, float radius) {
  CullingRecord& record = Record(object);
  record.enabled = 1;
  record.mask = 0xFFFFFFFFu;
  record.center[0] = x;
  record.center[1] = y;
  record.center[2] = z;
  record.radius = radius;
  record.entity = entity;
}

uint32_t CullingScene::AddSphere(float x, float y, float z, float radius) {
  const uint32_t entity = Add3D();
  MoveTo(entity, x, y, z);
  const uint32_t object = AddObjects();
  Put(object, entity, 0, 0, 0, radius);
  return object;
}

CullResult CullingScene::Cull(const ReferenceCamera& camera, uint32_t mask, const uint32_t* list,
                              uint32_t listCount) {
  return camera.perspective
             ? core->CullWithFrustum(mask, camera.pose, camera.frustum, list, listCount)
             : core->CullOrtho(mask, camera.pose, camera.box, list, listCount);
}

ReferenceCamera CullingScene::Straight() {
  ReferenceCamera camera = {};
  camera.perspective = true;
  camera.pose.target = Vector3{0, 0, -1};
  camera.pose.up = Vector3{0, 1, 0};
  camera.frustum = PerspectiveLens{std::acos(0.0f), 1, 1, 100};
  return camera;
}

CullResult CullingScene::Look(uint32_t mask) {
  return Cull(Straight(), mask, nullptr, 0);
}

CullResult CullingScene::Look(const std::vector<uint32_t>& list, uint32_t mask) {
  static const uint32_t kNothing = 0;
  return Cull(Straight(), mask, list.empty() ? &kNothing : list.data(),
              static_cast<uint32_t>(list.size()));
}

}  // namespace nq::engine
