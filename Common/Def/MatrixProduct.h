// Products of unaligned 4x4 matrices, for CPUs with and without AVX.
#ifndef NQ_COMMON_DEF_MATRIXPRODUCT_H_
#define NQ_COMMON_DEF_MATRIXPRODUCT_H_

#include <cstdint>

#include "Common/Def/Vectors.h"

namespace nq::engine {

// out = left x right: 16 floats each, column-major, at any address; `out` may be or overlap an
// operand, since all is loaded before anything is stored. Each element is summed from left to
// right. Both functions, of which multiplyMatrix4 takes the faster one, give the same bits, except
// where two different NaNs meet in an element: it is NaN then, with the payload of either.
void MultiplyByColumns(const uint8_t* left, const uint8_t* right, uint8_t* out);

// The same with half the operations, only if HasWideVectors.
void MultiplyByTwoColumns(const uint8_t* left, const uint8_t* right, uint8_t* out);

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MATRIXPRODUCT_H_
