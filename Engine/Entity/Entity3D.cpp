// Local matrices of 3D entities, and bones that others follow.
#include "Engine/Entity/Entity3D.h"

#include <cmath>
#include <cstring>

#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Common/Def/Trigonometry.h"
#include "Engine/Entity/EntitySystem.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

namespace {

// A world scale of at most this much, on any axis, can't be divided out.
constexpr float kMinWorldScale = 1e-7f;

// The rotation matrix of a quaternion x, y, z, w as it is stored, without normalising; columns of
// three.
inline void QuaternionColumns(const float* q, float* r) {
  const float x = q[0];
  const float y = q[1];
  const float z = q[2];
  const float w = q[3];
  r[0] = 1.0f - 2.0f * (y * y + z * z);
  r[1] = 2.0f * (x * y + z * w);
  r[2] = 2.0f * (x * z - y * w);
  r[3] = 2.0f * (x * y - z * w);
  r[4] = 1.0f - 2.0f * (x * x + z * z);
  r[5] = 2.0f * (y * z + x * w);
  r[6] = 2.0f * (x * z + y * w);
  r[7] = 2.0f * (y * z - x * w);
  r[8] = 1.0f - 2.0f * (x * x + y * y);
}

// Rx(x) * Ry(y) * Rz(z), columns of three.
// Kept on purpose: eulerToQuaternion composes the same angles as y, x, z, and scenes rely on both.
inline void EulerColumns(const float* angles, float* r) {
  const float cx = cosF(angles[0]);
  const float sx = sinF(angles[0]);
  const float cy = cosF(angles[1]);
  const float sy = sinF(angles[1]);
  const float cz = cosF(angles[2]);
  const float sz = sinF(angles[2]);
  r[0] = cy * cz;
  r[1] = cx * sz + sx * sy * cz;
  r[2] = sx * sz - cx * sy * cz;
  r[3] = -cy * sz;
  r[4] = cx * cz - sx * sy * sz;
  r[5] = sx * cz + cx * sy * sz;
  r[6] = sy;
  r[7] = -sx * cy;
  r[8] = cx * cy;
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
  BuildLocalMatrix(sharedRecord(), tree->Matrices(handle).local);
}

void Entity3D::PublishWorldMatrix() {
  PublishWorldMatrix(tree->Matrices(handle).world, sharedRecord());
}

void Entity3D::BuildLocalMatrix(const uint8_t* sharedRecord, float* local) {
  const Entity3DRecord* record = reinterpret_cast<const Entity3DRecord*>(sharedRecord);
  float r[9];
  if (record->rotationMode != 0) {
    QuaternionColumns(record->rotation, r);
  } else {
    EulerColumns(record->rotation, r);
  }
  const float sx = record->scale[0];
  const float sy = record->scale[1];
  const float sz = record->scale[2];
  const float* p = record->position;
  StoreLocalMatrix(local, _mm_setr_ps(sx * r[0], sx * r[1], sx * r[2], 0.0f),
                   _mm_setr_ps(sy * r[3], sy * r[4], sy * r[5], 0.0f),
                   _mm_setr_ps(sz * r[6], sz * r[7], sz * r[8], 0.0f),
                   _mm_setr_ps(p[0], p[1], p[2], 1.0f));
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
