// Quaternions x, y, z, w of four entities side by side (SIMD). Each lane has the bits that the
// functions of QuaternionMath.h give for that entity, except for the payload of NaNs.
#ifndef NQ_ENGINE_ANIMATION_FOURQUATERNIONS_H_
#define NQ_ENGINE_ANIMATION_FOURQUATERNIONS_H_

#include "Common/Def/Vectors.h"

namespace nq::engine {

struct FourQuaternions {
  __m128 x, y, z, w;
};

inline FourQuaternions ZeroFour() {
  const __m128 zero = _mm_setzero_ps();
  return FourQuaternions{zero, zero, zero, zero};
}

// From one quaternion a vector, and back.
inline FourQuaternions TransposeFour(__m128 a, __m128 b, __m128 c, __m128 d) {
  const __m128 xyOfAB = _mm_unpacklo_ps(a, b);
  const __m128 xyOfCD = _mm_unpacklo_ps(c, d);
  const __m128 zwOfAB = _mm_unpackhi_ps(a, b);
  const __m128 zwOfCD = _mm_unpackhi_ps(c, d);
  return FourQuaternions{_mm_movelh_ps(xyOfAB, xyOfCD), _mm_movehl_ps(xyOfCD, xyOfAB),
                         _mm_movelh_ps(zwOfAB, zwOfCD), _mm_movehl_ps(zwOfCD, zwOfAB)};
}
inline void StoreTransposed(const FourQuaternions& q, __m128* out) {
  const FourQuaternions rows = TransposeFour(q.x, q.y, q.z, q.w);
  out[0] = rows.x;
  out[1] = rows.y;
  out[2] = rows.z;
  out[3] = rows.w;
}

// The mask of all four lanes.
inline bool AreAll(__m128 mask) {
  return SignBits(mask) == 15;
}

// Mask of the lanes without any NaN.
inline __m128 AreNumbers(const FourQuaternions& q) {
  return _mm_and_ps(_mm_cmpord_ps(q.x, q.y), _mm_cmpord_ps(q.z, q.w));
}

inline FourQuaternions Select(__m128 mask, const FourQuaternions& yes, const FourQuaternions& no) {
  return FourQuaternions{Select(mask, yes.x, no.x), Select(mask, yes.y, no.y),
                         Select(mask, yes.z, no.z), Select(mask, yes.w, no.w)};
}

inline FourQuaternions Conjugate(const FourQuaternions& q) {
  const __m128 sign = _mm_set1_ps(-0.0f);
  return FourQuaternions{_mm_xor_ps(q.x, sign), _mm_xor_ps(q.y, sign), _mm_xor_ps(q.z, sign), q.w};
}

inline __m128 DotFour(const FourQuaternions& a, const FourQuaternions& b) {
  const __m128 xy = _mm_add_ps(_mm_mul_ps(a.x, b.x), _mm_mul_ps(a.y, b.y));
  return _mm_add_ps(_mm_add_ps(xy, _mm_mul_ps(a.z, b.z)), _mm_mul_ps(a.w, b.w));
}

// The single-precision square root has the bits of the double one rounded to single: a double has
// more than twice the digits of a float, so rounding twice is as rounding once (Figueroa, "When is
// double rounding innocuous?", 1995).
inline FourQuaternions NormaliseFour(const FourQuaternions& q) {
  const __m128 scale = _mm_div_ps(_mm_set1_ps(1.0f), _mm_sqrt_ps(DotFour(q, q)));
  return FourQuaternions{_mm_mul_ps(q.x, scale), _mm_mul_ps(q.y, scale), _mm_mul_ps(q.z, scale),
                         _mm_mul_ps(q.w, scale)};
}

// sum + q * w in the lanes of `mask`, with q negated where it is in the hemisphere opposite to the
// sum. No lane of a sum is -0, so adding 0 leaves the others as they are.
inline FourQuaternions AddFour(const FourQuaternions& sum, const FourQuaternions& q, __m128 w,
                               __m128 mask) {
  const __m128 isOpposite = _mm_cmplt_ps(DotFour(sum, q), _mm_setzero_ps());
  const __m128 signedWeight = _mm_xor_ps(w, _mm_and_ps(isOpposite, _mm_set1_ps(-0.0f)));
  const auto add = [signedWeight, mask](__m128 to, __m128 component) {
    return _mm_add_ps(to, _mm_and_ps(mask, _mm_mul_ps(component, signedWeight)));
  };
  return FourQuaternions{add(sum.x, q.x), add(sum.y, q.y), add(sum.z, q.z), add(sum.w, q.w)};
}

// The same for a sum of zeros.
inline FourQuaternions FirstFour(const FourQuaternions& q, __m128 w, __m128 mask) {
  const auto add = [w, mask](__m128 component) {
    return _mm_add_ps(_mm_setzero_ps(), _mm_and_ps(mask, _mm_mul_ps(component, w)));
  };
  return FourQuaternions{add(q.x), add(q.y), add(q.z), add(q.w)};
}

// a b, the Hamilton product; see MultiplyQuaternion.
inline FourQuaternions MultiplyFour(const FourQuaternions& a, const FourQuaternions& b) {
  const auto sum = [](__m128 p, __m128 q, __m128 r, __m128 s) {
    return _mm_sub_ps(_mm_add_ps(_mm_add_ps(p, q), r), s);
  };
  const auto product = [](__m128 p, __m128 q) { return _mm_mul_ps(p, q); };
  const __m128 w = _mm_sub_ps(_mm_sub_ps(product(a.w, b.w), product(a.x, b.x)), product(a.y, b.y));
  return FourQuaternions{
      sum(product(a.w, b.x), product(a.x, b.w), product(a.y, b.z), product(a.z, b.y)),
      sum(product(a.w, b.y), product(a.y, b.w), product(a.z, b.x), product(a.x, b.z)),
      sum(product(a.w, b.z), product(a.z, b.w), product(a.x, b.y), product(a.y, b.x)),
      _mm_sub_ps(w, product(a.z, b.z))};
}

// Rotations scaled towards identity: x, y, z by the share, w left alone; normalised.
inline FourQuaternions ScaledFour(const FourQuaternions& q, __m128 share) {
  return NormaliseFour(
      FourQuaternions{_mm_mul_ps(q.x, share), _mm_mul_ps(q.y, share), _mm_mul_ps(q.z, share), q.w});
}

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_FOURQUATERNIONS_H_
