// Matrix product and inverse, conversion of rotations to quaternions.
#include "Common/Def/MathKernels.h"

#include <cmath>

#include "Common/Def/FastTrigonometry.h"
#include "Common/Def/MatrixProduct.h"
#include "Common/Def/Platform.h"
#include "Common/Def/Trigonometry.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

// The nine elements of a rotation matrix for its conversion to a quaternion, named by row and
// column.
struct RotationElements {
  float m00, m11, m22;
  float m21, m12, m02, m20, m10, m01;
};

// Shepperd's method: computes the largest of the four components first.
float* RotationToQuaternion(const RotationElements& m, float* out) {
  const float trace = m.m00 + m.m11 + m.m22;
  if (trace > 0.0f) {
    const float s2 = 2.0f * sqrtF(trace + 1.0f);
    const float i = 1.0f / s2;
    out[0] = 0.25f * s2;
    out[1] = (m.m21 - m.m12) * i;
    out[2] = (m.m02 - m.m20) * i;
    out[3] = (m.m10 - m.m01) * i;
  } else if (m.m00 > m.m11 && m.m00 > m.m22) {
    const float s2 = 2.0f * sqrtF(m.m00 - m.m11 - m.m22 + 1.0f);
    const float i = 1.0f / s2;
    out[0] = (m.m21 - m.m12) * i;
    out[1] = 0.25f * s2;
    out[2] = (m.m01 + m.m10) * i;
    out[3] = (m.m02 + m.m20) * i;
  } else if (m.m11 > m.m22) {
    const float s2 = 2.0f * sqrtF(m.m11 - m.m00 - m.m22 + 1.0f);
    const float i = 1.0f / s2;
    out[0] = (m.m02 - m.m20) * i;
    out[1] = (m.m01 + m.m10) * i;
    out[2] = 0.25f * s2;
    out[3] = (m.m21 + m.m12) * i;
  } else {
    const float s2 = 2.0f * sqrtF(m.m22 - m.m00 - m.m11 + 1.0f);
    const float i = 1.0f / s2;
    out[0] = (m.m10 - m.m01) * i;
    out[1] = (m.m02 + m.m20) * i;
    out[2] = (m.m21 + m.m12) * i;
    out[3] = 0.25f * s2;
  }
  return out;
}

// Stores the quaternion whose half angles x, y and z have these sines and cosines in the first
// three lanes:
//
//   w = cx * cy * cz + sx * sy * sz     z = cx * cy * sz - sx * sy * cz
//   y = cx * sy * cz - sx * cy * sz     x = sx * cy * cz + cx * sy * sz
NQ_FORCE_INLINE void StoreEulerQuaternion(__m128 sines, __m128 cosines, float* out) {
  const __m128 xy = _mm_unpacklo_ps(sines, cosines);  // sx cx sy cy
  const __m128 zs = _mm_unpackhi_ps(sines, cosines);  // sz cz
  const __m128 left = _mm_mul_ps(_mm_shuffle_ps(xy, xy, _MM_SHUFFLE(0, 1, 1, 1)),
                                 _mm_shuffle_ps(xy, xy, _MM_SHUFFLE(3, 2, 3, 3)));
  const __m128 right = _mm_mul_ps(_mm_shuffle_ps(xy, xy, _MM_SHUFFLE(1, 0, 0, 0)),
                                  _mm_shuffle_ps(xy, xy, _MM_SHUFFLE(2, 3, 2, 2)));
  const __m128 a = _mm_mul_ps(left, _mm_shuffle_ps(zs, zs, _MM_SHUFFLE(1, 1, 0, 1)));
  const __m128 b = _mm_mul_ps(right, _mm_shuffle_ps(zs, zs, _MM_SHUFFLE(0, 0, 1, 0)));
  _mm_storeu_ps(out, _mm_add_ps(a, _mm_xor_ps(b, _mm_setr_ps(0.0f, -0.0f, -0.0f, 0.0f))));
}

// eulerToQuaternion by 256-bit vectors, only if HasWideIntegers. False, and nothing is stored, if a
// sine or cosine needs the math library.
NQ_TARGET_AVX2 bool EulerToQuaternionByFour(__m128 halves, float* out) {
  __m128 sines;
  __m128 cosines;
  if (!sinCosFourF(halves, &sines, &cosines)) {
    return false;
  }
  StoreEulerQuaternion(sines, cosines, out);
  return true;
}

}  // namespace

