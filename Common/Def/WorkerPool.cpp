// The worker loop, and the posting and waiting side of a pool.
#include "Common/Def/WorkerPool.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "Common/Def/CpuAffinity.h"
#include "Common/Def/TaskQueue.h"

namespace nq::engine {

namespace {

// Waking a waiter that sleeps on another CPU goes through the kernel, which takes as long as many a
// batch runs (up to 70 microseconds on virtual machines). So it spins, yielding its CPU, before it
// sleeps.
constexpr std::chrono::microseconds kYieldBeforeSleep{100};

// Environment variable, and its one value that turns off the pinning of a worker: for sandboxes
// whose seccomp filter ends the process at sched_setaffinity.
constexpr const char* kPinningVariable = "NQ_WORKER_PINNING";
constexpr const char* kPinningOff = "0";

bool PinningAllowed() {
  // Another thread may set variables concurrently: the C library frees no earlier value.
  const char* value = std::getenv(kPinningVariable);  // NOLINT(concurrency-mt-unsafe)
  return value == nullptr || std::strcmp(value, kPinningOff) != 0;
}

}  // namespace

// State shared by the pool and its threads. Lock order: `mutex`, then `waitMutex`. WaitIdle holds
// `waitMutex` throughout, even while it sleeps, so a lock-order checker sees `mutex` locked again
// after it. That can't deadlock, since only the one waiting thread does it.
//
// The fields that change with each task come first, in one cache line.
struct alignas(64) WorkerPoolState {
  Mutex mutex;
  TaskQueue queue NQ_GUARDED_BY(mutex);
  bool stopped NQ_GUARDED_BY(mutex) = false;

  // Workers that run a task. One that has not yet reached its loop counts as idle.
  uint32_t busyCount NQ_GUARDED_BY(mutex) = 0;

  bool waiting NQ_GUARDED_BY(mutex) = false;
  ConditionVariable taskAvailable;
  ConditionVariable allIdle;
  Mutex waitMutex;

  // Counts the broadcasts of `allIdle`, to tell spurious wake-ups from the one that a waiter waits
  // for. Changes under `mutex`; a waiter also reads it without the lock.
  std::atomic<uint64_t> idleBroadcasts{0};

  void BroadcastAllIdle() NQ_REQUIRES(mutex) {
    ++idleBroadcasts;
    allIdle.Broadcast();
  }

  // The loop of one worker thread.
  void Work() NQ_EXCLUDES(mutex);
};

void WorkerPoolState::Work() {
  bool busy = false;
  mutex.Lock();
  while (!stopped) {
    if (queue.Empty()) {
      busyCount -= busy ? 1 : 0;
      busy = false;
      if (waiting && busyCount == 0) {
        BroadcastAllIdle();
      }
      taskAvailable.Wait(mutex);
      continue;
    }
    busyCount += busy ? 0 : 1;
    busy = true;
    {
      Task task = queue.Take();
      mutex.Unlock();
      task();
      mutex.Lock();
      // Destroys the task, under the lock.
    }
  }
  mutex.Unlock();
}

WorkerPool::WorkerPool(uint32_t threadCount) : WorkerPool(threadCount, AllowedCpus()) {}

WorkerPool::WorkerPool(uint32_t threadCount, uint32_t allowedCpus)
    : state(std::make_shared<WorkerPoolState>()),
      threadCount(threadCount),
      parallelism(allowedCpus == 0 ? threadCount : std::min(threadCount, allowedCpus)),
      // With one CPU there is nothing to choose.
      pinsOneWorker(kHasCpuAffinity && allowedCpus > 1 && allowedCpus <= threadCount &&
                    PinningAllowed()) {
  if (!kHasThreads) {
    return;
  }
  threads.reserve(threadCount);
  for (uint32_t i = 0; i < threadCount; ++i) {
    threads.emplace_back([shared = state] { shared->Work(); });
  }
}

WorkerPool::~WorkerPool() {
  Stop();
}

void WorkerPool::PostAll(Task* tasks, size_t count) {
  if (!kHasThreads) {
    RunAll(tasks, count);
    return;
  }
  {
    MutexLock lock(state->mutex);
    if (state->stopped) {
      return;
    }
    if (state->waiting) {
      // A post blocks until the current WaitIdle has ended.
      MutexLock waitLock(state->waitMutex);
    }
    if (pinsOneWorker) {
      PinOneWorkerHere();
    }
    state->queue.Append(tasks, count);
  }
  state->taskAvailable.Broadcast();
}

void WorkerPool::RunAll(Task* tasks, size_t count) {
  for (size_t i = 0; i < count && !IsStopped(); ++i) {
    Task task(std::move(tasks[i]));
    task();
  }
}

bool WorkerPool::IsStopped() const {
  MutexLock lock(state->mutex);
  return state->stopped;
}

void WorkerPool::PinOneWorkerHere() {
  const int cpu = CurrentCpu();
  if (cpu == pinnedCpu || cpu < 0) {
    return;
  }
  pinnedCpu = cpu;
  PinToCpu(&threads.front(), cpu);
}

void WorkerPool::WaitIdle() {
  if (!kHasThreads) {
    return;
  }
  state->mutex.Lock();
  state->waitMutex.Lock();
  if (!state->queue.Empty() || state->busyCount != 0) {
    state->waiting = true;
    const uint64_t seen = state->idleBroadcasts;
    state->mutex.Unlock();
    const auto latest = std::chrono::steady_clock::now() + kYieldBeforeSleep;
    while (state->idleBroadcasts == seen && std::chrono::steady_clock::now() < latest) {
      YieldCpu();
    }
    state->mutex.Lock();
    while (state->idleBroadcasts == seen && !state->stopped) {
      state->allIdle.Wait(state->mutex);
    }
    // One broadcast means that the batch is done: the queue is not checked again.
    state->waiting = false;
  }
  state->waitMutex.Unlock();
  state->mutex.Unlock();
}

void WorkerPool::Stop() {
  {
    MutexLock lock(state->mutex);
    if (state->stopped) {
      return;
    }
    state->stopped = true;
  }
  state->taskAvailable.Broadcast();
  state->allIdle.Broadcast();
  for (Thread& thread : threads) {
    if (thread.joinable()) {
      thread.join();
    }
  }
}

}  // namespace nq::engine
