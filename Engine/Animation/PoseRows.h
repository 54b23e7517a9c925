// The arithmetic of position and scale in controllers: four channels of a pose at a time.
#ifndef NQ_ENGINE_ANIMATION_POSEROWS_H_
#define NQ_ENGINE_ANIMATION_POSEROWS_H_

#include <cstdint>
#include <limits>

#include "Common/Def/Truncate.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/ClipSampling.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/RestPoses.h"

namespace nq::engine {

// Position and scale are six channels, in the order of ClipSample.
constexpr uint32_t kPoseChannels = 6;
constexpr uint32_t kScaleZChannel = 5;

// Half of a pose's channels: x, y, z and scale x, or scale y, z and two unused lanes. Sums of
// weighted values. A NaN weight means that the channel is not animated; the first contribution sets
// it to 0 before it adds. The default is a pose of which nothing is animated.
struct PoseRow {
  __m128 value = _mm_setzero_ps();
  __m128 weight = _mm_set1_ps(std::numeric_limits<float>::quiet_NaN());
};

// Mask of the lanes that are not NaN.
inline __m128 IsNumber(__m128 lanes) {
  return _mm_cmpord_ps(lanes, lanes);
}

// Replaces NaN weights by 0.
inline __m128 Touched(__m128 weight) {
  return _mm_and_ps(weight, IsNumber(weight));
}

// The halves of a sample's channels.
inline __m128 FirstRow(const ClipSample& sample) {
  return _mm_load_ps(sample.channel);
}
inline __m128 SecondRow(const ClipSample& sample) {
  return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(sample.channel + 4));
}

// A sample's channels less those of the reference, where neither is NaN.
inline __m128 WithoutReference(__m128 sample, __m128 reference) {
  return Select(_mm_cmpord_ps(sample, reference), _mm_sub_ps(sample, reference), sample);
}

// `sum` with a sample added to a state's pose, by the clip's weight `w`.
inline PoseRow AddSampleRow(__m128 sample, __m128 w, const PoseRow& sum) {
  const __m128 isNumber = IsNumber(sample);
  const __m128 value = _mm_add_ps(sum.value, _mm_mul_ps(sample, w));
  const __m128 weight = _mm_add_ps(Touched(sum.weight), w);
  return PoseRow{Select(isNumber, value, sum.value), Select(isNumber, weight, sum.weight)};
}

// `sum` with a state's pose added to its layer's, of which it has the share `s`.
inline PoseRow AddStateRow(const PoseRow& pose, __m128 s, const PoseRow& sum) {
  const __m128 counts =
      _mm_and_ps(IsNumber(pose.weight), _mm_cmpneq_ps(pose.weight, _mm_setzero_ps()));
  const __m128 value = _mm_add_ps(sum.value, _mm_mul_ps(pose.value, s));
  const __m128 weight = _mm_add_ps(Touched(sum.weight), _mm_mul_ps(pose.weight, s));
  return PoseRow{Select(counts, value, sum.value), Select(counts, weight, sum.weight)};
}

// True if one of the six weights is a number below 1.
inline bool IsPartial(__m128 firstWeights, __m128 secondWeights) {
  const __m128 one = _mm_set1_ps(1.0f);
  const int below =
      SignBits(_mm_cmplt_ps(firstWeights, one)) | (SignBits(_mm_cmplt_ps(secondWeights, one)) & 3);
  return below != 0;
}

// A channel of a rest pose, whose vectors are in reverse order.
inline float RestChannel(const TransformValue& rest, uint32_t channel) {
  return channel < kScaleChannel ? rest.position[2 - channel]
                                 : rest.scale[kScaleZChannel - channel];
}

// x, y, z, w of a rest pose's rotation.
inline __m128 RestRotation(TransformValue* rest) {
  const __m128 wzyx = _mm_loadu_ps(rest->Quaternion());
  return _mm_shuffle_ps(wzyx, wzyx, _MM_SHUFFLE(0, 1, 2, 3));
}

