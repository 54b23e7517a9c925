// The results of Trigonometry.h, computed faster for the ranges that blending and angles need.
//
// A series in double precision approximates the result with a relative error far below a float's.
// If both ends of that error interval round to the same float, the math library's result, whose
// error is smaller still, rounds to it as well. In the rare other cases the library is called
// (after Ziv, "Fast evaluation of elementary mathematical functions with correctly rounded last
// bit", 1991). So the results are bit-identical to Trigonometry.h.
#ifndef NQ_COMMON_DEF_FASTTRIGONOMETRY_H_
#define NQ_COMMON_DEF_FASTTRIGONOMETRY_H_

#include <cmath>
#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Trigonometry.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace internal {

// A bound on the relative error of the series below, with a margin: 2^-40.
constexpr double kSeriesError = 9.094947017729282e-13;

// Angles up to this magnitude keep the sine's series within that bound.
constexpr float kMaxSeriesAngle = 1.6f;

inline __m128d BothLanes(double value) {
  return _mm_set1_pd(value);
}

inline __m128d Linear(double c0, double c1, __m128d z) {
  return _mm_add_pd(BothLanes(c0), _mm_mul_pd(BothLanes(c1), z));
}

// Taylor series of the sine to x^17, without its first term: (sin(x) - x) / x^3 by powers of x^2.
inline constexpr double kSineTailTerms[] = {
    -1.0 / 6.0,        1.0 / 120.0,        -1.0 / 5040.0,          1.0 / 362880.0,
    -1.0 / 39916800.0, 1.0 / 6227020800.0, -1.0 / 1307674368000.0, 1.0 / 355687428096000.0};

// Terms in pairs, to shorten the dependency chain (Estrin's scheme).
inline __m128d SineSeries(__m128d x) {
  const double(&terms)[8] = kSineTailTerms;
  const __m128d z = _mm_mul_pd(x, x);
  const __m128d z2 = _mm_mul_pd(z, z);
  const __m128d low =
      _mm_add_pd(Linear(terms[0], terms[1], z), _mm_mul_pd(Linear(terms[2], terms[3], z), z2));
  const __m128d high =
      _mm_add_pd(Linear(terms[4], terms[5], z), _mm_mul_pd(Linear(terms[6], terms[7], z), z2));
  const __m128d sum = _mm_add_pd(low, _mm_mul_pd(high, _mm_mul_pd(z2, z2)));
  return _mm_add_pd(x, _mm_mul_pd(_mm_mul_pd(x, z), sum));
}

NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256d LinearOfFour(double c0, double c1, __m256d z) {
  return _mm256_add_pd(_mm256_set1_pd(c0), _mm256_mul_pd(_mm256_set1_pd(c1), z));
}

// The same for four numbers, in the same order of operations.
NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256d SineSeriesOfFour(__m256d x) {
  const double(&terms)[8] = kSineTailTerms;
  const __m256d z = _mm256_mul_pd(x, x);
  const __m256d z2 = _mm256_mul_pd(z, z);
  const __m256d low = _mm256_add_pd(LinearOfFour(terms[0], terms[1], z),
                                    _mm256_mul_pd(LinearOfFour(terms[2], terms[3], z), z2));
  const __m256d high = _mm256_add_pd(LinearOfFour(terms[4], terms[5], z),
                                     _mm256_mul_pd(LinearOfFour(terms[6], terms[7], z), z2));
  const __m256d sum = _mm256_add_pd(low, _mm256_mul_pd(high, _mm256_mul_pd(z2, z2)));
  return _mm256_add_pd(x, _mm256_mul_pd(_mm256_mul_pd(x, z), sum));
}

// Range reduction: angles up to here are reduced by multiples of a quarter turn. The quarter turn
// is the sum of two numbers; the first has 26 bits, so that its multiples are exact. No float up to
// here is closer to a multiple than 2^-28, and the reduced angle has a relative error of at most
// 2^-44.
constexpr double kMaxReducedAngle = 4096.0;
constexpr double kQuarterTurn = 1.5707963109016418;
constexpr double kQuarterTurnRest = 1.5893254773528196e-08;
constexpr double kQuarterTurnsPerRadian = 0.6366197723675814;

