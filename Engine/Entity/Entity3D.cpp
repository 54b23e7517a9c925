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

// The first three columns of a matrix. What the fourth element of each holds does not matter.
struct RotationColumns {
  __m128 c0, c1, c2;
};

// The rotation matrix of a quaternion x, y, z, w as it is stored, without normalising:
//
//   1 - 2(yy + zz)   2(xy - zw)       2(xz + yw)
//   2(xy + zw)       1 - 2(xx + zz)   2(yz - xw)
//   2(xz - yw)       2(yz + xw)       1 - 2(xx + yy)
//
// The diagonal, the three sums and the three differences each take one operation for all three.
inline RotationColumns QuaternionColumns(const float* quaternion) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 two = _mm_set1_ps(2.0f);
  const __m128 xyzw = _mm_loadu_ps(quaternion);
  const __m128 yzxw = _mm_shuffle_ps(xyzw, xyzw, _MM_SHUFFLE(3, 0, 2, 1));
  const __m128 zxyw = _mm_shuffle_ps(xyzw, xyzw, _MM_SHUFFLE(3, 1, 0, 2));
  const __m128 wwww = _mm_shuffle_ps(xyzw, xyzw, _MM_SHUFFLE(3, 3, 3, 3));
  const __m128 squares = _mm_mul_ps(xyzw, xyzw);                                   // xx yy zz
  const __m128 products = _mm_mul_ps(xyzw, yzxw);                                  // xy yz zx
  const __m128 byW = _mm_mul_ps(zxyw, wwww);                                       // zw xw yw
  const __m128 left = _mm_shuffle_ps(squares, squares, _MM_SHUFFLE(3, 0, 0, 1));   // yy xx xx
  const __m128 right = _mm_shuffle_ps(squares, squares, _MM_SHUFFLE(3, 1, 2, 2));  // zz zz yy
  const __m128 d = _mm_sub_ps(one, _mm_mul_ps(two, _mm_add_ps(left, right)));
  const __m128 s = _mm_mul_ps(two, _mm_add_ps(products, byW));  // m10 m21 m02
  const __m128 t = _mm_mul_ps(two, _mm_sub_ps(products, byW));  // m01 m12 m20

  // d0 s0 t2, t0 d1 s1, s2 t1 d2
  const __m128 d0s0 = _mm_unpacklo_ps(d, s);  // d0 s0 d1 s1
  const __m128 t0d1 = _mm_unpacklo_ps(t, d);  // t0 d0 t1 d1
  const __m128 s2t2 = _mm_unpackhi_ps(s, t);  // s2 t2
  RotationColumns columns;
  columns.c0 = _mm_shuffle_ps(d0s0, s2t2, _MM_SHUFFLE(1, 1, 1, 0));
  columns.c1 = _mm_shuffle_ps(_mm_shuffle_ps(t0d1, d0s0, _MM_SHUFFLE(2, 2, 0, 0)), d0s0,
                              _MM_SHUFFLE(3, 3, 2, 0));
  columns.c2 = _mm_shuffle_ps(_mm_shuffle_ps(s2t2, t0d1, _MM_SHUFFLE(2, 2, 0, 0)), d,
                              _MM_SHUFFLE(2, 2, 2, 0));
  return columns;
}

// Rx(x) * Ry(y) * Rz(z).
// Kept on purpose: eulerToQuaternion composes the same angles as y, x, z, and scenes rely on both.
inline RotationColumns EulerColumns(const float* angles) {
  const float cx = cosF(angles[0]);
  const float sx = sinF(angles[0]);
  const float cy = cosF(angles[1]);
  const float sy = sinF(angles[1]);
  const float cz = cosF(angles[2]);
  const float sz = sinF(angles[2]);
  RotationColumns columns;
  columns.c0 = _mm_setr_ps(cy * cz, cx * sz + sx * sy * cz, sx * sz - cx * sy * cz, 0.0f);
  columns.c1 = _mm_setr_ps(-cy * sz, cx * cz - sx * sy * sz, sx * cz + cx * sy * sz, 0.0f);
  columns.c2 = _mm_setr_ps(sy, -sx * cy, cx * cy, 0.0f);
  return columns;
}

// `column` scaled, its fourth element 0 whatever the scale is.
inline __m128 ScaledColumn(float scale, __m128 column) {
  const __m128 firstThree = _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0));
  return _mm_and_ps(_mm_mul_ps(_mm_set1_ps(scale), column), firstThree);
}

// A local matrix: rotation with scaled columns, and position.
struct LocalColumns {
  __m128 c0, c1, c2, c3;

  // Inlined by order: a call would hand the columns over in memory.
  inline __attribute__((always_inline)) explicit LocalColumns(const Entity3DRecord& record) {
    const RotationColumns r = record.rotationMode != 0 ? QuaternionColumns(record.rotation)
                                                       : EulerColumns(record.rotation);
    const float* p = record.position;
    c0 = ScaledColumn(record.scale[0], r.c0);
    c1 = ScaledColumn(record.scale[1], r.c1);
    c2 = ScaledColumn(record.scale[2], r.c2);
    c3 = _mm_setr_ps(p[0], p[1], p[2], 1.0f);
  }
};

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
  const LocalColumns m(*reinterpret_cast<const Entity3DRecord*>(sharedRecord));
  StoreLocalMatrix(local, m.c0, m.c1, m.c2, m.c3);
}

void Entity3D::BuildOwnLocalMatrix(const uint8_t* sharedRecord, float* local) {
  const LocalColumns m(*reinterpret_cast<const Entity3DRecord*>(sharedRecord));
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