void multiplyMatrix4(const float* a, const float* b, float* out) {
  const auto multiply = HasWideVectors() ? MultiplyByTwoColumns : MultiplyByColumns;
  multiply(reinterpret_cast<const uint8_t*>(a), reinterpret_cast<const uint8_t*>(b),
           reinterpret_cast<uint8_t*>(out));
}

bool invertMatrix4(const float* source, float* out, uint32_t /*unused*/) {
  // Pivoting: an element replaces the current pivot unless that is strictly greater, so a tie goes
  // to the later row.
  int p = 0;
  for (int row = 1; row < 4; ++row) {
    if (!(std::fabs(source[p]) > std::fabs(source[row]))) {
      p = row;
    }
  }
  int rows[3];  // the other three, ascending
  for (int row = 0, i = 0; row < 4; ++row) {
    if (row != p) {
      rows[i++] = row;
    }
  }

  const float d = -1.0f / source[p];
  float a[3];  // the pivot's row over columns 1 to 3, times d
  float e[3];  // column 0 of the other rows, times d
  for (int j = 0; j < 3; ++j) {
    a[j] = source[4 * (j + 1) + p] * d;
    e[j] = source[rows[j]] * d;
  }

  float s[3][3];  // Schur complement: rows by `rows`, columns 1 to 3
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      s[i][j] = source[4 * (j + 1) + rows[i]] + source[rows[i]] * a[j];
    }
  }

  // t = the inverse of s, by its adjugate.
  const float c00 = s[1][1] * s[2][2] - s[1][2] * s[2][1];
  const float c01 = s[1][2] * s[2][0] - s[1][0] * s[2][2];
  const float c02 = s[1][0] * s[2][1] - s[1][1] * s[2][0];
  const float determinant = s[0][0] * c00 + s[0][1] * c01 + s[0][2] * c02;
  const float r = 1.0f / determinant;
  const float t[3][3] = {
      {c00 * r, (s[0][2] * s[2][1] - s[0][1] * s[2][2]) * r,
       (s[0][1] * s[1][2] - s[0][2] * s[1][1]) * r},
      {c01 * r, (s[0][0] * s[2][2] - s[0][2] * s[2][0]) * r,
       (s[0][2] * s[1][0] - s[0][0] * s[1][2]) * r},
      {c02 * r, (s[0][1] * s[2][0] - s[0][0] * s[2][1]) * r,
       (s[0][0] * s[1][1] - s[0][1] * s[1][0]) * r},
  };

  float corner = 0.0f;  // a * t * e
  for (int i = 0; i < 3; ++i) {
    const float row = a[0] * t[0][i] + a[1] * t[1][i] + a[2] * t[2][i];
    const float column = t[i][0] * e[0] + t[i][1] * e[1] + t[i][2] * e[2];
    out[4 * rows[i]] = row;
    out[4 * p + i + 1] = column;
    corner = i == 0 ? row * e[0] : corner + row * e[i];
    for (int j = 0; j < 3; ++j) {
      out[4 * rows[i] + j + 1] = t[j][i];
    }
  }
  out[4 * p] = corner - d;
  return true;
}

float* matrixToQuaternion(const float* matrix, float* out) {
  return RotationToQuaternion({matrix[0], matrix[5], matrix[10], matrix[6], matrix[9], matrix[8],
                               matrix[2], matrix[1], matrix[4]},
                              out);
}

float* ExtractQuaternion(const float* matrix, float* out) {
  return RotationToQuaternion({matrix[0], matrix[4], matrix[8], matrix[5], matrix[7], matrix[6],
                               matrix[2], matrix[1], matrix[3]},
                              out);
}

float* eulerToQuaternion(float x, float y, float z, float* out) {
  const __m128 halves = _mm_setr_ps(x * 0.5f, y * 0.5f, z * 0.5f, 0.0f);
  if (HasWideIntegers() && EulerToQuaternionByFour(halves, out)) {
    return out;
  }
  __m128 sines;
  __m128 cosines;
  if (!sinCosPairsF(halves, &sines, &cosines)) {
    sinCosEachF(halves, &sines, &cosines);
  }
  StoreEulerQuaternion(sines, cosines, out);
  return out;
}

const float* eulerToQuaternion(EulerRotation* rotation) {
  if (!rotation->quaternionValid) {
    rotation->quaternionValid = true;
    eulerToQuaternion(rotation->euler[2], rotation->euler[1], rotation->euler[0],
                      rotation->quaternion);
  }
  return rotation->quaternion;
}

}  // namespace nq::engine