// Adding this rounds a number to the nearest integer, which is then in the lowest bits of the sum.
constexpr double kToWhole = 6755399441055744.0;  // 1.5 * 2^52

// Taylor series of sin(x) / x to x^12, and of the cosine to x^12, for up to an eighth turn: by
// powers of x^2.
inline constexpr double kSineRatioTerms[] = {1.0,
                                             -1.0 / 6.0,
                                             1.0 / 120.0,
                                             -1.0 / 5040.0,
                                             1.0 / 362880.0,
                                             -1.0 / 39916800.0,
                                             1.0 / 6227020800.0};
inline constexpr double kCosineTerms[] = {
    1.0, -0.5, 1.0 / 24.0, -1.0 / 720.0, 1.0 / 40320.0, -1.0 / 3628800.0, 1.0 / 479001600.0};

inline __m128d SevenTerms(const double (&terms)[7], __m128d z) {
  const __m128d z2 = _mm_mul_pd(z, z);
  const __m128d low =
      _mm_add_pd(Linear(terms[0], terms[1], z), _mm_mul_pd(Linear(terms[2], terms[3], z), z2));
  const __m128d high =
      _mm_add_pd(Linear(terms[4], terms[5], z), _mm_mul_pd(BothLanes(terms[6]), z2));
  return _mm_add_pd(low, _mm_mul_pd(high, _mm_mul_pd(z2, z2)));
}

// The same for four numbers, in the same order of operations.
NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256d SevenTermsOfFour(const double (&terms)[7], __m256d z) {
  const __m256d z2 = _mm256_mul_pd(z, z);
  const __m256d low = _mm256_add_pd(LinearOfFour(terms[0], terms[1], z),
                                    _mm256_mul_pd(LinearOfFour(terms[2], terms[3], z), z2));
  const __m256d high = _mm256_add_pd(LinearOfFour(terms[4], terms[5], z),
                                     _mm256_mul_pd(_mm256_set1_pd(terms[6]), z2));
  return _mm256_add_pd(low, _mm256_mul_pd(high, _mm256_mul_pd(z2, z2)));
}

inline __m128d SelectLanes(__m128d mask, __m128d yes, __m128d no) {
  return _mm_or_pd(_mm_and_pd(mask, yes), _mm_andnot_pd(mask, no));
}

// (asin(s) / s - 1) / s^2 at z = s^2, for z up to 0.25: Chebyshev approximation of degree 9, by
// powers of z.
inline constexpr double kArcSineTailTerms[] = {
    0.1666666666666216,     0.07500000003599422,  0.044642852420329455, 0.030382183571536783,
    0.022366048091739782,   0.017441719105456513, 0.013186282871554133, 0.015682585691969324,
    -0.0029555479088451027, 0.027921912047656466};

inline double ArcSineTail(double z) {
  const double(&terms)[10] = kArcSineTailTerms;
  const double z2 = z * z;
  const double z4 = z2 * z2;
  const double low = (terms[0] + terms[1] * z) + (terms[2] + terms[3] * z) * z2;
  const double middle = (terms[4] + terms[5] * z) + (terms[6] + terms[7] * z) * z2;
  const double high = terms[8] + terms[9] * z;
  return low + z4 * (middle + z4 * high);
}

// The same for two numbers, in the same order of operations.
inline __m128d ArcSineTail(__m128d z) {
  const double(&terms)[10] = kArcSineTailTerms;
  const __m128d z2 = _mm_mul_pd(z, z);
  const __m128d z4 = _mm_mul_pd(z2, z2);
  const __m128d low =
      _mm_add_pd(Linear(terms[0], terms[1], z), _mm_mul_pd(Linear(terms[2], terms[3], z), z2));
  const __m128d middle =
      _mm_add_pd(Linear(terms[4], terms[5], z), _mm_mul_pd(Linear(terms[6], terms[7], z), z2));
  const __m128d high = Linear(terms[8], terms[9], z);
  return _mm_add_pd(low, _mm_mul_pd(z4, _mm_add_pd(middle, _mm_mul_pd(z4, high))));
}

