// Release of components for script.
#include "BindingTemp/BindingEngineComponent.h"

#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

BindingEngineComponent::BindingEngineComponent(EngineCore* core, uint32_t kind)
    : BindingEngineBase(core), kind(kind) {}

BindingEngineComponent::~BindingEngineComponent() {
  if (kind == kCullingComponentKind) {
    core->ReleaseCullingComponent(info.handle);
  } else if (kind == kAnimatorComponentKind) {
    core->ReleaseAnimatorComponent(info.handle);
  } else if (kind == kSkinningComponentKind) {
    core->ReleaseSkinningMatrixComponent(info.handle);
  }
  if (core->Runtime()->TracksObjects()) {
    core->Runtime()->UncountObject(ClassLabel());
  }
}

void BindingEngineComponent::Register() {
  vx::ClassTemplateBuilder<BindingEngineComponent> builder;
  builder.Inherit<vx::BindingBase>();
  builder.Install("EngineComponent");
}

}  // namespace nq::engine
