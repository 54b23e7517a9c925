// 4x4 products by SSE, one column of four floats at a time, and by AVX, two columns at a time.
#include "Common/Def/MatrixProduct.h"

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

const float* FloatsAt(const uint8_t* bytes) {
  return reinterpret_cast<const float*>(bytes);
}

}  // namespace

void MultiplyByColumns(const uint8_t* left, const uint8_t* right, uint8_t* out) {
  __m128 a[4];
  __m128 product[4];
  for (int c = 0; c < 4; ++c) {
    a[c] = _mm_loadu_ps(FloatsAt(left + 16 * c));
  }
  for (int c = 0; c < 4; ++c) {
    const __m128 b = _mm_loadu_ps(FloatsAt(right + 16 * c));
    __m128 sum = _mm_mul_ps(a[0], _mm_shuffle_ps(b, b, _MM_SHUFFLE(0, 0, 0, 0)));
    sum = _mm_add_ps(sum, _mm_mul_ps(a[1], _mm_shuffle_ps(b, b, _MM_SHUFFLE(1, 1, 1, 1))));
    sum = _mm_add_ps(sum, _mm_mul_ps(a[2], _mm_shuffle_ps(b, b, _MM_SHUFFLE(2, 2, 2, 2))));
    product[c] = _mm_add_ps(sum, _mm_mul_ps(a[3], _mm_shuffle_ps(b, b, _MM_SHUFFLE(3, 3, 3, 3))));
  }
  for (int c = 0; c < 4; ++c) {
    _mm_storeu_ps(reinterpret_cast<float*>(out + 16 * c), product[c]);
  }
}

NQ_TARGET_AVX void MultiplyByTwoColumns(const uint8_t* left, const uint8_t* right, uint8_t* out) {
  const TwoByTwoColumns product = ProductByTwoColumns(left, right);
  _mm256_storeu_ps(reinterpret_cast<float*>(out), product.first);
  _mm256_storeu_ps(reinterpret_cast<float*>(out + 32), product.second);
}

}  // namespace nq::engine