// The same for four.
NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256d ArcSineTailOfFour(__m256d z) {
  const double(&terms)[10] = kArcSineTailTerms;
  const __m256d z2 = _mm256_mul_pd(z, z);
  const __m256d z4 = _mm256_mul_pd(z2, z2);
  const __m256d low = _mm256_add_pd(LinearOfFour(terms[0], terms[1], z),
                                    _mm256_mul_pd(LinearOfFour(terms[2], terms[3], z), z2));
  const __m256d middle = _mm256_add_pd(LinearOfFour(terms[4], terms[5], z),
                                       _mm256_mul_pd(LinearOfFour(terms[6], terms[7], z), z2));
  const __m256d high = LinearOfFour(terms[8], terms[9], z);
  return _mm256_add_pd(low, _mm256_mul_pd(z4, _mm256_add_pd(middle, _mm256_mul_pd(z4, high))));
}

constexpr double kHalfPi = 1.5707963267948966;

// Arc cosines of four numbers from 0 to below 1, before rounding to float: the formulas of
// acosNearF.
NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256d ArcCosinesOfFour(__m256d x) {
  const __m256d one = _mm256_set1_pd(1.0);
  const __m256d half = _mm256_set1_pd(0.5);
  const __m256d isNear = _mm256_cmp_pd(x, half, _CMP_GT_OQ);
  const __m256d z =
      _mm256_blendv_pd(_mm256_mul_pd(x, x), _mm256_mul_pd(half, _mm256_sub_pd(one, x)), isNear);
  const __m256d s = _mm256_blendv_pd(x, _mm256_sqrt_pd(z), isNear);
  const __m256d arcSine =
      _mm256_add_pd(s, _mm256_mul_pd(_mm256_mul_pd(s, z), ArcSineTailOfFour(z)));
  return _mm256_blendv_pd(_mm256_sub_pd(_mm256_set1_pd(kHalfPi), arcSine),
                          _mm256_add_pd(arcSine, arcSine), isNear);
}

// The same for two.
inline __m128d ArcCosines(__m128d x) {
  const __m128d half = BothLanes(0.5);
  const __m128d isNear = _mm_cmpgt_pd(x, half);
  const __m128d z =
      SelectLanes(isNear, _mm_mul_pd(half, _mm_sub_pd(BothLanes(1.0), x)), _mm_mul_pd(x, x));
  const __m128d s = SelectLanes(isNear, _mm_sqrt_pd(z), x);
  const __m128d arcSine = _mm_add_pd(s, _mm_mul_pd(_mm_mul_pd(s, z), ArcSineTail(z)));
  return SelectLanes(isNear, _mm_add_pd(arcSine, arcSine), _mm_sub_pd(BothLanes(kHalfPi), arcSine));
}

// True if the whole error interval of `value` rounds to one float, which is then in `out`.
inline bool RoundsSurely(double value, float* out) {
  *out = static_cast<float>(value * (1.0 - kSeriesError));
  return *out == static_cast<float>(value * (1.0 + kSeriesError));
}

// The same for both lanes.
inline bool RoundSurely(__m128d values, float* first, float* second) {
  const __m128 low = _mm_cvtpd_ps(_mm_mul_pd(values, BothLanes(1.0 - kSeriesError)));
  const __m128 high = _mm_cvtpd_ps(_mm_mul_pd(values, BothLanes(1.0 + kSeriesError)));
  float rounded[4];
  _mm_storeu_ps(rounded, low);
  *first = rounded[0];
  *second = rounded[1];
  return (SignBits(_mm_cmpeq_ps(low, high)) & 3) == 3;
}

// The error of a number just below a power of two, 2^13 units in the last place, after the 29 bits
// that rounding to float drops are shifted to fill a word. 2^28 is then the smallest integer.
constexpr int32_t kUnsureMargin = 1 << 16;
static_assert(kSeriesError * 0x1p56 == kUnsureMargin, "eight times the last places");

