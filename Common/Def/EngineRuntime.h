// The reference-counted root of the native side: memory, native values, worker pools.
#ifndef NQ_COMMON_DEF_ENGINERUNTIME_H_
#define NQ_COMMON_DEF_ENGINERUNTIME_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Common/Def/EngineRuntimeState.h"
#include "Common/Def/HandlerOwner.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryBlock.h"
#include "Common/Def/WorkerPool.h"

namespace nq::engine {

// Is notified of a runtime's shutdown.
class RuntimeListener {
 public:
  virtual ~RuntimeListener() = default;

  // Called once, by EngineRuntime::Shutdown, after the pools have stopped.
  virtual void OnShutdown() = 0;
};

// Worker threads of the first pool, which runs batch updates and the local matrix pass.
constexpr uint32_t kFirstPoolThreads = 4;

// Owns the allocator and the worker pools of one engine. Starts with one reference, the creator's.
// Each value in its own table holds another one, and so does an EngineCore.
//
// Thread safety: call everything on the script thread. Worker threads may read what tasks need
// while the script thread waits for them; Allocate, Release and Retain are safe from any thread.
class EngineRuntime final : public HandlerOwner {
 public:
  // Takes ownership of `allocator`.
  explicit EngineRuntime(MemoryAllocator* allocator);
  ~EngineRuntime() override;

  EngineRuntime* Runtime() override { return this; }

  // Shared memory, forwarded to the allocator.
  MemoryBlock Allocate(uint32_t size);
  void Release(const MemoryBlock& block);
  MemoryBlock FindBlock(uint32_t memoryID) const;
  const MemoryAllocator& Memory() const { return *state->allocator; }

  // A new value with a zeroed block of `size` bytes. All zero for a size of 0 or if no handle is
  // left.
  NativeValueInfo CreateValue(uint32_t size);

  // A new value that is a view of `length` bytes at `offset` of the live block that starts at
  // `pointer`, and keeps that block alive. Its memoryID is 0. All zero if no live block starts
  // there, or if no handle is left. The range is not checked against the block.
  NativeValueInfo CreateView(void* pointer, uint32_t offset, uint32_t length);

  // Releases the value; its destructor prints a line. Unknown handles are ignored.
  void ReleaseValue(uint32_t handle);

  // The value of `handle`, or null. Not owned.
  NativeValue* FindValue(uint32_t handle) const;

  // The worker pools, created on first use. Only the first is ever used.
  WorkerPool* FirstPool();
  WorkerPool* SecondPool();
  WorkerPool* ThirdPool();

  // Stops every pool that exists, in slot order.
  void StopPools();

  // Stops the pools and notifies every listener, in order of registration. Only the first call has
  // an effect.
  void Shutdown();
  bool IsDisposed() const { return disposed; }

  // Listeners are not owned. RemoveListener removes every occurrence.
  void AddListener(RuntimeListener* listener);
  void RemoveListener(RuntimeListener* listener);

  // Counting of JavaScript objects by class. Enabling clears the counts; disabling keeps them.
  void EnableObjectTracking();
  void DisableObjectTracking();
  bool TracksObjects() const { return trackObjects; }
  const std::map<std::string, int32_t>& ObjectCounts() const { return objectCounts; }
  void CountObject(const char* className);

  // Decrements the count of that name if it is at least 1.
  void UncountObject(const char* className);

 private:
  WorkerPool* Pool(uint32_t slot, uint32_t threadCount);

  EngineRuntimeState* const state;  // owned
  bool trackObjects = false;
  bool disposed = false;
  std::map<std::string, int32_t> objectCounts;
  std::vector<RuntimeListener*> listeners;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_ENGINERUNTIME_H_
