// Blocks and views owned by values.
#include "Common/Def/HandlerValue.h"

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"

namespace nq::engine {

BlockValue::~BlockValue() {
  if (isView) {
    // The allocator knows a block by its start address only.
    block.pointer = viewBase;
  }
  owner->Runtime()->Release(block);
}

void BlockValue::SetView(void* base, uint32_t offset, uint32_t length) {
  block.pointer = static_cast<char*>(base) + offset;
  block.size = length;
  isView = true;
  viewBase = base;
}

void* BlockValue::Allocate(uint32_t size) {
  block = owner->Runtime()->Allocate(size);
  return block.pointer;
}

NativeValueInfo BlockValue::Info() const {
  NativeValueInfo info;
  info.handle = handle;
  info.size = block.size;
  info.memoryID = block.memoryID;
  info.pointer = block.pointer;
  return info;
}

NativeValue::~NativeValue() {
  NQ_LOG("[NQ_INFO][OPV]: ", "NativeValue %d dealloc\n", static_cast<int>(handle));
}

void NativeValue::SetView(void* base, uint32_t offset, uint32_t length) {
  BlockValue::SetView(base, offset, length);
  data = block.pointer;
}

void* NativeValue::Allocate(uint32_t size) {
  BlockValue::Allocate(size);
  data = block.pointer;
  return data;
}

}  // namespace nq::engine
