// Blends states into a pose per layer and layers into one final pose, and writes that to the
// entities' records.
//
// Some formulas differ between position, scale and rotation, and between the first layer and later
// ones. All of that is kept on purpose: scenes rely on the results.
#include "Engine/Animation/ControllerEvaluation.h"

#include <cmath>
#include <cstddef>

#include "Common/Def/Platform.h"
#include "Common/Def/Truncate.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/EntityPoseWriter.h"
#include "Engine/Animation/QuaternionMath.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

constexpr uint32_t kScaleZ = 5;  // index among the channels of a pose

// A channel of a rest pose, whose vectors are in reverse order.
float RestChannel(const TransformValue& rest, uint32_t channel) {
  return channel < kScaleChannel ? rest.position[2 - channel] : rest.scale[kScaleZ - channel];
}

// All six channels, in order; two lanes are unused.
struct RestChannels {
  __m128 positionScaleX;
  __m128 scaleYZ;

  explicit RestChannels(const TransformValue& rest)
      : positionScaleX(
            _mm_setr_ps(rest.position[2], rest.position[1], rest.position[0], rest.scale[2])),
        scaleYZ(_mm_setr_ps(rest.scale[1], rest.scale[0], 0.0f, 0.0f)) {}
};

// x, y, z, w of a rest pose's rotation.
inline __m128 RestRotation(TransformValue* rest) {
  const __m128 wzyx = _mm_loadu_ps(rest->Quaternion());
  return _mm_shuffle_ps(wzyx, wzyx, _MM_SHUFFLE(0, 1, 2, 3));
}

// Mask of the lanes in which a weight is not NaN.
inline __m128 IsNumber(__m128 weight) {
  return _mm_cmpord_ps(weight, weight);
}

// Replaces NaN weights by 0.
inline __m128 Touched(__m128 weight) {
  return _mm_and_ps(weight, IsNumber(weight));
}

// Adds four channels of a state's pose, which has the share `s` of its layer.
void AddFourToLayer(const float* value, const float* weight, __m128 s, bool isFresh,
                    float* sumValue, float* sumWeight) {
  const __m128 w = _mm_load_ps(weight);
  const __m128 counts = _mm_and_ps(IsNumber(w), _mm_cmpneq_ps(w, _mm_setzero_ps()));
  const __m128 oldValue = PoseValues(sumValue, isFresh);
  const __m128 oldWeight = PoseWeights(sumWeight, isFresh);
  const __m128 newValue = _mm_add_ps(oldValue, _mm_mul_ps(_mm_load_ps(value), s));
  const __m128 newWeight = _mm_add_ps(Touched(oldWeight), _mm_mul_ps(w, s));
  _mm_store_ps(sumValue, Select(counts, newValue, oldValue));
  _mm_store_ps(sumWeight, Select(counts, newWeight, oldWeight));
}

// `isFresh`: `sum` is still uninitialised.
void AddToLayer(const TargetPose& pose, float s, bool isFresh, TargetPose* sum) {
  const __m128 share = _mm_set1_ps(s);
  AddFourToLayer(pose.value, pose.weight, share, isFresh, sum->value, sum->weight);
  AddFourToLayer(pose.value + 4, pose.weight + 4, share, isFresh, sum->value + 4, sum->weight + 4);
  // The rotation was already weighted when it was added to the state's pose, and is weighted again.
  const bool counts = !std::isnan(pose.rotationWeight) && pose.rotationWeight != 0.0f;
  AddRotation(counts ? pose.rotation : nullptr, pose.rotationWeight * s, isFresh, sum);
}

// True if one of the six weights is a number below 1.
bool IsPartial(const TargetPose& pose) {
  const __m128 one = _mm_set1_ps(1.0f);
  const int below = _mm_movemask_ps(_mm_cmplt_ps(_mm_load_ps(pose.weight), one)) |
                    (_mm_movemask_ps(_mm_cmplt_ps(_mm_load_ps(pose.weight + 4), one)) & 3);
  return below != 0;
}

