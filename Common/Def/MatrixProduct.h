// Products of unaligned 4x4 matrices, for CPUs with and without AVX.
#ifndef NQ_COMMON_DEF_MATRIXPRODUCT_H_
#define NQ_COMMON_DEF_MATRIXPRODUCT_H_

#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

// out = left x right: 16 floats each, column-major, at any address; `out` may be or overlap an
// operand, since all is loaded before anything is stored. Each element is summed from left to
// right. Both functions, of which multiplyMatrix4 takes the faster one, give the same bits, except
// where two different NaNs meet in an element: it is NaN then, with the payload of either.
void MultiplyByColumns(const uint8_t* left, const uint8_t* right, uint8_t* out);

// The same with half the operations, only if HasWideVectors.
void MultiplyByTwoColumns(const uint8_t* left, const uint8_t* right, uint8_t* out);

// The product in registers, two columns each, for loops that are compiled for AVX themselves.
struct TwoByTwoColumns {
  __m256 first, second;
};

namespace internal {

// Two columns of a product; `a` holds each of its columns in both halves.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 TwoColumns(const __m256* a, const uint8_t* right) {
  const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(right));
  __m256 sum = _mm256_mul_ps(a[0], _mm256_permute_ps(b, _MM_SHUFFLE(0, 0, 0, 0)));
  sum = _mm256_add_ps(sum, _mm256_mul_ps(a[1], _mm256_permute_ps(b, _MM_SHUFFLE(1, 1, 1, 1))));
  sum = _mm256_add_ps(sum, _mm256_mul_ps(a[2], _mm256_permute_ps(b, _MM_SHUFFLE(2, 2, 2, 2))));
  return _mm256_add_ps(sum, _mm256_mul_ps(a[3], _mm256_permute_ps(b, _MM_SHUFFLE(3, 3, 3, 3))));
}

}  // namespace internal

NQ_FORCE_INLINE NQ_TARGET_AVX TwoByTwoColumns ProductByTwoColumns(const uint8_t* left,
                                                                  const uint8_t* right) {
  __m256 a[4];
  for (int c = 0; c < 4; ++c) {
    a[c] = _mm256_broadcast_ps(reinterpret_cast<const __m128*>(left + 16 * c));
  }
  return {internal::TwoColumns(a, right), internal::TwoColumns(a, right + 32)};
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MATRIXPRODUCT_H_
