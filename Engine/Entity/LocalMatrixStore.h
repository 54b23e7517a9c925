// Stores of a finished local matrix.
#ifndef NQ_ENGINE_ENTITY_LOCALMATRIXSTORE_H_
#define NQ_ENGINE_ENTITY_LOCALMATRIXSTORE_H_

#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace internal {

typedef uint64_t NQ_MAY_ALIAS MatrixWord;

inline void StoreColumn(float* to, __m128 column) {
  const __m128i bits = _mm_castps_si128(column);
  MatrixWord* words = reinterpret_cast<MatrixWord*>(to);
  NQ_STORE_RELAXED(words, static_cast<uint64_t>(_mm_cvtsi128_si64(bits)));
  NQ_STORE_RELAXED(words + 1,
                   static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(bits, bits))));
}

}  // namespace internal

// For a matrix that only one thread builds.
inline void StoreOwnLocalMatrix(float* to, __m128 c0, __m128 c1, __m128 c2, __m128 c3) {
  _mm_storeu_ps(to, c0);
  _mm_storeu_ps(to + 4, c1);
  _mm_storeu_ps(to + 8, c2);
  _mm_storeu_ps(to + 12, c3);
}

// Stores four columns at `to`, which is 8-byte aligned. Two tasks may build an entity concurrently
// if a long dirty list holds it twice: both store the same values, hence relaxed atomic stores.
inline void StoreLocalMatrix(float* to, __m128 c0, __m128 c1, __m128 c2, __m128 c3) {
  internal::StoreColumn(to, c0);
  internal::StoreColumn(to + 4, c1);
  internal::StoreColumn(to + 8, c2);
  internal::StoreColumn(to + 12, c3);
}

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALMATRIXSTORE_H_