// True in lanes whose error interval may not round to one float; the words of the result are in the
// order a0 a1 b0 b1 a2 a3 b2 b3. Tests the lower words: rounding to float drops a double's last 29
// bits, and rounds up from 2^28. (A denormal float drops even more, but sines of that size are the
// angle itself, and exact.)
NQ_FORCE_INLINE NQ_TARGET_AVX2 __m256 RoundUnsurely(__m256d a, __m256d b) {
  const __m256i words = _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castpd_ps(a), _mm256_castpd_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
  const __m256i place =
      _mm256_add_epi32(_mm256_slli_epi32(words, 3), _mm256_set1_epi32(kUnsureMargin));
  return _mm256_castsi256_ps(
      _mm256_cmpgt_epi32(_mm256_set1_epi32(INT32_MIN + 2 * kUnsureMargin), place));
}

// The lower words of two and two numbers.
inline __m128i LowerWords(__m128d low, __m128d high) {
  return _mm_castps_si128(
      _mm_shuffle_ps(_mm_castpd_ps(low), _mm_castpd_ps(high), _MM_SHUFFLE(2, 0, 2, 0)));
}

// The same as above for two and two; the words are in the order of the lanes.
inline __m128 RoundUnsurely(__m128d a, __m128d b) {
  const __m128i words = LowerWords(a, b);
  const __m128i place = _mm_add_epi32(_mm_slli_epi32(words, 3), _mm_set1_epi32(kUnsureMargin));
  return _mm_castsi128_ps(_mm_cmpgt_epi32(_mm_set1_epi32(INT32_MIN + 2 * kUnsureMargin), place));
}

}  // namespace internal

// sinF of two numbers at once.
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

namespace internal {

// Sines and cosines of four angles that were reduced by multiples of a quarter turn, rounded to
// float. The lowest two bits of `turns` are the number of quarter turns of each.
struct ReducedSineCosine {
  __m128i turns;
  __m128 sines;
  __m128 cosines;
};

// The sines and cosines of the angles themselves: odd quarter turns swap sine and cosine; two of
// four change the sign. Both give the same bits after rounding to float as before it.
NQ_FORCE_INLINE void AddQuarterTurns(const ReducedSineCosine& of, __m128* sines, __m128* cosines) {
  const __m128i firstBit = _mm_slli_epi32(of.turns, 31);
  const __m128i secondBit = _mm_slli_epi32(of.turns, 30);
  const __m128 isOdd = _mm_castsi128_ps(_mm_srai_epi32(firstBit, 31));
  const __m128 sign = _mm_set1_ps(-0.0f);
  const __m128 sineSign = _mm_and_ps(_mm_castsi128_ps(secondBit), sign);
  const __m128 cosineSign = _mm_and_ps(_mm_castsi128_ps(_mm_xor_si128(firstBit, secondBit)), sign);
  const __m128 change = _mm_and_ps(_mm_xor_ps(of.sines, of.cosines), isOdd);
  *sines = _mm_xor_ps(_mm_xor_ps(of.sines, sineSign), change);
  *cosines = _mm_xor_ps(_mm_xor_ps(of.cosines, cosineSign), change);
}

// Two and two numbers, rounded to float.
inline __m128 RoundPairs(__m128d low, __m128d high) {
  return _mm_movelh_ps(_mm_cvtpd_ps(low), _mm_cvtpd_ps(high));
}

// Two angles reduced by multiples of a quarter turn, before rounding.
struct ReducedPair {
  __m128d turns;  // their number plus kToWhole
  __m128d sines;
  __m128d cosines;
  __m128d inRange;  // all bits of a lane whose angle is not too large, and not a NaN
};

inline ReducedPair ReducePair(__m128d x) {
  const __m128d toWhole = BothLanes(kToWhole);
  const __m128d shifted = _mm_add_pd(_mm_mul_pd(x, BothLanes(kQuarterTurnsPerRadian)), toWhole);
  const __m128d turned = _mm_sub_pd(shifted, toWhole);
  const __m128d r = _mm_sub_pd(_mm_sub_pd(x, _mm_mul_pd(turned, BothLanes(kQuarterTurn))),
                               _mm_mul_pd(turned, BothLanes(kQuarterTurnRest)));
  const __m128d z = _mm_mul_pd(r, r);
  return ReducedPair{shifted, _mm_mul_pd(r, SevenTerms(kSineRatioTerms, z)),
                     SevenTerms(kCosineTerms, z),
                     _mm_cmple_pd(_mm_andnot_pd(BothLanes(-0.0), x), BothLanes(kMaxReducedAngle))};
}

// Sines and cosines of the four angles that were reduced. False, with the results undefined, if one
// of them needs the math library.
inline bool SinCosOfPairs(const ReducedPair& low, const ReducedPair& high, __m128* sines,
                          __m128* cosines) {
  AddQuarterTurns(
      ReducedSineCosine{LowerWords(low.turns, high.turns), RoundPairs(low.sines, high.sines),
                        RoundPairs(low.cosines, high.cosines)},
      sines, cosines);
  const __m128 unsure =
      _mm_or_ps(RoundUnsurely(low.sines, high.sines), RoundUnsurely(low.cosines, high.cosines));
  const __m128 inRange = _mm_castpd_ps(_mm_and_pd(low.inRange, high.inRange));
  return SignBits(_mm_andnot_ps(unsure, inRange)) == 0xF;
}

}  // namespace internal

