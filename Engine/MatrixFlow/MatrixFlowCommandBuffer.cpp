// Allocation and resizing of command buffers.
#include "Engine/MatrixFlow/MatrixFlowCommandBuffer.h"

#include <cstring>

#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

void* MatrixFlowCommandBuffer::Allocate(uint32_t size) {
  void* memory = BlockValue::Allocate(size);
  reader = std::make_unique<StreamReader>(memory, size);
  return memory;
}

void MatrixFlowCommandBuffer::Resize(uint32_t size) {
  if (block.size >= size) {
    return;
  }
  const MemoryBlock old = block;
  Allocate(size);
  std::memcpy(block.pointer, old.pointer, old.size);
  owner->Runtime()->Release(old);
}

}  // namespace nq::engine
