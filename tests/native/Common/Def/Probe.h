// Callables for worker pools whose destruction can be observed, and queries of a pool.
#ifndef NQ_TESTS_NATIVE_COMMON_DEF_PROBE_H_
#define NQ_TESTS_NATIVE_COMMON_DEF_PROBE_H_

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "Common/Def/Task.h"
#include "Common/Def/WorkerPool.h"

namespace nq::engine {

// A callable that calls one function when it is run and another when it is destroyed. Instances
// that were moved from call neither.
class Probe {
 public:
  Probe(std::function<void()> onRun, std::function<void()> onEnd)
      : functions(std::make_unique<Functions>(Functions{std::move(onRun), std::move(onEnd)})) {}
  Probe(Probe&&) = default;
  ~Probe() {
    if (functions != nullptr && functions->onEnd) {
      functions->onEnd();
    }
  }

  void operator()() {
    if (functions->onRun) {
      functions->onRun();
    }
  }

 private:
  struct Functions {
    std::function<void()> onRun;
    std::function<void()> onEnd;
  };
  std::unique_ptr<Functions> functions;
};

// True if `pool` is stopped. Otherwise posts an empty task to it.
inline bool Refuses(WorkerPool* pool) {
  Task task([] {});
  pool->PostAll(&task, 1);
  return static_cast<bool>(task);
}

inline void SleepMilliseconds(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

inline void SpinUntil(const std::atomic<bool>& flag) {
  while (!flag) {
    SleepMilliseconds(1);
  }
}

// Keeps one worker of a pool busy until the pool is stopped, so that tasks posted after it are
// still queued then. Needs no help from the thread that stops the pool.
class BusyUntilStop {
 public:
  explicit BusyUntilStop(WorkerPool* pool) {
    Task task([this] {
      started = true;
      SpinUntil(stopSeen);
      ended = true;
    });
    pool->PostAll(&task, 1);
    SpinUntil(started);
    watcher = std::thread([this, pool] {
      SpinUntil(watch);
      while (!Refuses(pool)) {
        SleepMilliseconds(1);
      }
      // The pool still exists: its Stop waits for the task above.
      stopSeen = true;
    });
  }

  ~BusyUntilStop() { watcher.join(); }

  // Call it after all posting, just before the stop: from here on a thread of ours polls for the
  // stop, by posting.
  void Watch() { watch = true; }

  bool Ended() const { return ended; }

 private:
  std::atomic<bool> started{false};
  std::atomic<bool> watch{false};
  std::atomic<bool> stopSeen{false};
  std::atomic<bool> ended{false};
  std::thread watcher;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_COMMON_DEF_PROBE_H_
