// The evaluation of a controller: computes the poses of its binding's entities.
#ifndef NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_
#define NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_

#include <cstdint>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/FusedEvaluation.h"
#include "Engine/Animation/StateEvaluation.h"
#include "Engine/Animation/TargetPose.h"

namespace nq::engine {

class TransformTree;

// Holds a thread's working memory, which is reused by its evaluations. In the order of the work:
//
//   each state -> statePose -> layerPose, for each layer -> finalPose -> records of entities
//
// That is the general way, bones state by state and layer by layer. FusedEvaluation is tried first.
//
// Thread safety: one evaluation per thread. Evaluations of controllers with different bindings and
// entities may run concurrently.
class ControllerEvaluation {
 public:
  // The calling thread's instance.
  static ControllerEvaluation* OfThread();

  // Poses the entities of the controller's binding; does nothing without a binding. Builds the
  // local matrix of each posed entity and marks it, even if nothing was stored.
  void Run(AnimatorControllerModel* controller);

  // The same without trying FusedEvaluation, for a controller with a binding.
  void RunInFull(AnimatorControllerModel* controller, AnimationClipBinding* binding);

 private:
  // Evaluates the states of a layer into `layerPose`; empty for a layer that is off.
  void EvaluateLayer(AnimatorControllerModel* controller, uint32_t index, RestPoses* restPoses);

  // Merges `layerPose` into `finalPose`.
  void MergeLayer(uint32_t index, const ControllerLayerRecord& record, RestPoses* restPoses);

  // Stores `finalPose` in the entities.
  void WritePoses(TransformTree* tree, const RestPoses& restPoses);

  FusedEvaluation fused;
  StateScratch stateScratch;
  PoseSet statePose;
  PoseSet layerPose;
  PoseSet finalPose;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_CONTROLLEREVALUATION_H_