// Completes the channels that an override layer animates only partly. The rest pose that fills up
// is looked up under the blended number itself, not under the entity: `find` returns that of a
// number, or null to give up. False if it did.
template <typename Find>
bool CompleteChannels(float* value, const float* weight, Find find) {
  for (uint32_t channel = 0; channel < kPoseChannels; ++channel) {
    if (1.0f > weight[channel]) {
      const TransformValue* rest = find(TruncateToU32(value[channel]));
      if (rest == nullptr) {
        return false;
      }
      value[channel] += (1.0f - weight[channel]) * RestChannel(*rest, channel);
    }
  }
  return true;
}

// a * b. If both are NaN, the result has the payload of `a`; that of _mm_mul_ps is whichever
// operand the compiler puts first.
inline __m128 ProductByFirst(__m128 a, __m128 b) {
  return Select(IsNumber(a), _mm_mul_ps(a, b), _mm_add_ps(a, a));
}

// How a layer's pose is merged into the final one.
enum class Merge {
  kOverridePart,   // override, weight below 1: blended with the rest pose
  kOverrideWhole,  // override, any other weight, including NaN
  kAdditiveFirst,  // additive, layer 0: added to the rest pose
  kAdditiveLater,  // additive, any other layer: added to the pose so far
};

// The merge of layer `index`, which is additive or not, with weight `share`.
inline Merge MergeOf(uint32_t index, bool additive, float share) {
  if (additive) {
    return index == 0 ? Merge::kAdditiveFirst : Merge::kAdditiveLater;
  }
  return 1.0f > share ? Merge::kOverridePart : Merge::kOverrideWhole;
}

// Both halves of a rest pose's channels.
struct RestRows {
  __m128 first;
  __m128 second;

  explicit RestRows(const TransformValue& rest)
      : first(_mm_setr_ps(rest.position[2], rest.position[1], rest.position[0], rest.scale[2])),
        second(_mm_setr_ps(rest.scale[1], rest.scale[0], 0.0f, 0.0f)) {}
};

// `sum` with a layer's pose merged: value * share plus the term of the kind of merge. `isScale`
// marks lanes of scale.
inline PoseRow MergeRow(Merge merge, const PoseRow& pose, float share, __m128 rest, __m128 isScale,
                        const PoseRow& sum) {
  const __m128 own = ProductByFirst(_mm_set1_ps(share), pose.value);
  __m128 merged = own;
  switch (merge) {
    case Merge::kOverridePart:
      merged = _mm_add_ps(own, _mm_mul_ps(rest, _mm_set1_ps(1.0f - share)));
      break;
    case Merge::kOverrideWhole:
      break;
    case Merge::kAdditiveFirst:
      merged = _mm_add_ps(own, Select(isScale, _mm_mul_ps(rest, _mm_set1_ps(1.0f - share)), rest));
      break;
    case Merge::kAdditiveLater:
      merged = _mm_add_ps(sum.value, own);
      break;
  }
  const __m128 counts = IsNumber(pose.weight);
  return PoseRow{Select(counts, merged, sum.value),
                 Select(counts, Touched(sum.weight), sum.weight)};
}

// Merges both halves of a pose.
inline void MergeRows(Merge merge, const PoseRow* pose, float share, const TransformValue& rest,
                      PoseRow* sum) {
  const __m128 scaleX = _mm_castsi128_ps(_mm_setr_epi32(0, 0, 0, -1));
  const __m128 scaleYZ = _mm_castsi128_ps(_mm_set1_epi32(-1));
  const RestRows rows(rest);
  sum[0] = MergeRow(merge, pose[0], share, rows.first, scaleX, sum[0]);
  sum[1] = MergeRow(merge, pose[1], share, rows.second, scaleYZ, sum[1]);
}

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_POSEROWS_H_
