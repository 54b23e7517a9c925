// Reading and writing entities in world space.
#include "Engine/Entity/EntityWorldAccess.h"

#include <cstring>

#include "Common/Def/MathKernels.h"
#include "Common/Def/Unaligned.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

// The product of the scales of `entity` and all its ancestors, per axis, as the shared records hold
// them now. A 2D ancestor's record is read at the same offsets, whatever they hold.
Vector3 AccumulatedScale(const Entity* entity) {
  const TransformTree& tree = entity->system->Tree();
  Vector3 product = {1.0f, 1.0f, 1.0f};
  const auto multiply = [&tree, &product](uint32_t handle) {
    const Vector3 scale =
        ReadUnaligned<Vector3>(tree.SharedRecord(handle) + offsetof(Entity3DRecord, scale));
    product.x *= scale.x;
    product.y *= scale.y;
    product.z *= scale.z;
    return true;
  };
  multiply(entity->handle);
  tree.WalkUp(entity->handle, CycleReport::kStart, multiply);
  return product;
}

Quaternion RotationOf(const float* matrix) {
  float wxyz[4];
  matrixToQuaternion(matrix, wxyz);
  return Quaternion{wxyz[1], wxyz[2], wxyz[3], wxyz[0]};
}

Quaternion Conjugate(const Quaternion& q) {
  return Quaternion{-q.x, -q.y, -q.z, q.w};
}

// The Hamilton product a * b.
Quaternion Multiply(const Quaternion& a, const Quaternion& b) {
  return Quaternion{
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

void ApplyImmediately(Entity* entity) {
  entity->PropagateMarkDirty(false);
  entity->UpdateLocalMatrix();
}

}  // namespace

Entity3D* EntityWorldAccess::Find(uint32_t handle) const {
  Entity* entity = core->Entities()->FindEntity(handle);
  return entity != nullptr && entity->isThreeD() ? static_cast<Entity3D*>(entity) : nullptr;
}

uint32_t EntityWorldAccess::getEntityVersion(uint32_t handle) {
  const Entity3D* entity = Find(handle);
  return entity == nullptr ? 0 : entity->localVersion();
}

const char* EntityWorldAccess::getEntityName(uint32_t handle) {
  const Entity3D* entity = Find(handle);
  return entity == nullptr ? nullptr : entity->name.c_str();
}

Vector3 EntityWorldAccess::getWorldPosition(uint32_t handle) {
  const Entity3D* entity = Find(handle);
  if (entity == nullptr) {
    return Vector3{0, 0, 0};
  }
  const float* m = entity->worldMatrix();
  return Vector3{m[12], m[13], m[14]};
}

Quaternion EntityWorldAccess::getWorldRotation(uint32_t handle) {
  const Entity3D* entity = Find(handle);
  if (entity == nullptr) {
    return Quaternion{0, 0, 0, 1};
  }
  const Vector3 scale = AccumulatedScale(entity);
  const float diagonal[16] = {scale.x, 0, 0, 0, 0, scale.y, 0, 0, 0, 0, scale.z, 0, 0, 0, 0, 1};
  float inverse[16];
  invertMatrix4(diagonal, inverse, 0);
  float unscaled[16];
  multiplyMatrix4(entity->worldMatrix(), inverse, unscaled);
  return RotationOf(unscaled);
}

void EntityWorldAccess::setWorldPosition(float x, float y, float z, uint32_t handle,
                                         bool immediately) {
  Entity3D* entity = Find(handle);
  if (entity == nullptr) {
    return;
  }
  float* position = entity->Record()->position;
  position[0] = x;
  position[1] = y;
  position[2] = z;
  const Entity* parent = entity->parent();
  if (parent != nullptr) {
    // Kept on purpose: the parent's rotation and scale are ignored; content relies on these
    // positions.
    const float* m = parent->worldMatrix();
    position[0] = x - m[12];
    position[1] = y - m[13];
    position[2] = z - m[14];
  }
  if (immediately) {
    ApplyImmediately(entity);
  }
}

void EntityWorldAccess::setWorldRotation(float x, float y, float z, float w, uint32_t handle,
                                         bool immediately) {
  Entity3D* entity = Find(handle);
  if (entity == nullptr) {
    return;
  }
  Quaternion rotation = {x, y, z, w};
  const Entity* parent = entity->parent();
  if (parent != nullptr) {
    // Kept on purpose: scale is not removed from the parent's matrix; content relies on the
    // results.
    rotation = Multiply(Conjugate(RotationOf(parent->worldMatrix())), rotation);
  }
  Entity3DRecord* record = entity->Record();
  record->rotationMode = 1;
  std::memcpy(record->rotation, &rotation, sizeof(rotation));
  if (immediately) {
    ApplyImmediately(entity);
  }
}

Vector3 EntityWorldAccess::getWorldScale(uint32_t handle) {
  const Entity3D* entity = Find(handle);
  if (entity == nullptr) {
    return Vector3{0, 0, 0};
  }
  const float* m = entity->worldMatrix();
  return Vector3{m[0], m[5], m[10]};
}

}  // namespace nq::engine
