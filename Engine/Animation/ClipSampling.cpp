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
  return _mm_movemask_ps(_mm_cmpunord_ps(v, v)) != 0;
}

// LerpChannel on four channels at once.
__m128 Lerp4(__m128 a, __m128 b, float t) {
  const __m128 ofB = _mm_mul_ps(b, _mm_set1_ps(t));
  const __m128 ofA = _mm_mul_ps(_mm_set1_ps(1.0f - t), a);
  const __m128 sum = _mm_add_ps(ofB, ofA);
  const __m128 noA = _mm_cmpunord_ps(a, a);
  const __m128 noB = _mm_cmpunord_ps(b, b);
  const __m128 withA = _mm_or_ps(_mm_and_ps(noB, ofA), _mm_andnot_ps(noB, sum));
  return _mm_or_ps(_mm_and_ps(noA, ofB), _mm_andnot_ps(noA, withA));
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

void BlendSample(ClipSample* blended, const ClipSample& other, float t, bool many) {
  float* a = blended->channel;
  const float* b = other.channel;
  _mm_store_ps(a, Lerp4(_mm_load_ps(a), _mm_load_ps(b), t));
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
