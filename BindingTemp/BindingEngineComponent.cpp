// The kinds of components, and their release by JavaScript.
#include "BindingTemp/BindingEngineComponent.h"

#include "BindingTemp/BindingEngine.h"
#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

namespace {

NativeValueInfo CreateCulling(BindingEngine* self, v8::Isolate* isolate,
                              const vx::CallbackInfo& info) {
  const uint32_t count = vx::ReadUint32(isolate, vx::Arg(info, 1));
  return self->Core()->CreateCullingComponent(count == 0 ? 1 : static_cast<int32_t>(count));
}

NativeValueInfo CreateAnimator(BindingEngine* self, v8::Isolate* isolate,
                               const vx::CallbackInfo& info) {
  const uint32_t clipCount = vx::ReadUint32(isolate, vx::Arg(info, 1));
  const uint32_t entityCount = vx::ReadUint32(isolate, vx::Arg(info, 2));
  return self->Core()->CreateAnimatorComponent(clipCount, entityCount);
}

NativeValueInfo CreateSkinning(BindingEngine* self, v8::Isolate* isolate,
                               const vx::CallbackInfo& info) {
  const uint32_t count = vx::ReadUint32(isolate, vx::Arg(info, 1));
  return self->Core()->CreateSkinningMatrixComponent(count);
}

constexpr ComponentKind kComponentKinds[] = {
    {kCullingComponentKind, 1, CreateCulling, &EngineCore::ReleaseCullingComponent},
    {kAnimatorComponentKind, 3, CreateAnimator, &EngineCore::ReleaseAnimatorComponent},
    {kSkinningComponentKind, 2, CreateSkinning, &EngineCore::ReleaseSkinningMatrixComponent},
};

}  // namespace

const ComponentKind* FindComponentKind(uint32_t kind) {
  for (const ComponentKind& entry : kComponentKinds) {
    if (entry.kind == kind) {
      return &entry;
    }
  }
  return nullptr;
}

BindingEngineComponent::BindingEngineComponent(EngineCore* core, uint32_t kind)
    : BindingEngineBase(core), kind(kind) {}

BindingEngineComponent::~BindingEngineComponent() {
  const ComponentKind* entry = FindComponentKind(kind);
  if (entry != nullptr) {
    (core->*entry->release)(info.handle);
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
