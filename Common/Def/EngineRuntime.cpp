// Forwarding of the runtime to its parts, object counts and shutdown.
#include "Common/Def/EngineRuntime.h"

#include <algorithm>

namespace nq::engine {

EngineRuntime::EngineRuntime(MemoryAllocator* allocator)
    : state(new EngineRuntimeState(this, allocator)) {}

EngineRuntime::~EngineRuntime() {
  // `state` must stay readable until its destructor ends: remaining values release their blocks
  // through this object.
  delete state;
}

MemoryBlock EngineRuntime::Allocate(uint32_t size) {
  return state->allocator->Allocate(size);
}

void EngineRuntime::Release(const MemoryBlock& block) {
  // A runtime destroys its allocator first; blocks released afterwards were freed with its chunks.
  if (state->allocator != nullptr) {
    state->allocator->Release(block);
  }
}

MemoryBlock EngineRuntime::FindBlock(uint32_t memoryID) const {
  return state->allocator->Find(memoryID);
}

NativeValueInfo EngineRuntime::CreateValue(uint32_t size) {
  if (size == 0) {
    return NativeValueInfo();
  }
  NativeValue* value = state->handlers.Allocate();
  if (value == nullptr) {
    return NativeValueInfo();
  }
  value->Allocate(size);
  return value->Info();
}

NativeValueInfo EngineRuntime::CreateView(void* pointer, uint32_t offset, uint32_t length) {
  if (!state->allocator->Retain(pointer)) {
    return NativeValueInfo();
  }
  NativeValue* value = state->handlers.Allocate();
  if (value == nullptr) {
    // Only drops a reference: the block's other owner still holds it.
    MemoryBlock retained;
    retained.pointer = pointer;
    state->allocator->Release(retained);
    return NativeValueInfo();
  }
  value->SetView(pointer, offset, length);
  return value->Info();
}

void EngineRuntime::ReleaseValue(uint32_t handle) {
  state->handlers.Release(handle);
}

NativeValue* EngineRuntime::FindValue(uint32_t handle) const {
  return state->handlers.Find(handle);
}

WorkerPool* EngineRuntime::Pool(uint32_t slot, uint32_t threadCount) {
  std::unique_ptr<WorkerPool>& pool = state->pools[slot];
  if (pool == nullptr) {
    pool = std::make_unique<WorkerPool>(threadCount);
  }
  return pool.get();
}

WorkerPool* EngineRuntime::FirstPool() {
  return Pool(0, kFirstPoolThreads);
}

WorkerPool* EngineRuntime::SecondPool() {
  return Pool(1, 1);
}

WorkerPool* EngineRuntime::ThirdPool() {
  return Pool(2, 1);
}

void EngineRuntime::StopPools() {
  for (std::unique_ptr<WorkerPool>& pool : state->pools) {
    if (pool != nullptr) {
      pool->Stop();
    }
  }
}

void EngineRuntime::Shutdown() {
  if (disposed) {
    return;
  }
  disposed = true;
  StopPools();
  // By index: a listener may add or remove listeners during the call.
  for (size_t i = 0; i < listeners.size(); ++i) {
    if (listeners[i] != nullptr) {
      listeners[i]->OnShutdown();
    }
  }
}

void EngineRuntime::AddListener(RuntimeListener* listener) {
  listeners.push_back(listener);
}

void EngineRuntime::RemoveListener(RuntimeListener* listener) {
  listeners.erase(std::remove(listeners.begin(), listeners.end(), listener), listeners.end());
}

void EngineRuntime::EnableObjectTracking() {
  objectCounts.clear();
  trackObjects = true;
}

void EngineRuntime::DisableObjectTracking() {
  trackObjects = false;
}

void EngineRuntime::CountObject(const char* className) {
  ++objectCounts[className];
}

void EngineRuntime::UncountObject(const char* className) {
  const auto found = objectCounts.find(className);
  if (found != objectCounts.end() && found->second >= 1) {
    --found->second;
  }
}

}  // namespace nq::engine
