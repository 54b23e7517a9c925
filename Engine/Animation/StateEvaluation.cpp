// Evaluation of one state.
#include "Engine/Animation/StateEvaluation.h"

#include <cmath>
#include <cstring>

#include "Common/Def/MathKernels.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/QuaternionMath.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

using TargetList = std::vector<AnimationClipBinding::Target>;

// Where entities of a binding are found.
bool IsAlive3D(const TransformTree& tree, uint32_t handle) {
  return tree.Contains(handle) && tree.Batch(handle).isThreeD;
}

// From w, z, y, x.
void ReverseQuaternion(const float* wzyx, float* out) {
  for (int i = 0; i < 4; ++i) {
    out[i] = wzyx[3 - i];
  }
}

// Finds the pose that is taken away from a clip's, by slot: that of the reference clip or, where
// the binding has no list for it, of the clip itself at its start.
void FindReferences(const ControllerClipRecord& entry, AnimationClipBinding* binding,
                    const TransformTree& tree, StateScratch* scratch) {
  scratch->referenceBySlot.assign(binding->defaults.SlotCount(), nullptr);
  const TargetList* list = binding->SlotsOf(entry.referenceClip);
  const bool isOwn = list == nullptr;
  const uint32_t clipHandle = isOwn ? entry.clipHandle : entry.referenceClip;
  if (isOwn) {
    list = binding->SlotsOf(clipHandle);
  }
  AnimationClipModel* clip = binding->core->Animation()->FindAnimationClipModel(clipHandle);
  if (clip == nullptr) {
    return;
  }
  clip->SampleAtTime(isOwn ? 0.0f : entry.referenceTime, &scratch->references);
  for (uint32_t i = 0; i < scratch->references.Size(); ++i) {
    const uint32_t index = scratch->references.Target(i);
    if (index >= list->size()) {
      continue;
    }
    const AnimationClipBinding::Target& target = (*list)[index];
    if (target.slot != RestPoses::kNoSlot && IsAlive3D(tree, target.handle) &&
        scratch->referenceBySlot[target.slot] == nullptr) {
      scratch->referenceBySlot[target.slot] = &scratch->references.Sample(i);
    }
  }
}

// Adds the first four, or the last two, channels of a sample to a sum.
inline void AddFour(__m128 value, __m128 w, bool isFresh, float* sumValue, float* sumWeight) {
  const __m128 isNumber = _mm_cmpord_ps(value, value);
  const __m128 oldWeight = PoseWeights(sumWeight, isFresh);
  const __m128 touched = _mm_and_ps(oldWeight, _mm_cmpord_ps(oldWeight, oldWeight));
  const __m128 oldValue = PoseValues(sumValue, isFresh);
  const __m128 newValue = _mm_add_ps(oldValue, _mm_mul_ps(value, w));
  const __m128 newWeight = _mm_add_ps(touched, w);
  _mm_store_ps(sumValue,
               _mm_or_ps(_mm_and_ps(isNumber, newValue), _mm_andnot_ps(isNumber, oldValue)));
  _mm_store_ps(sumWeight,
               _mm_or_ps(_mm_and_ps(isNumber, newWeight), _mm_andnot_ps(isNumber, oldWeight)));
}

// Takes the reference away where both sides are numbers.
void SubtractReference(const ClipSample& reference, ClipSample* sample) {
  for (uint32_t channel = 0; channel < kPoseChannels; ++channel) {
    if (!std::isnan(sample->channel[channel]) && !std::isnan(reference.channel[channel])) {
      sample->channel[channel] -= reference.channel[channel];
    }
  }
}

// `isFresh`: `sum` has not been set to anything yet.
void AddSample(const ClipSample& sample, const float* rotation, float w, bool isFresh,
               TargetPose* sum) {
  const __m128 weight = _mm_set1_ps(w);
  AddFour(_mm_load_ps(sample.channel), weight, isFresh, sum->value, sum->weight);
  // The upper two lanes are spare.
  const __m128 lastTwo =
      _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(sample.channel + 4));
  AddFour(lastTwo, weight, isFresh, sum->value + 4, sum->weight + 4);
  AddRotation(rotation, w, isFresh, sum);
}

}  // namespace

