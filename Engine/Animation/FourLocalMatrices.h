// Rotations and local matrices of four 3D entities side by side (SIMD).
#ifndef NQ_ENGINE_ANIMATION_FOURLOCALMATRICES_H_
#define NQ_ENGINE_ANIMATION_FOURLOCALMATRICES_H_

#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/FourQuaternions.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

// A column of four matrices, bone by bone: its elements by the scales. The fourth is 0.
inline void ScaledColumns(__m128 scale, __m128 e0, __m128 e1, __m128 e2, __m128* out) {
  StoreTransposed(FourQuaternions{_mm_mul_ps(scale, e0), _mm_mul_ps(scale, e1),
                                  _mm_mul_ps(scale, e2), _mm_setzero_ps()},
                  out);
}

// Sets the rotations of the four consecutive entities that `writer` has selected, builds their
// local matrices and marks them, with the bits that EntityPoseWriter::WriteQuaternion gives one by
// one; see QuaternionColumns and LocalColumns for the formulas. `v` are their positions and scales,
// which are in the records already.
NQ_FORCE_INLINE void WriteFourRotations(const FourQuaternions& q, const PositionScale* v,
                                        EntityPoseWriter* writer) {
  Entity3DRecord* const records = writer->Record3D();
  const FourQuaternions firsts = TransposeFour(v[0].positionScaleX, v[1].positionScaleX,
                                               v[2].positionScaleX, v[3].positionScaleX);
  const FourQuaternions seconds =
      TransposeFour(v[0].scaleYZ, v[1].scaleYZ, v[2].scaleYZ, v[3].scaleYZ);
  const auto product = [](__m128 a, __m128 b) { return _mm_mul_ps(a, b); };
  const auto twice = [](__m128 a) { return _mm_mul_ps(_mm_set1_ps(2.0f), a); };
  const auto diagonal = [twice](__m128 a, __m128 b) {
    return _mm_sub_ps(_mm_set1_ps(1.0f), twice(_mm_add_ps(a, b)));
  };
  const __m128 xx = product(q.x, q.x);
  const __m128 yy = product(q.y, q.y);
  const __m128 zz = product(q.z, q.z);
  const __m128 xy = product(q.x, q.y);
  const __m128 yz = product(q.y, q.z);
  const __m128 zx = product(q.z, q.x);
  const __m128 xw = product(q.x, q.w);
  const __m128 yw = product(q.y, q.w);
  const __m128 zw = product(q.z, q.w);
  __m128 c0[4];
  __m128 c1[4];
  __m128 c2[4];
  ScaledColumns(firsts.w, diagonal(yy, zz), twice(_mm_add_ps(xy, zw)), twice(_mm_sub_ps(zx, yw)),
                c0);
  ScaledColumns(seconds.x, twice(_mm_sub_ps(xy, zw)), diagonal(xx, zz), twice(_mm_add_ps(yz, xw)),
                c1);
  ScaledColumns(seconds.y, twice(_mm_add_ps(zx, yw)), twice(_mm_sub_ps(yz, xw)), diagonal(xx, yy),
                c2);
  __m128 xyzw[4];
  StoreTransposed(q, xyzw);
  for (uint32_t i = 0; i < 4; ++i) {
    records[i].rotationMode = 1;
    _mm_storeu_ps(records[i].rotation, xyzw[i]);
    StoreOwnLocalMatrix(writer->LocalMatrix(), c0[i], c1[i], c2[i],
                        PositionColumn(v[i].positionScaleX));
    writer->Mark();
    writer->Next();
  }
}

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_FOURLOCALMATRICES_H_
