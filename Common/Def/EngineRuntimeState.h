// What an EngineRuntime owns: the allocator, its own table of native values, the worker pools.
#ifndef NQ_COMMON_DEF_ENGINERUNTIMESTATE_H_
#define NQ_COMMON_DEF_ENGINERUNTIMESTATE_H_

#include <cstdint>
#include <memory>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryAllocator.h"
#include "Common/Def/WorkerPool.h"

namespace nq::engine {

constexpr uint32_t kPoolSlotCount = 3;

// Owned by its EngineRuntime, not reference-counted. Script thread only, except as the allocator
// allows.
struct EngineRuntimeState {
  // Takes ownership of `allocator`. Values in `handlers` hold references on `owner`.
  EngineRuntimeState(HandlerOwner* owner, MemoryAllocator* allocator);

  // Destroys the allocator first, then the pools (each stopped and joined), then the remaining
  // values, and last the table.
  ~EngineRuntimeState();

  std::unique_ptr<MemoryAllocator> allocator;
  HandlerAllocator<NativeValue> handlers;
  std::unique_ptr<WorkerPool> pools[kPoolSlotCount];  // null until first used
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_ENGINERUNTIMESTATE_H_
