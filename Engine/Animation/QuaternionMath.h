// Quaternions x, y, z, w in blending. Sums are in the order x, y, z, w.
#ifndef NQ_ENGINE_ANIMATION_QUATERNIONMATH_H_
#define NQ_ENGINE_ANIMATION_QUATERNIONMATH_H_

#include "Common/Def/Trigonometry.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

inline float DotQuaternion(const float* a, const float* b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

// Square root in double, then a multiplication by the reciprocal. A length of 0 gives NaN.
inline void NormaliseQuaternion(float* q) {
  const float length = sqrtF(DotQuaternion(q, q));
  _mm_storeu_ps(q, _mm_mul_ps(_mm_loadu_ps(q), _mm_set1_ps(1.0f / length)));
}

// sum += q * w, with q negated if it is in the hemisphere opposite to the sum.
inline void AddQuaternion(float* sum, const float* q, float w) {
  const float signedWeight = DotQuaternion(sum, q) < 0.0f ? -w : w;
  _mm_storeu_ps(
      sum, _mm_add_ps(_mm_loadu_ps(sum), _mm_mul_ps(_mm_loadu_ps(q), _mm_set1_ps(signedWeight))));
}

// out = a b, the Hamilton product:
//
//   x: aw bx + ax bw + ay bz - az by        z: aw bz + az bw + ax by - ay bx
//   y: aw by + ay bw + az bx - ax bz        w: aw bw - ax bx - ay by - az bz
//
// each summed from left to right. `out` may be an operand.
inline void MultiplyQuaternion(const float* a, const float* b, float* out) {
  const __m128 left = _mm_loadu_ps(a);
  const __m128 right = _mm_loadu_ps(b);
  const __m128 negateW = _mm_setr_ps(0.0f, 0.0f, 0.0f, -0.0f);
  const auto product = [](__m128 p, __m128 q) { return _mm_mul_ps(p, q); };
  const __m128 first = product(_mm_shuffle_ps(left, left, _MM_SHUFFLE(3, 3, 3, 3)), right);
  const __m128 second = product(_mm_shuffle_ps(left, left, _MM_SHUFFLE(0, 2, 1, 0)),
                                _mm_shuffle_ps(right, right, _MM_SHUFFLE(0, 3, 3, 3)));
  const __m128 third = product(_mm_shuffle_ps(left, left, _MM_SHUFFLE(1, 0, 2, 1)),
                               _mm_shuffle_ps(right, right, _MM_SHUFFLE(1, 1, 0, 2)));
  const __m128 fourth = product(_mm_shuffle_ps(left, left, _MM_SHUFFLE(2, 1, 0, 2)),
                                _mm_shuffle_ps(right, right, _MM_SHUFFLE(2, 0, 2, 1)));
  _mm_storeu_ps(out, _mm_sub_ps(_mm_add_ps(_mm_add_ps(first, _mm_xor_ps(second, negateW)),
                                           _mm_xor_ps(third, negateW)),
                                fourth));
}

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_QUATERNIONMATH_H_
