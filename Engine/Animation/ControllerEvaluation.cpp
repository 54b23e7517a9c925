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
#include "Engine/Animation/PoseRows.h"
#include "Engine/Animation/QuaternionMath.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

// `isFresh`: `sum` is still uninitialised.
void AddToLayer(const TargetPose& pose, float s, bool isFresh, TargetPose* sum) {
  const __m128 share = _mm_set1_ps(s);
  sum->SetFirst(AddStateRow(pose.First(), share, sum->FirstOrEmpty(isFresh)));
  sum->SetSecond(AddStateRow(pose.Second(), share, sum->SecondOrEmpty(isFresh)));
  // The rotation was already weighted when it was added to the state's pose, and is weighted again.
  const bool counts = !std::isnan(pose.rotationWeight) && pose.rotationWeight != 0.0f;
  AddRotation(counts ? pose.rotation : nullptr, pose.rotationWeight * s, isFresh, sum);
}

// Completes what an override layer animates only partly. The rest pose for that is looked up by the
// blended value itself, not by the entity's handle, so it is mostly an identity that this look-up
// inserts.
void CompleteOverride(TargetPose* pose, RestPoses* restPoses) {
  if (IsPartial(pose->First().weight, pose->Second().weight)) {
    CompleteChannels(pose->value, pose->weight, [restPoses](uint32_t number) {
      return &restPoses->Value(restPoses->Ensure(number));
    });
  }
  if (std::isnan(pose->rotationWeight)) {
    return;
  }
  if (1.0f > pose->rotationWeight) {
    const uint32_t slot = restPoses->Ensure(TruncateToU32(pose->value[kScaleZChannel]));
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
  if (binding != nullptr && !fused.Run(controller, binding)) {
    RunInFull(controller, binding);
  }
}

void ControllerEvaluation::RunInFull(AnimatorControllerModel* controller,
                                     AnimationClipBinding* binding) {
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
  const Merge merge = MergeOf(index, record.blendMode == kAdditiveLayer, share);
  finalPose.Grow(restPoses->SlotCount());
  for (const uint32_t slot : layerPose.Slots()) {
    const TargetPose& pose = layerPose.At(slot);
    TargetPose* sum;
    const bool isFresh = finalPose.EnterUnset(slot, &sum);
    TransformValue* rest = &restPoses->Value(slot);
    const PoseRow rows[2] = {pose.First(), pose.Second()};
    PoseRow merged[2] = {sum->FirstOrEmpty(isFresh), sum->SecondOrEmpty(isFresh)};
    MergeRows(merge, rows, share, *rest, merged);
    sum->SetFirst(merged[0]);
    sum->SetSecond(merged[1]);
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