// Completes what an override layer animates only partly. The rest pose for that is looked up by the
// blended value itself, not by the entity's handle, so it is mostly an identity that this look-up
// inserts.
void CompleteOverride(TargetPose* pose, RestPoses* restPoses) {
  if (IsPartial(*pose)) {
    for (uint32_t channel = 0; channel < kPoseChannels; ++channel) {
      const float weight = pose->weight[channel];
      if (1.0f > weight) {
        const uint32_t slot = restPoses->Ensure(TruncateToU32(pose->value[channel]));
        pose->value[channel] += (1.0f - weight) * RestChannel(restPoses->Value(slot), channel);
      }
    }
  }
  if (std::isnan(pose->rotationWeight)) {
    return;
  }
  if (1.0f > pose->rotationWeight) {
    const uint32_t slot = restPoses->Ensure(TruncateToU32(pose->value[kScaleZ]));
    float resting[4];
    _mm_storeu_ps(resting, RestRotation(&restPoses->Value(slot)));
    AddQuaternion(pose->rotation, resting, 1.0f - pose->rotationWeight);
  }
  NormaliseQuaternion(pose->rotation);
}

// The rotation of a pose scaled towards identity: x, y, z by the share, w unchanged.
void ScaledRotation(const float* rotation, float share, float* out) {
  for (int i = 0; i < 3; ++i) {
    out[i] = rotation[i] * share;
  }
  out[3] = rotation[3];
  NormaliseQuaternion(out);
}

void CompleteAdditive(TargetPose* pose) {
  if (!std::isnan(pose->rotationWeight)) {
    ScaledRotation(pose->rotation, pose->rotationWeight, pose->rotation);
  }
}

// How a layer's pose is merged into the final one.
enum class Merge {
  kOverridePart,   // override, weight below 1: blended with the rest pose
  kOverrideWhole,  // override, any other weight, including NaN
  kAdditiveFirst,  // additive, layer 0: added to the rest pose
  kAdditiveLater,  // additive, any other layer: added to the pose so far
};

// value * W plus the term of the kind of merge, for four channels; `isScale` marks lanes of scale.
void MergeFour(Merge merge, const float* value, const float* weight, float share, __m128 rest,
               __m128 isScale, bool isFresh, float* sumValue, float* sumWeight) {
  const __m128 w = _mm_set1_ps(share);
  const __m128 counts = IsNumber(_mm_load_ps(weight));
  const __m128 old = PoseValues(sumValue, isFresh);
  const __m128 own = _mm_mul_ps(_mm_load_ps(value), w);
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
      merged = _mm_add_ps(old, own);
      break;
  }
  const __m128 oldWeight = PoseWeights(sumWeight, isFresh);
  _mm_store_ps(sumValue, Select(counts, merged, old));
  _mm_store_ps(sumWeight, Select(counts, Touched(oldWeight), oldWeight));
}

// `rest` is the rest pose of the entity itself.
void MergeRotation(Merge merge, const TargetPose& pose, float share, TransformValue* rest,
                   TargetPose* sum) {
  const bool hadRotation = !std::isnan(sum->rotationWeight);
  if (!hadRotation) {
    sum->rotationWeight = 0.0f;
  }
  if (merge == Merge::kOverridePart) {
    float resting[4];
    const __m128 restRotation = RestRotation(rest);
    _mm_storeu_ps(resting, restRotation);
    // NaN counts as the opposite hemisphere.
    const bool sameSide = DotQuaternion(pose.rotation, resting) >= 0.0f;
    const __m128 rotation = _mm_loadu_ps(pose.rotation);
    const __m128 near = sameSide ? rotation : _mm_xor_ps(rotation, _mm_set1_ps(-0.0f));
    const __m128 way = _mm_mul_ps(_mm_sub_ps(near, restRotation), _mm_set1_ps(share));
    _mm_storeu_ps(sum->rotation, _mm_add_ps(restRotation, way));
    NormaliseQuaternion(sum->rotation);
    return;
  }
  float delta[4];
  ScaledRotation(pose.rotation, share, delta);
  if (merge == Merge::kOverrideWhole) {
    _mm_storeu_ps(sum->rotation, _mm_loadu_ps(delta));
    return;
  }
  if (merge == Merge::kAdditiveFirst || !hadRotation) {
    _mm_storeu_ps(sum->rotation, RestRotation(rest));
  }
  MultiplyQuaternion(delta, sum->rotation, sum->rotation);
}

// Stores a pose in a 3D entity, builds its local matrix and marks it.
inline void WritePose(const TargetPose& pose, const EntityPoseWriter& writer) {
  const PositionScale values =
      writer.Replace(_mm_load_ps(pose.value), IsNumber(_mm_load_ps(pose.weight)),
                     _mm_load_ps(pose.value + 4), IsNumber(_mm_load_ps(pose.weight + 4)));
  if (!std::isnan(pose.rotationWeight)) {
    writer.WriteQuaternion(_mm_load_ps(pose.rotation), values);
  } else {
    Entity3D::BuildOwnLocalMatrix(writer.Record(), writer.LocalMatrix());
  }
  writer.Mark();
}

}  // namespace

