// Hermite weights, and the blend of two samples.
#include "Engine/Animation/ClipSampling.h"

#include <cmath>
#include <limits>

#include "Common/Def/FastTrigonometry.h"
#include "Common/Def/Trigonometry.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

// Two quaternions closer than this, as 1 minus their dot product, are blended linearly: the sine of
// the angle between them is too small to divide by.
constexpr double kMinSlerpDistance = 1e-6;

float Dot4(const float* a, const float* b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

bool AnyNaN4(__m128 v) {
  return SignBits(_mm_cmpunord_ps(v, v)) != 0;
}

// Slerps two clips' rotations along the shorter arc.
void Slerp(float* a, const float* other, float t) {
  __m128 b = _mm_loadu_ps(other);
  float d = Dot4(a, other);
  if (d < 0.0f) {
    b = _mm_xor_ps(b, _mm_set1_ps(-0.0f));
    d = -d;
  }
  const __m128 from = _mm_loadu_ps(a);
  if (1.0 - static_cast<double>(d) > kMinSlerpDistance) {
    const float angle = acosNearF(d);
    float sines[4];  // of the angle, of (1 - t) times it, of t times it; twice
    sinTwoF(angle, (1.0f - t) * angle, &sines[0], &sines[1]);
    sinTwoF(t * angle, t * angle, &sines[2], &sines[3]);
    const __m128 sine = _mm_set1_ps(sines[0]);
    const __m128 fromShare = _mm_set1_ps(sines[1]);
    const __m128 toShare = _mm_set1_ps(sines[2]);
    _mm_storeu_ps(a, _mm_add_ps(_mm_div_ps(_mm_mul_ps(from, fromShare), sine),
                                _mm_div_ps(_mm_mul_ps(b, toShare), sine)));
  } else {
    _mm_storeu_ps(
        a, _mm_add_ps(_mm_mul_ps(from, _mm_set1_ps(1.0f - t)), _mm_mul_ps(b, _mm_set1_ps(t))));
  }
}

// The greatest dot product of two quaternions that are slerped.
constexpr float kMaxSlerpDot = 1.0f - 17.0f / 16777216.0f;
static_assert(1.0 - static_cast<double>(kMaxSlerpDot) > kMinSlerpDistance &&
                  1.0 - (static_cast<double>(kMaxSlerpDot) + 1.0 / 16777216.0) <= kMinSlerpDistance,
              "the next float is too close");

// What of four pairs of rotations is slerped, and how.
struct SlerpAngles {
  SlerpAngles(const FourQuaternions& a, const FourQuaternions& b) {
    const __m128 dot = DotFour(a, b);
    sign = _mm_and_ps(_mm_cmplt_ps(dot, _mm_setzero_ps()), _mm_set1_ps(-0.0f));
    const __m128 nonNegative = _mm_xor_ps(dot, sign);
    // Not those with an infinite or NaN dot product either.
    isSlerp = _mm_cmple_ps(nonNegative, _mm_set1_ps(kMaxSlerpDot));
    cosine = Select(isSlerp, nonNegative, _mm_set1_ps(0.5f));
  }

  __m128 sign;     // of the dot product
  __m128 isSlerp;  // mask of the pairs that are far enough from each other
  __m128 cosine;   // of the angle; 0.5 where nothing is slerped
};

NQ_FORCE_INLINE FourQuaternions Blended(const FourQuaternions& a, const FourQuaternions& b, float t,
                                        const SlerpAngles& angles, const SlerpSines& sines) {
  // Dividing by 1 changes nothing.
  const __m128 whole = Select(angles.isSlerp, sines.whole, _mm_set1_ps(1.0f));
  const __m128 from = Select(angles.isSlerp, sines.from, _mm_set1_ps(1.0f - t));
  const __m128 to = _mm_xor_ps(Select(angles.isSlerp, sines.to, _mm_set1_ps(t)), angles.sign);
  const auto blend = [whole, from, to](__m128 p, __m128 q) {
    return _mm_add_ps(_mm_div_ps(_mm_mul_ps(p, from), whole), _mm_div_ps(_mm_mul_ps(q, to), whole));
  };
  return FourQuaternions{blend(a.x, b.x), blend(a.y, b.y), blend(a.z, b.z), blend(a.w, b.w)};
}

// SlerpFour, only if HasWideIntegers.
NQ_TARGET_AVX2 bool SlerpByFour(const FourQuaternions& a, const FourQuaternions& b, float t,
                                FourQuaternions* blended) {
  const SlerpAngles angles(a, b);
  SlerpSines sines;
  if (!slerpSinesFourF(angles.cosine, t, &sines)) {
    return false;
  }
  *blended = Blended(a, b, t, angles, sines);
  return true;
}

// The same on every CPU.
bool SlerpByPairs(const FourQuaternions& a, const FourQuaternions& b, float t,
                  FourQuaternions* blended) {
  const SlerpAngles angles(a, b);
  SlerpSines sines;
  if (!slerpSinesPairsF(angles.cosine, t, &sines)) {
    return false;
  }
  *blended = Blended(a, b, t, angles, sines);
  return true;
}

// Adds the rotation `other`, scaled by t, to the sum `a`. Kept on purpose: an identity rotation has
// no axis; its division by zero yields NaN, which propagates. Blended poses rely on these results.
void AddScaledRotation(float* a, const float* other, float t) {
  float b[4] = {other[0], other[1], other[2], other[3]};
  const float d = Dot4(a, b);
  if (!(b[3] > 0.0f)) {
    for (float& component : b) {
      component = -component;
    }
  }
  const float length = sqrtF(b[0] * b[0] + b[1] * b[1] + b[2] * b[2]);
  const float angle = atan2F(length, b[3]);
  const float h = 2.0f * angle * t * (d < 0.0f ? -0.5f : 0.5f);
  float n[3] = {b[0] / length, b[1] / length, b[2] / length};
  const float again = sqrtF(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
  const float sine = sinF(h);
  for (int i = 0; i < 3; ++i) {
    a[i] += n[i] / again * sine;
  }
  a[3] += cosF(h);
}

}  // namespace

HermiteWeights::HermiteWeights(float time, uint32_t previousFrame, uint32_t span,
                               uint32_t framesPerSecond) {
  const float s = (time - static_cast<float>(previousFrame)) / static_cast<float>(span);
  const float s2 = s * s;
  const float s3 = s * s * s;
  previous = 2.0f * s3 - 3.0f * s2 + 1.0f;
  next = 3.0f * s2 - 2.0f * s3;
  previousTangent = s3 - 2.0f * s2 + s;
  nextTangent = s3 - s2;
  seconds = static_cast<float>(span) / static_cast<float>(framesPerSecond);
}

float LerpChannel(float a, float b, float t) {
  if (std::isnan(a)) {
    return b * t;
  }
  return std::isnan(b) ? (1.0f - t) * a : b * t + (1.0f - t) * a;
}

bool SlerpFour(const FourQuaternions& a, const FourQuaternions& b, float t,
               FourQuaternions* blended) {
  const auto slerp = HasWideIntegers() ? SlerpByFour : SlerpByPairs;
  return slerp(a, b, t, blended);
}

void BlendSample(ClipSample* blended, const ClipSample& other, float t, bool many) {
  float* a = blended->channel;
  const float* b = other.channel;
  _mm_store_ps(a, LerpFour(_mm_load_ps(a), _mm_load_ps(b), t));
  a[4] = LerpChannel(a[4], b[4], t);
  a[5] = LerpChannel(a[5], b[5], t);
  float* rotation = a + kRotationChannel;
  const float* otherRotation = b + kRotationChannel;
  if (!blended->isQuaternion) {
    for (int i = 0; i < 3; ++i) {
      rotation[i] = LerpChannel(rotation[i], otherRotation[i], t);
    }
    return;
  }
  const bool missing = AnyNaN4(_mm_loadu_ps(rotation));
  const bool otherMissing = AnyNaN4(_mm_loadu_ps(otherRotation));
  if (missing && otherMissing) {
    _mm_storeu_ps(rotation, _mm_set1_ps(std::numeric_limits<float>::quiet_NaN()));
  } else if (missing) {
    _mm_storeu_ps(rotation, _mm_loadu_ps(otherRotation));
  } else if (!otherMissing && many) {
    AddScaledRotation(rotation, otherRotation, t);
  } else if (!otherMissing) {
    Slerp(rotation, otherRotation, t);
  }
}

}  // namespace nq::engine