bool RotationOf(const ClipSample& sample, bool fill, TransformValue* rest, float* out) {
  const float* rotation = sample.channel + kRotationChannel;
  if (sample.isQuaternion) {
    const __m128 q = _mm_loadu_ps(rotation);
    if (_mm_movemask_ps(_mm_cmpunord_ps(q, q)) != 0) {
      return false;
    }
    _mm_storeu_ps(out, q);
    return true;
  }
  const int present = (std::isnan(rotation[0]) ? 0 : 1) + (std::isnan(rotation[1]) ? 0 : 1) +
                      (std::isnan(rotation[2]) ? 0 : 1);
  if (present < 3 && !fill) {
    return false;
  }
  if (present == 0) {
    ReverseQuaternion(rest->Quaternion(), out);
    return true;
  }
  float angles[3] = {rotation[0], rotation[1], rotation[2]};
  if (present < 3) {
    const float* resting = rest->EulerAngles();  // z, y, x
    for (int i = 0; i < 3; ++i) {
      angles[i] = std::isnan(angles[i]) ? resting[2 - i] : angles[i];
    }
  }
  float wzyx[4];
  ReverseQuaternion(eulerToQuaternion(angles[0], angles[1], angles[2], wzyx), out);
  return true;
}

void EvaluateState(const AnimatorControllerModel& controller,
                   const AnimatorControllerStateModel& state, bool additive, ControllerMask* mask,
                   StateScratch* scratch, PoseSet* result) {
  AnimationClipBinding* binding = controller.Binding();
  result->Begin(binding == nullptr ? 0 : binding->defaults.SlotCount());
  if (binding == nullptr) {
    return;
  }
  RestPoses& restPoses = binding->defaults;
  const float* maskWeights = mask == nullptr ? nullptr : mask->WeightsBySlot(restPoses);
  const TransformTree& tree = controller.core->Entities()->Tree();
  // Not a number turns it on.
  const bool fill = state.Record().fillDefaults != 0.0f;
  for (uint32_t k = 0; k < state.clipCount; ++k) {
    const ControllerClipRecord& entry = state.Clip(k);
    if (entry.weight == 0.0f) {
      continue;
    }
    const TargetList* list = binding->SlotsOf(entry.clipHandle);
    if (list == nullptr) {
      continue;
    }
    AnimationClipModel* clip =
        controller.core->Animation()->FindAnimationClipModel(entry.clipHandle);
    if (clip == nullptr) {
      continue;
    }
    clip->SampleAtTime(entry.time, &scratch->samples);
    if (additive) {
      FindReferences(entry, binding, tree, scratch);
    }
    for (uint32_t i = 0; i < scratch->samples.Size(); ++i) {
      const uint32_t index = scratch->samples.Target(i);
      if (index >= list->size()) {
        continue;
      }
      const AnimationClipBinding::Target target = (*list)[index];
      if (target.slot == RestPoses::kNoSlot || !IsAlive3D(tree, target.handle)) {
        continue;
      }
      const float m = maskWeights == nullptr ? 1.0f : maskWeights[target.slot];
      if (m == 0.0f) {
        continue;
      }
      TransformValue* rest = &restPoses.Value(target.slot);
      const ClipSample* sample = &scratch->samples.Sample(i);
      float q[4];
      const bool hasRotation = RotationOf(*sample, fill, rest, q);
      ClipSample difference;
      if (additive) {
        const ClipSample* reference = scratch->referenceBySlot[target.slot];
        if (reference == nullptr) {
          continue;
        }
        float r[4];
        const bool hasReference = RotationOf(*reference, fill, rest, r);
        difference = *sample;
        SubtractReference(*reference, &difference);
        sample = &difference;
        if (hasRotation && hasReference) {
          const float conjugate[4] = {-r[0], -r[1], -r[2], r[3]};
          MultiplyQuaternion(q, conjugate, q);
        }
      }
      TargetPose* sum;
      const bool isFresh = result->EnterUnset(target.slot, &sum);
      AddSample(*sample, hasRotation ? q : nullptr, m * entry.weight, isFresh, sum);
    }
  }
  if (fill && !additive) {
    for (uint32_t slot = 0; slot < restPoses.SlotCount(); ++slot) {
      if (!result->Has(slot) && (maskWeights == nullptr || maskWeights[slot] != 0.0f)) {
        *result->Enter(slot) = TargetPose{};
      }
    }
  }
}

}  // namespace nq::engine
