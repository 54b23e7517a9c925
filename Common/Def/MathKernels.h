// The single-precision math kernels that the whole engine shares.
//
// CONVENTIONS
// - Matrices are column-major: element (row r, column c) of a 4x4 at index 4c + r, of a 3x3 at
//   3c + r. Translation at 12, 13, 14. A point transforms as M * p.
// - Angles are radians.
// - Quaternions are stored in entities as x, y, z, w; each kernel here states its own order.
// - Every operation rounds to single precision, in the order written; square roots and trigonometry
//   are computed in double and rounded. NaNs and infinities propagate.
//
// All kernels are pure and may run on any thread.
#ifndef NQ_COMMON_DEF_MATHKERNELS_H_
#define NQ_COMMON_DEF_MATHKERNELS_H_

#include <cstdint>

namespace nq::engine {

// out = a * b; 16 floats each. `out` must not overlap `a` or `b`. Each element is summed strictly
// from left to right: ((a[r]*b[4c] + a[4+r]*b[4c+1]) + a[8+r]*b[4c+2]) + a[12+r]*b[4c+3].
void multiplyMatrix4(const float* a, const float* b, float* out);

// out = the inverse of `source`, 16 floats each, by one pivot on the first column and the adjugate
// of the 3x3 Schur complement. `out` must not overlap `source`. Always returns true: a singular
// matrix fills `out` with infinities and NaNs. The last argument is ignored.
bool invertMatrix4(const float* source, float* out, uint32_t unused);

// The rotation part of a 4x4 matrix without scale, as w, x, y, z (Shepperd's method). Does not
// normalise. Returns `out`.
float* matrixToQuaternion(const float* matrix, float* out);

// The same for a 3x3 matrix of 9 floats.
float* ExtractQuaternion(const float* matrix, float* out);

// The product q(y) * q(x) * q(z) of three axis rotations, as w, z, y, x: the reverse of an entity's
// order. Returns `out`.
float* eulerToQuaternion(float x, float y, float z, float* out);

// A rotation stored as Euler angles and converted lazily to a quaternion. Components are in reverse
// order.
struct EulerRotation {
  bool quaternionValid = true;            // `quaternion` holds the rotation
  float euler[3] = {0, 0, 0};             // z, y, x
  float quaternion[4] = {1.0f, 0, 0, 0};  // w, z, y, x
};

// The quaternion of `rotation`, w, z, y, x: the stored one if it is valid, otherwise computed from
// the angles and stored.
const float* eulerToQuaternion(EulerRotation* rotation);

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MATHKERNELS_H_
