// Creation, resizing and release of command buffers.
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

#include "Engine/Entity/EngineCore.h"

namespace nq::engine {

MatrixFlowSystem::MatrixFlowSystem(EngineCore* core) : core(core), commandBuffers(core) {}

NativeValueInfo MatrixFlowSystem::CreateCommandBuffer(int32_t size) {
  MatrixFlowCommandBuffer* buffer = size == 0 ? nullptr : commandBuffers.Allocate();
  if (buffer == nullptr) {
    return NativeValueInfo();
  }
  buffer->Allocate(static_cast<uint32_t>(size));
  return buffer->Info();
}

NativeValueInfo MatrixFlowSystem::ResizeCommandBuffer(uint32_t handle, uint32_t size) {
  MatrixFlowCommandBuffer* buffer = commandBuffers.Find(handle);
  if (buffer == nullptr) {
    return NativeValueInfo();
  }
  buffer->Resize(size);
  return buffer->Info();
}

}  // namespace nq::engine
