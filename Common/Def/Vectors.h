// Vector instructions by their x86-64 names, and what vectors of 256 bits this CPU has.
//
// Functions that use 256 bits are marked NQ_TARGET_AVX or NQ_TARGET_AVX2, and are called only where
// the CPU has them. The answers cost a load and a test: the CPU was asked when the program started.
#ifndef NQ_COMMON_DEF_VECTORS_H_
#define NQ_COMMON_DEF_VECTORS_H_

#include <immintrin.h>

#include "Common/Def/Platform.h"

namespace nq::engine {

// Of floating-point numbers: NQ_TARGET_AVX.
inline bool HasWideVectors() {
  return NQ_CPU_HAS("avx");
}

// Of integers as well: NQ_TARGET_AVX2.
inline bool HasWideIntegers() {
  return NQ_CPU_HAS("avx2");
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_VECTORS_H_
