// Evaluation of one state.
#include "Engine/Animation/StateEvaluation.h"

#include <cmath>

#include "Common/Def/MathKernels.h"
#include "Common/Def/Platform.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/PoseRows.h"
#include "Engine/Animation/QuaternionMath.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

using TargetList = std::vector<AnimationClipBinding::Target>;

// True if the handle names a 3D entity.
bool IsAlive3D(const TransformTree& tree, uint32_t handle) {
  return tree.Contains(handle) && tree.Batch(handle).isThreeD;
}

// From the order w, z, y, x to x, y, z, w.
void ReverseQuaternion(const float* wzyx, float* out) {
  for (int i = 0; i < 4; ++i) {
    out[i] = wzyx[3 - i];
  }
}

// Finds the pose that is subtracted from a clip's, by slot: that of the reference clip or, if the
// binding has no list for it, of the clip itself at time 0.
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

// Subtracts the reference where neither side is NaN.
void SubtractReference(const ClipSample& reference, ClipSample* sample) {
  const __m128 second = WithoutReference(SecondRow(*sample), SecondRow(reference));
  _mm_store_ps(sample->channel, WithoutReference(FirstRow(*sample), FirstRow(reference)));
  _mm_storel_pi(reinterpret_cast<__m64*>(sample->channel + 4), second);
}

// `isFresh`: `sum` is still uninitialised.
void AddSample(const ClipSample& sample, const float* rotation, float w, bool isFresh,
               TargetPose* sum) {
  const __m128 weight = _mm_set1_ps(w);
  sum->SetFirst(AddSampleRow(FirstRow(sample), weight, sum->FirstOrEmpty(isFresh)));
  sum->SetSecond(AddSampleRow(SecondRow(sample), weight, sum->SecondOrEmpty(isFresh)));
  AddRotation(rotation, w, isFresh, sum);
}

// What the clips of a state have in common.
struct StateTerms {
  AnimationClipBinding* binding;
  const AnimationSystem* system;
  const TransformTree& tree;
  const float* maskWeights;  // by slot; null for a layer that is not masked
  bool fill;                 // rotations are completed from the rest pose
  bool additive;
  StateScratch* scratch;
  PoseSet* result;

  float MaskWeight(uint32_t slot) const {
    return maskWeights == nullptr ? 1.0f : maskWeights[slot];
  }
};

// Subtracts the reference from a sample, and from its rotation `q` unless that is null.
void TakeAway(const ClipSample& reference, bool fill, TransformValue* rest, float* q,
              ClipSample* sample) {
  float r[4];
  const bool hasReference = RotationOf(reference, fill, rest, r);
  SubtractReference(reference, sample);
  if (q != nullptr && hasReference) {
    const float conjugate[4] = {-r[0], -r[1], -r[2], r[3]};
    MultiplyQuaternion(q, conjugate, q);
  }
}

// Adds a sample, weighted by `w`, to the pose of a slot. For an additive layer subtracts its
// reference first, and adds nothing without a reference. Force-inlined: it is most of the loop over
// a clip's targets.
NQ_FORCE_INLINE void AddTarget(const StateTerms& terms, uint32_t slot, const ClipSample& sample,
                               float w) {
  TransformValue* rest = &terms.binding->defaults.Value(slot);
  const ClipSample* added = &sample;
  float q[4];
  const bool hasRotation = RotationOf(sample, terms.fill, rest, q);
  ClipSample difference;
  if (terms.additive) {
    const ClipSample* reference = terms.scratch->referenceBySlot[slot];
    if (reference == nullptr) {
      return;
    }
    difference = sample;
    TakeAway(*reference, terms.fill, rest, hasRotation ? q : nullptr, &difference);
    added = &difference;
  }
  TargetPose* sum;
  const bool isFresh = terms.result->EnterUnset(slot, &sum);
  AddSample(*added, hasRotation ? q : nullptr, w, isFresh, sum);
}

// Samples a clip and adds the samples of the targets that the binding lists for it.
void AddClip(const StateTerms& terms, const ControllerClipRecord& entry) {
  const TargetList* list = terms.binding->SlotsOf(entry.clipHandle);
  if (list == nullptr) {
    return;
  }
  AnimationClipModel* clip = terms.system->FindAnimationClipModel(entry.clipHandle);
  if (clip == nullptr) {
    return;
  }
  const SampleMap& samples = terms.scratch->samples;
  clip->SampleAtTime(entry.time, &terms.scratch->samples);
  if (terms.additive) {
    FindReferences(entry, terms.binding, terms.tree, terms.scratch);
  }
  for (uint32_t i = 0; i < samples.Size(); ++i) {
    const uint32_t index = samples.Target(i);
    if (index >= list->size()) {
      continue;
    }
    const AnimationClipBinding::Target target = (*list)[index];
    if (target.slot == RestPoses::kNoSlot || !IsAlive3D(terms.tree, target.handle)) {
      continue;
    }
    const float m = terms.MaskWeight(target.slot);
    if (m != 0.0f) {
      AddTarget(terms, target.slot, samples.Sample(i), m * entry.weight);
    }
  }
}

// Adds a pose of weight 0 for each slot that no clip has posed.
void FillRest(const StateTerms& terms) {
  const uint32_t slotCount = terms.binding->defaults.SlotCount();
  for (uint32_t slot = 0; slot < slotCount; ++slot) {
    if (!terms.result->Has(slot) && terms.MaskWeight(slot) != 0.0f) {
      *terms.result->Enter(slot) = TargetPose{};
    }
  }
}

}  // namespace

bool RotationOf(const ClipSample& sample, bool fill, TransformValue* rest, float* out) {
  const float* rotation = sample.channel + kRotationChannel;
  if (sample.isQuaternion) {
    const __m128 q = _mm_loadu_ps(rotation);
    if (SignBits(_mm_cmpunord_ps(q, q)) != 0) {
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
  // NaN turns it on.
  const bool fill = state.Record().fillDefaults != 0.0f;
  const StateTerms terms = {binding,
                            controller.core->Animation(),
                            controller.core->Entities()->Tree(),
                            mask == nullptr ? nullptr : mask->WeightsBySlot(binding->defaults),
                            fill,
                            additive,
                            scratch,
                            result};
  for (uint32_t k = 0; k < state.clipCount; ++k) {
    const ControllerClipRecord& entry = state.Clip(k);
    if (entry.weight != 0.0f) {
      AddClip(terms, entry);
    }
  }
  if (fill && !additive) {
    FillRest(terms);
  }
}

}  // namespace nq::engine
