// The worker loop, and the posting and waiting side of a pool.
#include "Common/Def/WorkerPool.h"

#include <atomic>
#include <chrono>
#include <utility>

namespace nq::engine {

namespace {

// A waiter that sleeps on a processor of its own is woken through the kernel, which takes as long
// as many a batch runs (up to 70 microseconds on virtual machines), so it gives its processor away
// for a while first.
constexpr std::chrono::microseconds kYieldBeforeSleep{100};

}  // namespace

// What the pool and its threads share. Lock order: `mutex`, then `waitMutex`. `waitMutex` is held
// for the duration of WaitIdle, across its sleep, so a lock-order checker sees `mutex` taken again
// behind it; that can't block, since only the one waiting thread does it.
struct WorkerPoolState {
  explicit WorkerPoolState(uint32_t threadCount) : busy(threadCount, false) {}

  Mutex mutex;
  ConditionVariable taskAvailable;
  bool stopped NQ_GUARDED_BY(mutex) = false;

  // First in, first out: tasks ahead of `queueHead` have been taken. The array is emptied when the
  // last one is, and keeps its memory, so that steady work allocates nothing.
  std::vector<Task> queue NQ_GUARDED_BY(mutex);
  size_t queueHead NQ_GUARDED_BY(mutex) = 0;

  Mutex waitMutex;
  bool waiting NQ_GUARDED_BY(mutex) = false;
  ConditionVariable allIdle;

  // Counts the broadcasts of `allIdle`. A condition variable may return without one, which is not
  // the wake-up that a waiter waits for. Changes under `mutex`; a waiter also looks without it.
  std::atomic<uint64_t> idleBroadcasts{0};

  // By worker: true while it runs a task. A worker that has not yet reached its loop counts as
  // idle.
  std::vector<bool> busy NQ_GUARDED_BY(mutex);
  uint32_t busyCount NQ_GUARDED_BY(mutex) = 0;

  bool QueueEmpty() const NQ_REQUIRES(mutex) { return queueHead == queue.size(); }

  void SetBusy(uint32_t worker, bool value) NQ_REQUIRES(mutex) {
    if (busy[worker] != value) {
      busy[worker] = value;
      busyCount += value ? 1 : -1;
    }
  }

  void BroadcastAllIdle() NQ_REQUIRES(mutex) {
    ++idleBroadcasts;
    allIdle.Broadcast();
  }

  Task TakeTask() NQ_REQUIRES(mutex) {
    Task task = std::move(queue[queueHead]);
    ++queueHead;
    if (QueueEmpty()) {
      queue.clear();
      queueHead = 0;
    }
    return task;
  }

  // The loop of one worker thread.
  void Work(uint32_t worker) NQ_EXCLUDES(mutex);
};

void WorkerPoolState::Work(uint32_t worker) {
  mutex.Lock();
  while (!stopped) {
    if (QueueEmpty()) {
      SetBusy(worker, false);
      if (waiting && busyCount == 0) {
        BroadcastAllIdle();
      }
      taskAvailable.Wait(mutex);
      continue;
    }
    SetBusy(worker, true);
    {
      Task task = TakeTask();
      mutex.Unlock();
      task();
      mutex.Lock();
      // The task is destroyed here, under the lock.
    }
  }
  mutex.Unlock();
}

WorkerPool::WorkerPool(uint32_t threadCount)
    : state(std::make_shared<WorkerPoolState>(threadCount)), threadCount(threadCount) {
  threads.reserve(threadCount);
  for (uint32_t worker = 0; worker < threadCount; ++worker) {
    threads.emplace_back([shared = state, worker] { shared->Work(worker); });
  }
}

WorkerPool::~WorkerPool() {
  Stop();
}

void WorkerPool::PostAll(Task* tasks, size_t count) {
  {
    MutexLock lock(state->mutex);
    if (state->stopped) {
      return;
    }
    if (state->waiting) {
      // A post waits until the current WaitIdle has ended.
      MutexLock waitLock(state->waitMutex);
    }
    for (size_t i = 0; i < count; ++i) {
      state->queue.push_back(std::move(tasks[i]));
    }
  }
  state->taskAvailable.Broadcast();
}

void WorkerPool::WaitIdle() {
  state->mutex.Lock();
  state->waitMutex.Lock();
  if (!state->QueueEmpty() || state->busyCount != 0) {
    state->waiting = true;
    const uint64_t seen = state->idleBroadcasts;
    state->mutex.Unlock();
    const auto latest = std::chrono::steady_clock::now() + kYieldBeforeSleep;
    while (state->idleBroadcasts == seen && std::chrono::steady_clock::now() < latest) {
      std::this_thread::yield();
    }
    state->mutex.Lock();
    while (state->idleBroadcasts == seen && !state->stopped) {
      state->allIdle.Wait(state->mutex);
    }
    // One broadcast is taken as meaning that the batch is done: the queue is not judged again.
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
  for (std::thread& thread : threads) {
    if (thread.joinable()) {
      thread.join();
    }
  }
}

}  // namespace nq::engine
