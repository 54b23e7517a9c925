// SIMD intrinsics by their x86-64 names, and which 256-bit vectors this CPU has.
//
// On other CPUs SIMDe, a header-only library, implements these names with bit-identical results,
// except for the sign and payload of NaNs. Its options SIMDE_FAST_... give that up and stay unset.
//
// Functions that use 256 bits are marked NQ_TARGET_AVX or NQ_TARGET_AVX2, and are called only if
// the CPU supports them. Each test costs a load and a branch: the CPU is queried once, at program
// start.
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

// AVX, 256-bit vectors of floats: for NQ_TARGET_AVX.
inline bool HasWideVectors() {
  return NQ_CPU_HAS("avx");
}

// AVX2, 256-bit vectors of integers as well: for NQ_TARGET_AVX2.
inline bool HasWideIntegers() {
  return NQ_CPU_HAS("avx2");
}

// Bit i is the sign bit of lane i. SIMDe takes the lanes apart where WebAssembly has an
// instruction.
inline int SignBits(__m128 lanes) {
#if NQ_HAS_WASM_VECTORS
  return static_cast<int>(wasm_i32x4_bitmask(lanes));
#else
  return _mm_movemask_ps(lanes);
#endif
}

// `yes` in lanes of `mask`, `no` in the others.
inline __m128 Select(__m128 mask, __m128 yes, __m128 no) {
  return _mm_or_ps(_mm_and_ps(mask, yes), _mm_andnot_ps(mask, no));
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_VECTORS_H_
