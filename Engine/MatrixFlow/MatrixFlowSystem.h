// The system of MatrixFlow command buffers.
#ifndef NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_
#define NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_

#include <cstdint>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Engine/MatrixFlow/MatrixFlowCommandBuffer.h"

namespace nq::engine {

class EngineCore;

// Owns the command buffers of one engine. Script thread only.
class MatrixFlowSystem {
 public:
  explicit MatrixFlowSystem(EngineCore* core);
  virtual ~MatrixFlowSystem() = default;
  MatrixFlowSystem(const MatrixFlowSystem&) = delete;
  MatrixFlowSystem& operator=(const MatrixFlowSystem&) = delete;

  // An empty buffer; all zero for a size of 0 or if no handle is left.
  NativeValueInfo CreateCommandBuffer(int32_t size);

  // See MatrixFlowCommandBuffer::Resize. All zero for an unknown handle.
  NativeValueInfo ResizeCommandBuffer(uint32_t handle, uint32_t size);
  void ReleaseCommandBuffer(uint32_t handle) { commandBuffers.Release(handle); }

  // Runs a buffer's commands and returns a MatrixFlowResult. The first command that fails ends the
  // run; earlier results remain and its own target is untouched. Prints "[NQ_WARN][MatrixFlow]: "
  // and "Command buffer invalid, handler: %d\n", "Command buffer overflow\n" or "Memory Error (id,
  // offset, len) not match" (without a line feed), or "[NQ_FATAL][MatrixFlow]: " and "Command type
  // invalid, type: %d\n". A division by too small a number prints nothing.
  //
  // A buffer may write to any block, including its own: later commands are read as written. Buffers
  // that call each other recursively without end overflow the stack.
  int32_t ExecuteCommandBuffer(uint32_t handle);

  EngineCore* const core;  // not reference-counted

 private:
  HandlerAllocator<MatrixFlowCommandBuffer> commandBuffers;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_MATRIXFLOW_MATRIXFLOWSYSTEM_H_
