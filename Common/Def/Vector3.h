// Three floats, and the basic vector arithmetic on them, inline.
#ifndef NQ_COMMON_DEF_VECTOR3_H_
#define NQ_COMMON_DEF_VECTOR3_H_

#include "Common/Def/Trigonometry.h"

namespace nq::engine {

struct Vector3 {
  float x, y, z;
};

inline Vector3 Add(const Vector3& a, const Vector3& b) {
  return Vector3{a.x + b.x, a.y + b.y, a.z + b.z};
}

inline Vector3 Subtract(const Vector3& a, const Vector3& b) {
  return Vector3{a.x - b.x, a.y - b.y, a.z - b.z};
}

inline Vector3 Scale(const Vector3& v, float factor) {
  return Vector3{v.x * factor, v.y * factor, v.z * factor};
}

inline Vector3 Negate(const Vector3& v) {
  return Vector3{-v.x, -v.y, -v.z};
}

// Summed from left to right.
inline float Dot(const Vector3& a, const Vector3& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline Vector3 Cross(const Vector3& a, const Vector3& b) {
  return Vector3{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

// Multiplies by the reciprocal of the length. No guard: a length of 0 gives infinities.
inline Vector3 Normalize(const Vector3& v) {
  return Scale(v, 1.0f / sqrtF(Dot(v, v)));
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_VECTOR3_H_
