// The order in which classes are installed.
#include "BindingTemp/RegisterClasses.h"

#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/BindingEngineAnimationClipBinding.h"
#include "BindingTemp/BindingEngineAnimatorController.h"
#include "BindingTemp/BindingEngineComponent.h"
#include "BindingTemp/BindingEngineDataModel.h"
#include "BindingTemp/BindingEngineEntity.h"
#include "BindingTemp/BindingEngineMatrixFlowCommandBuffer.h"

namespace nq::engine {

void RegisterClasses() {
  BindingEngineEntity::Register();
  BindingEngineComponent::Register();
  BindingEngineDataModel::Register();
  BindingEngineAnimationClipBinding::Register();
  BindingEngineAnimatorControllerModel::Register();
  BindingEngineAnimatorControllerStateModel::Register();
#ifdef NQ_SCRIPT_MATRIXFLOW
  BindingEngineMatrixFlowCommandBuffer::Register();
#endif
  BindingEngine::Register();
}

}  // namespace nq::engine
