// The destruction order of a runtime's parts.
#include "Common/Def/EngineRuntimeState.h"

namespace nq::engine {

EngineRuntimeState::EngineRuntimeState(HandlerOwner* owner, MemoryAllocator* allocator)
    : allocator(allocator), handlers(owner) {}

EngineRuntimeState::~EngineRuntimeState() {
  allocator.reset();
  for (std::unique_ptr<WorkerPool>& pool : pools) {
    pool.reset();
  }
  handlers.ReleaseAll();
}

}  // namespace nq::engine