// Called once per update, and not inlined: each access to a thread-local variable is a function
// call.
NQ_NO_INLINE ControllerEvaluation* ControllerEvaluation::OfThread() {
  thread_local ControllerEvaluation evaluation;
  return &evaluation;
}

void ControllerEvaluation::Run(AnimatorControllerModel* controller) {
  AnimationClipBinding* binding = controller->Binding();
  if (binding == nullptr) {
    return;
  }
  RestPoses& restPoses = binding->defaults;
  finalPose.Begin(restPoses.SlotCount());
  for (uint32_t index = 0; index < controller->layerCount; ++index) {
    EvaluateLayer(controller, index, &restPoses);
    MergeLayer(index, controller->Layer(index), &restPoses);
  }
  WritePoses(&controller->core->Entities()->Tree(), restPoses);
}

void ControllerEvaluation::EvaluateLayer(AnimatorControllerModel* controller, uint32_t index,
                                         RestPoses* restPoses) {
  layerPose.Begin(restPoses->SlotCount());
  const ControllerLayerRecord& record = controller->Layer(index);
  if (record.blendMode > kAdditiveLayer || record.firstState == kNoHandle) {
    return;
  }
  const bool additive = record.blendMode == kAdditiveLayer;
  ControllerMask* mask = controller->masks.Find(index);
  const AnimationSystem* system = controller->core->Animation();
  const AnimatorControllerStateModel* state =
      system->FindAnimatorControllerStateModel(record.firstState);
  while (state != nullptr) {
    const float s = state->Record().weight;
    if (s != 0.0f) {
      EvaluateState(*controller, *state, additive, mask, &stateScratch, &statePose);
      for (const uint32_t slot : statePose.Slots()) {
        TargetPose* sum;
        const bool isFresh = layerPose.EnterUnset(slot, &sum);
        AddToLayer(statePose.At(slot), s, isFresh, sum);
      }
    }
    state = system->FindAnimatorControllerStateModel(state->Record().nextState);
  }
  for (const uint32_t slot : layerPose.Slots()) {
    if (additive) {
      CompleteAdditive(&layerPose.At(slot));
    } else {
      CompleteOverride(&layerPose.At(slot), restPoses);
    }
  }
}

void ControllerEvaluation::MergeLayer(uint32_t index, const ControllerLayerRecord& record,
                                      RestPoses* restPoses) {
  const float share = record.weight;
  Merge merge = index == 0 ? Merge::kAdditiveFirst : Merge::kAdditiveLater;
  if (record.blendMode != kAdditiveLayer) {
    merge = 1.0f > share ? Merge::kOverridePart : Merge::kOverrideWhole;
  }
  const __m128 scaleX = _mm_castsi128_ps(_mm_setr_epi32(0, 0, 0, -1));
  const __m128 scaleYZ = _mm_castsi128_ps(_mm_set1_epi32(-1));
  finalPose.Grow(restPoses->SlotCount());
  for (const uint32_t slot : layerPose.Slots()) {
    const TargetPose& pose = layerPose.At(slot);
    TargetPose* sum;
    const bool isFresh = finalPose.EnterUnset(slot, &sum);
    TransformValue* rest = &restPoses->Value(slot);
    const RestChannels channels(*rest);
    MergeFour(merge, pose.value, pose.weight, share, channels.positionScaleX, scaleX, isFresh,
              sum->value, sum->weight);
    MergeFour(merge, pose.value + 4, pose.weight + 4, share, channels.scaleYZ, scaleYZ, isFresh,
              sum->value + 4, sum->weight + 4);
    if (isFresh) {
      AddRotation(nullptr, 0.0f, true, sum);
    }
    if (!std::isnan(pose.rotationWeight)) {
      MergeRotation(merge, pose, share, rest, sum);
    }
  }
}

void ControllerEvaluation::WritePoses(TransformTree* tree, const RestPoses& restPoses) {
  // Some keys may be numbers that are not entity handles.
  EntityPoseWriter writer(tree);
  for (const uint32_t slot : finalPose.Slots()) {
    if (writer.Seek(restPoses.Number(slot)) && writer.isThreeD()) {
      WritePose(finalPose.At(slot), writer);
    }
  }
}

}  // namespace nq::engine
