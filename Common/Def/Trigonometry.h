// Square root and trigonometry for the whole engine: computed in double precision on a float
// operand, rounded to float.
#ifndef NQ_COMMON_DEF_TRIGONOMETRY_H_
#define NQ_COMMON_DEF_TRIGONOMETRY_H_

#include <cmath>

namespace nq::engine {

inline float sqrtF(float x) {
  return static_cast<float>(std::sqrt(static_cast<double>(x)));
}
inline float sinF(float x) {
  return static_cast<float>(std::sin(static_cast<double>(x)));
}
inline float cosF(float x) {
  return static_cast<float>(std::cos(static_cast<double>(x)));
}
inline float tanF(float x) {
  return static_cast<float>(std::tan(static_cast<double>(x)));
}
inline float acosF(float x) {
  return static_cast<float>(std::acos(static_cast<double>(x)));
}
inline float atan2F(float y, float x) {
  return static_cast<float>(std::atan2(static_cast<double>(y), static_cast<double>(x)));
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_TRIGONOMETRY_H_
