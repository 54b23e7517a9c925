// Sampling of animation curves, and the arithmetic that blends samples.
//
// Time is in frames. NaN always means that a channel is not animated; no code treats it as an
// error.
#ifndef NQ_ENGINE_ANIMATION_CLIPSAMPLING_H_
#define NQ_ENGINE_ANIMATION_CLIPSAMPLING_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Def/Truncate.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/ClipFormat.h"
#include "Engine/Animation/FourQuaternions.h"

namespace nq::engine {

// The curves of one target.
struct ClipTrack {
  bool isQuaternion = false;  // a key of type kQuaternionW was stored
  std::array<std::vector<ClipKey>, kClipChannels> channels;
};

// The sample of one track at one time.
struct alignas(16) ClipSample {
  float channel[kClipChannels];  // NaN where the track has no keys
  bool isQuaternion;             // the track's
};

// The weights of the four terms of a cubic Hermite segment at one time, and its length in seconds.
// The terms are (e.g. Bartels, Beatty, Barsky, "An Introduction to Splines", 1987)
//
//   p (2s^3 - 3s^2 + 1)  +  n (3s^2 - 2s^3)  +  p' (s^3 - 2s^2 + s) dt  +  n' (s^3 - s^2) dt
//
// summed from left to right, each product from left to right.
struct HermiteWeights {
  float previous;
  float next;
  float previousTangent;
  float nextTangent;
  float seconds;

  // `span` is the segment's length in frames. 0 frames per second give an infinite length.
  HermiteWeights(float time, uint32_t previousFrame, uint32_t span, uint32_t framesPerSecond);
};

// The position of a time among ascending frames. Either a key's value holds, or the curve runs from
// the key before `key` to `key`.
struct CurvePosition {
  size_t key;
  bool holds;
};

// The position for `first`: the first of `count` keys, at least one, whose frame is at or after
// `time`, or `count` if there is none. `frameOf(i)` is the frame of key i.
template <typename FrameOf>
CurvePosition PositionAt(float time, size_t first, size_t count, FrameOf frameOf) {
  const bool found = first < count;
  const size_t key = found ? first : count - 1;
  if (key == 0 || !found || (IsWhole(time) && frameOf(key) == TruncateToU32(time))) {
    return CurvePosition{key, true};
  }
  // The key before is not at or after `time`, so the two are on different frames.
  return CurvePosition{key, false};
}

// b t + (1 - t) a. A NaN side contributes nothing, while the other keeps its own weight.
float LerpChannel(float a, float b, float t);

// The same for four channels at once.
inline __m128 LerpFour(__m128 a, __m128 b, float t) {
  const __m128 ofB = _mm_mul_ps(b, _mm_set1_ps(t));
  const __m128 ofA = _mm_mul_ps(_mm_set1_ps(1.0f - t), a);
  const __m128 withA = Select(_mm_cmpunord_ps(b, b), ofA, _mm_add_ps(ofB, ofA));
  return Select(_mm_cmpunord_ps(a, a), ofB, withA);
}

// Blends `other` into `blended` with the share t. `many`: more than two clips are blended. Two
// quaternions are slerped (Shoemake, "Animating rotation with quaternion curves", 1985); of more,
// each is added as a rotation scaled by its share. In both cases the caller normalises at the end.
void BlendSample(ClipSample* blended, const ClipSample& other, float t, bool many);

// The slerps of BlendSample for four pairs of quaternions, with t from 0 to 1. False if they have
// to be computed one by one, where a number needs the math library.
bool SlerpFour(const FourQuaternions& a, const FourQuaternions& b, float t,
               FourQuaternions* blended);

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CLIPSAMPLING_H_
