// The evaluation of a controller: what its layers give the entities of its binding.
#ifndef NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_
#define NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_

#include <cstdint>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/StateEvaluation.h"
#include "Engine/Animation/TargetPose.h"

namespace nq::engine {

class TransformTree;

// Holds the working memory of a thread's evaluations, which is kept from one to the next. In the
// order of the work:
//
//   each state -> statePose -> layerPose, for each layer -> finalPose -> records of entities
//
// Thread safety: one evaluation a thread. Evaluations of controllers with different bindings and
// entities may run at once.
class ControllerEvaluation {
 public:
  // The calling thread's.
  static ControllerEvaluation* OfThread();

  // Poses the entities of the controller's binding; nothing without a binding. Each entity that is
  // posed gets its local matrix built and is marked, even if nothing was stored.
  void Run(AnimatorControllerModel* controller);

 private:
  // Evaluates the states of a layer into `layerPose`; empty for a layer that is off.
  void EvaluateLayer(AnimatorControllerModel* controller, uint32_t index, RestPoses* restPoses);

  // Merges `layerPose` into `finalPose`.
  void MergeLayer(uint32_t index, const ControllerLayerRecord& record, RestPoses* restPoses);

  // Stores `finalPose` into the entities.
  void WritePoses(TransformTree* tree, const RestPoses& restPoses);

  StateScratch stateScratch;
  PoseSet statePose;
  PoseSet layerPose;
  PoseSet finalPose;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_
