// The floats of Trigonometry.h in less time, for the narrow ranges that blending needs.
//
// A series in double precision gives the result with a relative error far below a float's. Where
// both ends of that error round to the same float, the library's result, whose error is smaller
// still, rounds to it as well; in the rare rest the library is asked (after Ziv, "Fast evaluation
// of elementary mathematical functions with correctly rounded last bit", 1991). So every bit is as
// it would be without this file.
#ifndef NQ_COMMON_DEF_FASTTRIGONOMETRY_H_
#define NQ_COMMON_DEF_FASTTRIGONOMETRY_H_

#include <emmintrin.h>

#include <cmath>

#include "Common/Def/Trigonometry.h"

namespace nq::engine {

namespace internal {

// A bound on the relative error of the series below, with room to spare: 2^-40.
constexpr double kSeriesError = 9.094947017729282e-13;

// Magnitudes for which the sine's series is good for that.
constexpr float kMaxSeriesAngle = 1.6f;

inline __m128d BothLanes(double value) {
  return _mm_set1_pd(value);
}

inline __m128d Linear(double c0, double c1, __m128d z) {
  return _mm_add_pd(BothLanes(c0), _mm_mul_pd(BothLanes(c1), z));
}

// Taylor's series to x^17, its terms by pairs, so that few wait for others (Estrin's scheme).
inline __m128d SineSeries(__m128d x) {
  const __m128d z = _mm_mul_pd(x, x);
  const __m128d z2 = _mm_mul_pd(z, z);
  const __m128d low = _mm_add_pd(Linear(-1.0 / 6.0, 1.0 / 120.0, z),
                                 _mm_mul_pd(Linear(-1.0 / 5040.0, 1.0 / 362880.0, z), z2));
  const __m128d high =
      _mm_add_pd(Linear(-1.0 / 39916800.0, 1.0 / 6227020800.0, z),
                 _mm_mul_pd(Linear(-1.0 / 1307674368000.0, 1.0 / 355687428096000.0, z), z2));
  const __m128d sum = _mm_add_pd(low, _mm_mul_pd(high, _mm_mul_pd(z2, z2)));
  return _mm_add_pd(x, _mm_mul_pd(_mm_mul_pd(x, z), sum));
}

// (asin(s) / s - 1) / s^2 at z = s^2, for z up to 0.25: Chebyshev's approximation of degree 9.
inline double ArcSineTail(double z) {
  const double z2 = z * z;
  const double z4 = z2 * z2;
  const double low = (0.1666666666666216 + 0.07500000003599422 * z) +
                     (0.044642852420329455 + 0.030382183571536783 * z) * z2;
  const double middle = (0.022366048091739782 + 0.017441719105456513 * z) +
                        (0.013186282871554133 + 0.015682585691969324 * z) * z2;
  const double high = -0.0029555479088451027 + 0.027921912047656466 * z;
  return low + z4 * (middle + z4 * high);
}

// True if all that lies within the error of `value` rounds to one float, which is then in `out`.
inline bool RoundsSurely(double value, float* out) {
  *out = static_cast<float>(value * (1.0 - kSeriesError));
  return *out == static_cast<float>(value * (1.0 + kSeriesError));
}

// Both lanes.
inline bool RoundSurely(__m128d values, float* first, float* second) {
  const __m128 low = _mm_cvtpd_ps(_mm_mul_pd(values, BothLanes(1.0 - kSeriesError)));
  const __m128 high = _mm_cvtpd_ps(_mm_mul_pd(values, BothLanes(1.0 + kSeriesError)));
  float rounded[4];
  _mm_storeu_ps(rounded, low);
  *first = rounded[0];
  *second = rounded[1];
  return (_mm_movemask_ps(_mm_cmpeq_ps(low, high)) & 3) == 3;
}

}  // namespace internal

// sinF of two numbers.
inline void sinTwoF(float a, float b, float* sineOfA, float* sineOfB) {
  const bool near =
      std::fabs(a) <= internal::kMaxSeriesAngle && std::fabs(b) <= internal::kMaxSeriesAngle;
  if (near) {
    const __m128d sines = internal::SineSeries(_mm_setr_pd(a, b));
    if (internal::RoundSurely(sines, sineOfA, sineOfB)) {
      return;
    }
  }
  *sineOfA = sinF(a);
  *sineOfB = sinF(b);
}

// acosF, faster from 0 to 1.
inline float acosNearF(float x) {
  if (x >= 0.0f && x < 1.0f) {
    constexpr double kHalfPi = 1.5707963267948966;
    const double d = x;
    double angle;
    if (d > 0.5) {
      // 1 - d is exact; the angle is twice that whose sine is the root of half of it.
      const double z = 0.5 * (1.0 - d);
      const double s = std::sqrt(z);
      angle = 2.0 * (s + s * z * internal::ArcSineTail(z));
    } else {
      const double z = d * d;
      angle = kHalfPi - (d + d * z * internal::ArcSineTail(z));
    }
    float rounded;
    if (internal::RoundsSurely(angle, &rounded)) {
      return rounded;
    }
  }
  return acosF(x);
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_FASTTRIGONOMETRY_H_
