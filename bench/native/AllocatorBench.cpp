// Handles and shared blocks: look-up, allocation and release.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryAllocator.h"
#include "Engine/Entity/EngineCore.h"

namespace nq::engine {
namespace {

void BM_HandlerAllocatorFind(benchmark::State& state) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator());
  {
    HandlerAllocator<BlockValue> table(runtime);
    std::vector<uint32_t> handles;
    for (int64_t i = 0; i < state.range(0); ++i) {
      handles.push_back(table.Allocate()->handle);
    }
    std::mt19937 random(4);
    std::shuffle(handles.begin(), handles.end(), random);
    size_t next = 0;
    for (auto _ : state) {
      benchmark::DoNotOptimize(table.Find(handles[next]));
      next = next + 1 == handles.size() ? 0 : next + 1;
    }
  }
  runtime->DropReference();
}
BENCHMARK(BM_HandlerAllocatorFind)->Arg(10)->Arg(1000)->Arg(100000);

// Allocates and releases a block while `range(1)` others are live.
void BM_MemoryAllocatorAllocateRelease(benchmark::State& state) {
  MemoryAllocator allocator;
  std::vector<MemoryBlock> live;
  const uint32_t bytes = static_cast<uint32_t>(state.range(0));
  for (int64_t i = 0; i < state.range(1); ++i) {
    live.push_back(allocator.Allocate(bytes));
  }
  for (auto _ : state) {
    const MemoryBlock block = allocator.Allocate(bytes);
    benchmark::DoNotOptimize(block.pointer);
    allocator.Release(block);
  }
  for (const MemoryBlock& block : live) {
    allocator.Release(block);
  }
}
BENCHMARK(BM_MemoryAllocatorAllocateRelease)
    ->ArgNames({"bytes", "live"})
    ->Args({108, 0})
    ->Args({108, 10000})
    ->Args({640, 1000})
    ->Args({4096, 1000});

void BM_CreateReleaseEntities(benchmark::State& state) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator());
  EngineCore* core = new EngineCore(runtime);
  const int32_t count = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    const NativeValueInfo info = core->CreateEntities3D(count);
    benchmark::DoNotOptimize(info.pointer);
    core->ReleaseEntities(info.handle);
  }
  state.SetItemsProcessed(state.iterations() * count);
  core->DropReference();
  runtime->DropReference();
}
BENCHMARK(BM_CreateReleaseEntities)->Arg(1)->Arg(50)->Arg(4095);

}  // namespace
}  // namespace nq::engine
