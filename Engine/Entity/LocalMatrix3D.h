// The local matrix of a 3D entity, from values in registers.
#ifndef NQ_ENGINE_ENTITY_LOCALMATRIX3D_H_
#define NQ_ENGINE_ENTITY_LOCALMATRIX3D_H_

#include <cstddef>
#include <cstdint>

#include "Common/Def/FastTrigonometry.h"
#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/EntityRecord.h"

namespace nq::engine {

// The first three of four numbers, and 0.
NQ_FORCE_INLINE __m128 FirstThree(__m128 numbers) {
  return _mm_and_ps(numbers, _mm_castsi128_ps(_mm_setr_epi32(-1, -1, -1, 0)));
}

// The first three columns of a matrix. The fourth element of each is arbitrary.
struct RotationColumns {
  __m128 c0, c1, c2;
};

// The rotation matrix of a quaternion x, y, z, w as stored, without normalising:
//
//   1 - 2(yy + zz)   2(xy - zw)       2(xz + yw)
//   2(xy + zw)       1 - 2(xx + zz)   2(yz - xw)
//   2(xz - yw)       2(yz + xw)       1 - 2(xx + yy)
//
// The diagonal, the three sums and the three differences each take one SIMD operation.
inline RotationColumns QuaternionColumns(__m128 xyzw) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 two = _mm_set1_ps(2.0f);
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

// Rx(x) * Ry(y) * Rz(z), of the sines and cosines of x, y and z in the first three lanes. Kept on
// purpose: eulerToQuaternion composes the same angles as y, x, z, and scenes rely on both.
NQ_FORCE_INLINE RotationColumns EulerColumns(__m128 sines, __m128 cosines) {
  const __m128 pairs = _mm_unpacklo_ps(sines, cosines);                         // sx cx sy cy
  const __m128 cyCxSx = _mm_shuffle_ps(pairs, pairs, _MM_SHUFFLE(0, 0, 1, 3));  // cy cx sx
  const __m128 sySxCx = _mm_shuffle_ps(pairs, pairs, _MM_SHUFFLE(0, 1, 0, 2));  // sy sx cx
  const __m128 sy = _mm_shuffle_ps(sines, sines, _MM_SHUFFLE(1, 1, 1, 1));
  const __m128 sz = _mm_shuffle_ps(sines, sines, _MM_SHUFFLE(2, 2, 2, 2));
  const __m128 cy = _mm_shuffle_ps(cosines, cosines, _MM_SHUFFLE(1, 1, 1, 1));
  const __m128 cz = _mm_shuffle_ps(cosines, cosines, _MM_SHUFFLE(2, 2, 2, 2));
  const __m128 minusSz = _mm_xor_ps(sz, _mm_set1_ps(-0.0f));
  // The second and third elements of the first two columns are sums of two products. Adding one and
  // subtracting the other (adding its negation, which gives the same bits) gives the first column;
  // with -sz for sz it gives the second.
  const __m128 signs = _mm_setr_ps(0.0f, 0.0f, -0.0f, 0.0f);
  const __m128 products = _mm_mul_ps(sySxCx, _mm_xor_ps(sy, signs));  // - sx*sy -cx*sy
  const __m128 left0 = _mm_mul_ps(cyCxSx, _mm_move_ss(sz, cz));
  const __m128 left1 = _mm_mul_ps(cyCxSx, _mm_move_ss(cz, minusSz));
  RotationColumns columns;
  columns.c0 = _mm_move_ss(_mm_add_ps(left0, _mm_mul_ps(products, cz)), left0);
  columns.c1 = _mm_move_ss(_mm_add_ps(left1, _mm_mul_ps(products, minusSz)), left1);
  columns.c2 =
      _mm_move_ss(_mm_mul_ps(sySxCx, _mm_xor_ps(cy, _mm_setr_ps(0.0f, -0.0f, 0.0f, 0.0f))), sySxCx);
  return columns;
}

// The rotation matrix of three angles. `angles` is four numbers, of which the last is ignored.
inline RotationColumns EulerColumns(const float* angles) {
  const __m128 three = FirstThree(_mm_loadu_ps(angles));
  __m128 sines;
  __m128 cosines;
  if (!sinCosPairsF(three, &sines, &cosines)) {
    sinCosEachF(three, &sines, &cosines);
  }
  return EulerColumns(sines, cosines);
}

// The same, faster, only if HasWideIntegers. False, with `columns` undefined, if an angle's sine or
// cosine needs the math library: EulerColumns then gives the result.
NQ_FORCE_INLINE NQ_TARGET_AVX2 bool EulerColumnsByFour(const float* angles,
                                                       RotationColumns* columns) {
  __m128 sines;
  __m128 cosines;
  const bool isSure = sinCosFourF(FirstThree(_mm_loadu_ps(angles)), &sines, &cosines);
  *columns = EulerColumns(sines, cosines);
  return isSure;
}

// Position and scale of an entity, as in its record: six consecutive numbers.
struct PositionScale {
  __m128 positionScaleX;
  __m128 scaleYZ;  // in the lower two lanes

  PositionScale(__m128 positionScaleX, __m128 scaleYZ)
      : positionScaleX(positionScaleX), scaleYZ(scaleYZ) {}
  explicit PositionScale(const Entity3DRecord& record)
      : positionScaleX(_mm_loadu_ps(First(const_cast<Entity3DRecord*>(&record)))),
        scaleYZ(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(&record.scale[1]))) {}

  // The first of the six.
  static float* First(Entity3DRecord* record) {
    return reinterpret_cast<float*>(reinterpret_cast<uint8_t*>(record) +
                                    offsetof(Entity3DRecord, position));
  }
};
static_assert(offsetof(Entity3DRecord, scale) ==
                  offsetof(Entity3DRecord, position) + sizeof(Entity3DRecord::position),
              "six in a row");

// The fourth column of a local matrix.
inline __m128 PositionColumn(__m128 positionScaleX) {
  return _mm_or_ps(FirstThree(positionScaleX), _mm_setr_ps(0.0f, 0.0f, 0.0f, 1.0f));
}

// A local matrix: rotation with scaled columns, and position. The fourth row is 0, 0, 0, 1 whatever
// the scale is.
struct LocalColumns {
  __m128 c0, c1, c2, c3;

  inline LocalColumns(const RotationColumns& rotation, const PositionScale& values) {
    const __m128 four = values.positionScaleX;
    const __m128 scaleX = _mm_shuffle_ps(four, four, _MM_SHUFFLE(3, 3, 3, 3));
    const __m128 scaleY = _mm_shuffle_ps(values.scaleYZ, values.scaleYZ, _MM_SHUFFLE(0, 0, 0, 0));
    const __m128 scaleZ = _mm_shuffle_ps(values.scaleYZ, values.scaleYZ, _MM_SHUFFLE(1, 1, 1, 1));
    c0 = FirstThree(_mm_mul_ps(scaleX, rotation.c0));
    c1 = FirstThree(_mm_mul_ps(scaleY, rotation.c1));
    c2 = FirstThree(_mm_mul_ps(scaleZ, rotation.c2));
    c3 = PositionColumn(four);
  }
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALMATRIX3D_H_
