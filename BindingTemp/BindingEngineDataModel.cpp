// Creation and release of data models for script.
#include "BindingTemp/BindingEngineDataModel.h"

#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

BindingEngineDataModel::BindingEngineDataModel(EngineCore* core, uint32_t kind, const uint8_t* data,
                                               uint32_t size)
    : BindingEngineBase(core), kind(kind) {
  if (kind == kClipModelKind) {
    info.handle = core->CreateAnimationClipModel(data, size);
  } else if (kind == kBonesModelKind) {
    info.handle = core->CreateSkeletonBonesInverseModel(data, size);
  }
}

BindingEngineDataModel::~BindingEngineDataModel() {
  if (kind == kClipModelKind) {
    core->ReleaseAnimationClipModel(info.handle);
  } else if (kind == kBonesModelKind) {
    core->ReleaseSkeletonBonesInverseModel(info.handle);
  }
  if (core->Runtime()->TracksObjects()) {
    core->Runtime()->UncountObject(ClassLabel());
  }
}

void BindingEngineDataModel::Register() {
  vx::ClassTemplateBuilder<BindingEngineDataModel> builder;
  builder.Inherit<vx::BindingBase>();
  builder.Install("EngineDataModel");
}

}  // namespace nq::engine