// sinF and cosF of four numbers by the series of ReducePair, only if HasWideIntegers. False,
// with the results undefined, if one of them needs the math library.
NQ_FORCE_INLINE NQ_TARGET_AVX2 bool sinCosFourF(__m128 angles, __m128* sines, __m128* cosines) {
  const __m256d x = _mm256_cvtps_pd(angles);
  const __m256d toWhole = _mm256_set1_pd(internal::kToWhole);
  const __m256d shifted =
      _mm256_add_pd(_mm256_mul_pd(x, _mm256_set1_pd(internal::kQuarterTurnsPerRadian)), toWhole);
  const __m256d turned = _mm256_sub_pd(shifted, toWhole);
  const __m256d r =
      _mm256_sub_pd(_mm256_sub_pd(x, _mm256_mul_pd(turned, _mm256_set1_pd(internal::kQuarterTurn))),
                    _mm256_mul_pd(turned, _mm256_set1_pd(internal::kQuarterTurnRest)));
  const __m256d z = _mm256_mul_pd(r, r);
  const __m256d sine = _mm256_mul_pd(r, internal::SevenTermsOfFour(internal::kSineRatioTerms, z));
  const __m256d cosine = internal::SevenTermsOfFour(internal::kCosineTerms, z);

  // NaNs count as too large.
  const __m256d outside = _mm256_cmp_pd(_mm256_andnot_pd(_mm256_set1_pd(-0.0), x),
                                        _mm256_set1_pd(internal::kMaxReducedAngle), _CMP_NLE_UQ);
  const __m256 unsure = internal::RoundUnsurely(sine, cosine);
  const __m128i turns =
      internal::LowerWords(_mm256_castpd256_pd128(shifted), _mm256_extractf128_pd(shifted, 1));
  internal::AddQuarterTurns(
      internal::ReducedSineCosine{turns, _mm256_cvtpd_ps(sine), _mm256_cvtpd_ps(cosine)}, sines,
      cosines);
  return _mm256_movemask_ps(_mm256_or_ps(unsure, _mm256_castpd_ps(outside))) == 0;
}

// The same on every CPU, two numbers at a time.
inline bool sinCosPairsF(__m128 angles, __m128* sines, __m128* cosines) {
  return internal::SinCosOfPairs(internal::ReducePair(_mm_cvtps_pd(angles)),
                                 internal::ReducePair(_mm_cvtps_pd(_mm_movehl_ps(angles, angles))),
                                 sines, cosines);
}

// sinF and cosF of four numbers, by the math library.
inline void sinCosEachF(__m128 angles, __m128* sines, __m128* cosines) {
  float of[4];
  _mm_storeu_ps(of, angles);
  *sines = _mm_setr_ps(sinF(of[0]), sinF(of[1]), sinF(of[2]), sinF(of[3]));
  *cosines = _mm_setr_ps(cosF(of[0]), cosF(of[1]), cosF(of[2]), cosF(of[3]));
}

// Sine and cosine of one angle.
struct SineCosine {
  float sine;
  float cosine;
};

