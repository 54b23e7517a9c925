// The evaluation of one state of a layer.
#ifndef NQ_ENGINE_ANIMATION_STATEEVALUATION_H_
#define NQ_ENGINE_ANIMATION_STATEEVALUATION_H_

#include <cstdint>
#include <vector>

#include "Engine/Animation/ClipSampling.h"
#include "Engine/Animation/SampleMap.h"
#include "Engine/Animation/TargetPose.h"
#include "Engine/Animation/TransformValue.h"

namespace nq::engine {

class AnimatorControllerModel;
class ControllerMask;
struct AnimatorControllerStateModel;

// Working memory of EvaluateState, kept from one call to the next.
struct StateScratch {
  SampleMap samples;
  SampleMap references;
  std::vector<const ClipSample*> referenceBySlot;  // null for none
};

// Evaluates all clips of a state into `result`, over the slots of the binding's rest poses; without
// a binding `result` is empty. `additive` subtracts a reference pose from each clip's: position and
// scale by subtraction, rotation by q conj(r). Targets without a rest pose are not animated. `mask`
// is null for a layer that is not masked.
void EvaluateState(const AnimatorControllerModel& controller,
                   const AnimatorControllerStateModel& state, bool additive, ControllerMask* mask,
                   StateScratch* scratch, PoseSet* result);

// The rotation of a sample as a quaternion, x, y, z, w. Euler angles are converted. False if the
// sample has no rotation, or only a part of one and `fill` does not allow completing it from the
// rest pose.
bool RotationOf(const ClipSample& sample, bool fill, TransformValue* rest, float* out);

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_STATEEVALUATION_H_
