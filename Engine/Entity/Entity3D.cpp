// Local matrices of 3D entities, and bones that others follow.
#include "Engine/Entity/Entity3D.h"

#include <cmath>
#include <cstring>

#include "Common/Def/FastTrigonometry.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Common/Def/Trigonometry.h"
#include "Engine/Entity/EntitySystem.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

namespace {

// A world scale of at most this much, on any axis, can't be divided out.
constexpr float kMinWorldScale = 1e-7f;

// Rx(x) * Ry(y) * Rz(z).
// Kept on purpose: eulerToQuaternion composes the same angles as y, x, z, and scenes rely on both.
inline RotationColumns EulerColumns(const float* angles) {
  SineCosine ofX;
  SineCosine ofY;
  SineCosine ofZ;
  sinCosTwoF(angles[0], angles[1], &ofX, &ofY);
  sinCosTwoF(angles[2], angles[2], &ofZ, &ofZ);
  const auto [sx, cx] = ofX;
  const auto [sy, cy] = ofY;
  const auto [sz, cz] = ofZ;
  RotationColumns columns;
  columns.c0 = _mm_setr_ps(cy * cz, cx * sz + sx * sy * cz, sx * sz - cx * sy * cz, 0.0f);
  columns.c1 = _mm_setr_ps(-cy * sz, cx * cz - sx * sy * sz, sx * cz + cx * sy * sz, 0.0f);
  columns.c2 = _mm_setr_ps(sy, -sx * cy, cx * cy, 0.0f);
  return columns;
}

// Inlined by order: a call would hand the columns over in memory.
inline __attribute__((always_inline)) LocalColumns RecordColumns(const Entity3DRecord& record) {
  const RotationColumns rotation = record.rotationMode != 0
                                       ? QuaternionColumns(_mm_loadu_ps(record.rotation))
                                       : EulerColumns(record.rotation);
  return LocalColumns(rotation, PositionScale(record));
}

inline float ColumnLength(const float* column) {
  return sqrtF(column[0] * column[0] + column[1] * column[1] + column[2] * column[2]);
}

// What a world matrix says of position, scale and rotation.
struct WorldTransformParts {
  float position[3];
  float scale[3];
  float rotation[4];  // quaternion x, y, z, w
};

WorldTransformParts Decompose(const float* m) {
  const float scale[3] = {ColumnLength(m), ColumnLength(m + 4), ColumnLength(m + 8)};
  if (std::fabs(scale[0]) <= kMinWorldScale || std::fabs(scale[1]) <= kMinWorldScale ||
      std::fabs(scale[2]) <= kMinWorldScale) {
    NQ_LOG("[NQ_WARN][Engine]: ", "Entity3D world transform extract failed. \n");
    return WorldTransformParts{{0, 0, 0}, {1, 1, 1}, {0, 0, 0, 1}};
  }
  float rotation[9];
  for (int column = 0; column < 3; ++column) {
    for (int row = 0; row < 3; ++row) {
      rotation[3 * column + row] = m[4 * column + row] / scale[column];
    }
  }
  float wxyz[4];
  ExtractQuaternion(rotation, wxyz);
  return WorldTransformParts{
      {m[12], m[13], m[14]}, {scale[0], scale[1], scale[2]}, {wxyz[1], wxyz[2], wxyz[3], wxyz[0]}};
}

bool FollowsBone(const Entity* entity) {
  return entity->isThreeD() && entity->active();
}

}  // namespace

void Entity3D::UpdateLocalMatrix() {
  BuildLocalMatrix(sharedRecord(), tree->LocalMatrix(handle));
}

void Entity3D::PublishWorldMatrix() {
  PublishWorldMatrix(tree->WorldMatrix(handle), sharedRecord());
}

void Entity3D::BuildLocalMatrix(const uint8_t* sharedRecord, float* local) {
  const LocalColumns m = RecordColumns(*reinterpret_cast<const Entity3DRecord*>(sharedRecord));
  StoreLocalMatrix(local, m.c0, m.c1, m.c2, m.c3);
}

void Entity3D::BuildOwnLocalMatrix(const uint8_t* sharedRecord, float* local) {
  const LocalColumns m = RecordColumns(*reinterpret_cast<const Entity3DRecord*>(sharedRecord));
  StoreOwnLocalMatrix(local, m.c0, m.c1, m.c2, m.c3);
}

void Entity3D::UpdateBoundEntities() {
  bool anyFollows = false;
  for (const Entity* bound : boundEntities) {
    anyFollows = anyFollows || FollowsBone(bound);
  }
  if (!anyFollows) {
    return;
  }
  const WorldTransformParts parts = Decompose(worldMatrix());
  for (Entity* bound : boundEntities) {
    if (!FollowsBone(bound)) {
      continue;
    }
    Entity3DRecord* record = static_cast<Entity3D*>(bound)->Record();
    std::memcpy(record->position, parts.position, sizeof(parts.position));
    std::memcpy(record->scale, parts.scale, sizeof(parts.scale));
    record->rotationMode = 1;
    std::memcpy(record->rotation, parts.rotation, sizeof(parts.rotation));
    system->AppendDirtyEntity(bound);
  }
}

}  // namespace nq::engine
