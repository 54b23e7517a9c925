// Local matrices of 3D entities, and bone binding.
#include "Engine/Entity/Entity3D.h"

#include <cmath>
#include <cstring>

#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Common/Def/Platform.h"
#include "Common/Def/Trigonometry.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/EntitySystem.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

namespace {

// If the world scale is at most this on any axis, it can't be divided out.
constexpr float kMinWorldScale = 1e-7f;

using Store = void (*)(float* to, __m128 c0, __m128 c1, __m128 c2, __m128 c3);

// Stores the matrix of a record in Euler mode by SIMD, only if HasWideIntegers. All of it is one
// function: code without these instructions could not inline a part. False, and nothing is stored,
// if a sine or cosine needs the math library.
template <Store store>
NQ_TARGET_AVX2 bool BuildByFour(const Entity3DRecord& record, float* local) {
  RotationColumns rotation;
  if (!EulerColumnsByFour(record.rotation, &rotation)) {
    return false;
  }
  const LocalColumns m(rotation, PositionScale(record));
  store(local, m.c0, m.c1, m.c2, m.c3);
  return true;
}

// Force-inlined: a call would pass the columns through memory.
template <Store store>
NQ_FORCE_INLINE void Build(const uint8_t* sharedRecord, float* local) {
  const Entity3DRecord& record = *reinterpret_cast<const Entity3DRecord*>(sharedRecord);
  if (record.rotationMode == 0 && HasWideIntegers() && BuildByFour<store>(record, local)) {
    return;
  }
  const RotationColumns rotation = record.rotationMode != 0
                                       ? QuaternionColumns(_mm_loadu_ps(record.rotation))
                                       : EulerColumns(record.rotation);
  const LocalColumns m(rotation, PositionScale(record));
  store(local, m.c0, m.c1, m.c2, m.c3);
}

inline float ColumnLength(const float* column) {
  return sqrtF(column[0] * column[0] + column[1] * column[1] + column[2] * column[2]);
}

// A world matrix decomposed into position, scale and rotation.
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
  Build<StoreLocalMatrix>(sharedRecord, local);
}

void Entity3D::BuildOwnLocalMatrix(const uint8_t* sharedRecord, float* local) {
  Build<StoreOwnLocalMatrix>(sharedRecord, local);
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
