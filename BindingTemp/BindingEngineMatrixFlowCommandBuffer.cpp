// Creation, execution and release of command buffers by JavaScript.
#include "BindingTemp/BindingEngineMatrixFlowCommandBuffer.h"

namespace nq::engine {

BindingEngineMatrixFlowCommandBuffer::BindingEngineMatrixFlowCommandBuffer(EngineCore* core,
                                                                           uint32_t size)
    : BindingEngineBase(core) {
  info = core->CreateCommandBuffer(static_cast<int32_t>(size));
}

BindingEngineMatrixFlowCommandBuffer::~BindingEngineMatrixFlowCommandBuffer() {
  core->ReleaseCommandBuffer(info.handle);
}

void BindingEngineMatrixFlowCommandBuffer::Register() {
  using Self = BindingEngineMatrixFlowCommandBuffer;
  vx::ClassTemplateBuilder<Self> builder;
  builder.Inherit<BindingEngineBase>();
  builder.AddMethod("execute", vx::UncheckedCallback<Self, executeFunc>);
  builder.Install("EngineMatrixFlowCommandBuffer");
}

void BindingEngineMatrixFlowCommandBuffer::executeFunc(BindingEngineMatrixFlowCommandBuffer* self,
                                                       v8::Isolate* /*isolate*/,
                                                       const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(self->core->ExecuteCommandBuffer(self->info.handle));
}

}  // namespace nq::engine
