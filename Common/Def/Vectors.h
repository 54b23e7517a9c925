// Vector instructions by their x86-64 names, and what vectors of 256 bits this CPU has.
//
// On other CPUs SIMDe, a library of headers, gives these names the same meaning to the last bit,
// but for the sign and payload of NaNs. Its options SIMDE_FAST_... give that up and stay unset.
//
// Functions that use 256 bits are marked NQ_TARGET_AVX or NQ_TARGET_AVX2, and are called only where
// the CPU has them. The answers cost a load and a test: the CPU was asked when the program started.
#ifndef NQ_COMMON_DEF_VECTORS_H_
#define NQ_COMMON_DEF_VECTORS_H_

#include "Common/Def/Platform.h"

#if NQ_HAS_X86_VECTORS
#include <immintrin.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/x86/avx2.h>
#endif

namespace nq::engine {

// Of floating-point numbers: NQ_TARGET_AVX.
inline bool HasWideVectors() {
  return NQ_CPU_HAS("avx");
}

// Of integers as well: NQ_TARGET_AVX2.
inline bool HasWideIntegers() {
  return NQ_CPU_HAS("avx2");
}

// Two numbers rounded to the nearest integers, ties to even, in the lower two lanes; the others are
// 0. For magnitudes below 2^31. By additions only: a number plus 1.5 * 2^52 has no bits left for a
// fraction, and the integer in its lower word.
inline __m128i NearestIntegersByAddition(__m128d numbers) {
  const __m128i sums = _mm_castpd_si128(_mm_add_pd(numbers, _mm_set1_pd(6755399441055744.0)));
  return _mm_move_epi64(_mm_shuffle_epi32(sums, _MM_SHUFFLE(3, 3, 2, 0)));
}

// The same by the instruction for it. SIMDe's rounds ties away from zero.
inline __m128i NearestIntegers(__m128d numbers) {
#if NQ_HAS_X86_VECTORS
  return _mm_cvtpd_epi32(numbers);
#else
  return NearestIntegersByAddition(numbers);
#endif
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_VECTORS_H_
