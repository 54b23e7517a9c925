// JavaScript class "EngineMatrixFlowCommandBuffer": arithmetic over shared memory in one call.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEMATRIXFLOWCOMMANDBUFFER_H_
#define NQ_BINDINGTEMP_BINDINGENGINEMATRIXFLOWCOMMANDBUFFER_H_

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Owns a command buffer: releases it when the JavaScript object has been collected. The module as
// shipped does not install the class, so JavaScript can't reach it. Script thread only.
class BindingEngineMatrixFlowCommandBuffer final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = false;

  // Creates a buffer of `size` bytes; none for 0.
  BindingEngineMatrixFlowCommandBuffer(EngineCore* core, uint32_t size);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineMatrixFlowCommandBuffer(const vx::CallbackInfo& info);
  ~BindingEngineMatrixFlowCommandBuffer() override;

  // Installs the class in the calling thread.
  static void Register();

  // execute(): the result code of a run, 0 to 5.
  static void executeFunc(BindingEngineMatrixFlowCommandBuffer* self, v8::Isolate* isolate,
                          const vx::CallbackInfo& info);
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEMATRIXFLOWCOMMANDBUFFER_H_
