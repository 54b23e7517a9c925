// Conversion of floats written by JavaScript to the unsigned integers they represent.
#ifndef NQ_COMMON_DEF_TRUNCATE_H_
#define NQ_COMMON_DEF_TRUNCATE_H_

#include <cmath>
#include <cstdint>

#include "Common/Def/Vectors.h"

namespace nq::engine {

// Truncates towards zero; from 2^31 upwards by subtracting 2^31 and setting the top bit. A negative
// number wraps: -1 gives 0xFFFFFFFF. Numbers that do not fit in 32 bits, and NaN, give 0x80000000.
inline uint32_t TruncateToU32(float value) {
  constexpr float kTopBit = 2147483648.0f;
  if (value >= kTopBit) {
    return static_cast<uint32_t>(_mm_cvttss_si32(_mm_set_ss(value - kTopBit))) | 0x80000000u;
  }
  return static_cast<uint32_t>(_mm_cvttss_si32(_mm_set_ss(value)));
}

// True for integers, and for infinities.
inline bool IsWhole(float value) {
  return std::trunc(value) == value;
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_TRUNCATE_H_