// sinF and cosF of one number.
inline SineCosine sinCosF(float angle) {
  const internal::ReducedPair both = internal::ReducePair(internal::BothLanes(angle));
  __m128 sines;
  __m128 cosines;
  if (internal::SinCosOfPairs(both, both, &sines, &cosines)) {
    return SineCosine{_mm_cvtss_f32(sines), _mm_cvtss_f32(cosines)};
  }
  return SineCosine{sinF(angle), cosF(angle)};
}

// acosF, faster for 0 to 1.
inline float acosNearF(float x) {
  if (x >= 0.0f && x < 1.0f) {
    const double d = x;
    double angle;
    if (d > 0.5) {
      // 1 - d is exact; the angle is 2 asin(sqrt((1 - d) / 2)).
      const double z = 0.5 * (1.0 - d);
      const double s = std::sqrt(z);
      angle = 2.0 * (s + s * z * internal::ArcSineTail(z));
    } else {
      const double z = d * d;
      angle = internal::kHalfPi - (d + d * z * internal::ArcSineTail(z));
    }
    float rounded;
    if (internal::RoundsSurely(angle, &rounded)) {
      return rounded;
    }
  }
  return acosF(x);
}

// Factors of a slerp by the share t, of two rotations at some angle: each rotation is multiplied by
// the sine of its part of the angle and divided by that of the whole.
struct SlerpSines {
  __m128 from;   // of (1 - t) times the angle
  __m128 to;     // of t times the angle
  __m128 whole;  // of the angle
};

// sinF of three parts of four angles, which are acosF(cosines), by the series of acosNearF and
// sinTwoF. Only if HasWideIntegers, for cosines from 0 to below 1 and t from 0 to 1. False, with
// the results undefined, if a number needs the math library.
NQ_FORCE_INLINE NQ_TARGET_AVX2 bool slerpSinesFourF(__m128 cosines, float t, SlerpSines* sines) {
  const __m256d exact = internal::ArcCosinesOfFour(_mm256_cvtps_pd(cosines));
  const __m128 angles = _mm256_cvtpd_ps(exact);
  const __m128 fromAngles = _mm_mul_ps(_mm_set1_ps(1.0f - t), angles);
  const __m128 toAngles = _mm_mul_ps(_mm_set1_ps(t), angles);
  const __m256d whole = internal::SineSeriesOfFour(_mm256_cvtps_pd(angles));
  const __m256d from = internal::SineSeriesOfFour(_mm256_cvtps_pd(fromAngles));
  const __m256d to = internal::SineSeriesOfFour(_mm256_cvtps_pd(toAngles));
  *sines = SlerpSines{_mm256_cvtpd_ps(from), _mm256_cvtpd_ps(to), _mm256_cvtpd_ps(whole)};
  const __m256 unsure =
      _mm256_or_ps(internal::RoundUnsurely(exact, whole), internal::RoundUnsurely(from, to));
  return _mm256_movemask_ps(unsure) == 0;
}

// The same on every CPU, two numbers at a time.
inline bool slerpSinesPairsF(__m128 cosines, float t, SlerpSines* sines) {
  struct Pairs {
    __m128d low;
    __m128d high;
  };
  const auto widen = [](__m128 four) {
    return Pairs{_mm_cvtps_pd(four), _mm_cvtps_pd(_mm_movehl_ps(four, four))};
  };
  const auto round = [](const Pairs& four) { return internal::RoundPairs(four.low, four.high); };
  const Pairs wide = widen(cosines);
  const Pairs exact = {internal::ArcCosines(wide.low), internal::ArcCosines(wide.high)};
  const __m128 angles = round(exact);
  __m128 unsure = internal::RoundUnsurely(exact.low, exact.high);
  const auto sine = [widen, round, &unsure](__m128 four) {
    const Pairs x = widen(four);
    const Pairs sines = {internal::SineSeries(x.low), internal::SineSeries(x.high)};
    unsure = _mm_or_ps(unsure, internal::RoundUnsurely(sines.low, sines.high));
    return round(sines);
  };
  sines->from = sine(_mm_mul_ps(_mm_set1_ps(1.0f - t), angles));
  sines->to = sine(_mm_mul_ps(_mm_set1_ps(t), angles));
  sines->whole = sine(angles);
  return SignBits(unsure) == 0;
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_FASTTRIGONOMETRY_H_
