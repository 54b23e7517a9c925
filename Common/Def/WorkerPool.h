// The module's only source of parallelism: a fixed set of threads over one queue of tasks.
#ifndef NQ_COMMON_DEF_WORKERPOOL_H_
#define NQ_COMMON_DEF_WORKERPOOL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Common/Def/Mutex.h"
#include "Common/Def/Task.h"
#include "Common/Def/Thread.h"

namespace nq::engine {

struct WorkerPoolState;

// Threads that sleep until a whole batch of tasks is posted. One thread, the script thread, posts
// and then waits: the design depends on it. A post from another thread while one waits would
// deadlock.
//
// The queue is first in, first out; which worker takes which task, and so the order of completion,
// is undefined. A pool goes from running to stopped and never back. Tasks must not throw: nothing
// catches exceptions, so the process ends.
//
// On a system without threads the pool starts none, and runs the tasks in order where they are
// posted.
class WorkerPool {
 public:
  // Starts `threadCount` threads. Reads the calling thread's CPU affinity and NQ_WORKER_PINNING,
  // whose value 0 keeps the pool from pinning a worker; later changes of either have no effect.
  explicit WorkerPool(uint32_t threadCount);

  // Stops the pool first.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Appends `count` tasks in order, moving from each, and wakes all workers. On a stopped pool the
  // tasks stay with the caller and are not run. Script thread only.
  void PostAll(Task* tasks, size_t count);

  // Blocks until no task is queued and no worker is busy, or until the pool is stopped. Script
  // thread only.
  void WaitIdle();

  // Requests all workers to end and joins them; running tasks finish first, queued ones are
  // dropped. A second call does nothing. Not from one of the pool's own threads.
  void Stop();

  uint32_t ThreadCount() const { return threadCount; }

  // The maximum number of tasks that run concurrently: the number of threads, or of CPUs that they
  // may run on if there are fewer.
  uint32_t Parallelism() const { return parallelism; }

 private:
  WorkerPool(uint32_t threadCount, uint32_t allowedCpus);

  // Runs the tasks on the calling thread: PostAll without threads.
  void RunAll(Task* tasks, size_t count);
  bool IsStopped() const;

  // If the threads need all allowed CPUs, the posting thread's CPU must run its share of a batch,
  // and is free to, since that thread waits. But the scheduler sees it busy when the workers wake
  // up, queues them all on the other CPUs, and would migrate one back only long after a batch of
  // some ten microseconds has ended. So one worker is pinned to the posting thread's CPU. Not on a
  // stopped pool. Never on a system without CPU affinity.
  void PinOneWorkerHere();

  std::vector<Thread> threads;
  std::shared_ptr<WorkerPoolState> state;  // shared with each thread
  const uint32_t threadCount;
  const uint32_t parallelism;
  const bool pinsOneWorker;
  int pinnedCpu = -1;  // CPU of the pinned worker; -1 for none
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_WORKERPOOL_H_
