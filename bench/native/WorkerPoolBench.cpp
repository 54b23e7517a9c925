// The overhead of the worker pool: posting tasks and waiting for them.
#include <benchmark/benchmark.h>

#include <array>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/WorkerPool.h"

namespace nq::engine {
namespace {

// The fork and join of a long dirty list: one task per worker, and the wait for all of them.
void BM_WorkerPoolHandOver(benchmark::State& state) {
  WorkerPool pool(kFirstPoolThreads);
  std::array<Task, kFirstPoolThreads> tasks;
  for (auto _ : state) {
    for (Task& task : tasks) {
      task = Task([] {});
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
  }
}
BENCHMARK(BM_WorkerPoolHandOver)->UseRealTime();

// A batch update: one task per handle.
void BM_WorkerPoolManyTasks(benchmark::State& state) {
  WorkerPool pool(kFirstPoolThreads);
  std::vector<Task> tasks(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    for (Task& task : tasks) {
      task = Task([] {});
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * tasks.size()));
}
BENCHMARK(BM_WorkerPoolManyTasks)->Arg(100)->Arg(1000)->UseRealTime();

}  // namespace
}  // namespace nq::engine
