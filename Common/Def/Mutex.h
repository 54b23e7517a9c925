// Mutex, scoped lock and condition variable with clang's thread-safety attributes. Without threads
// they do nothing.
#ifndef NQ_COMMON_DEF_MUTEX_H_
#define NQ_COMMON_DEF_MUTEX_H_

#include <atomic>
#include <climits>
#include <cstdint>

#include "Common/Def/Platform.h"

#if NQ_HAS_THREADS
#include <condition_variable>
#include <mutex>
#endif
#if NQ_HAS_FUTEX
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif
#if NQ_HAS_ADAPTIVE_MUTEX
#include <pthread.h>
#endif

#define NQ_CAPABILITY(x) NQ_THREAD_ATTRIBUTE(capability(x))
#define NQ_SCOPED_CAPABILITY NQ_THREAD_ATTRIBUTE(scoped_lockable)
#define NQ_GUARDED_BY(x) NQ_THREAD_ATTRIBUTE(guarded_by(x))
#define NQ_REQUIRES(...) NQ_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define NQ_ACQUIRE(...) NQ_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define NQ_RELEASE(...) NQ_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NQ_EXCLUDES(...) NQ_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// For a deliberate read or write outside the lock; a comment there states the reason.
#define NQ_NO_THREAD_SAFETY_ANALYSIS NQ_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace nq::engine {

#if NQ_HAS_THREADS

// A non-recursive mutex. Errors of the platform are thrown as std::system_error by the standard
// mutex below, and end the process, since nothing catches them.
//
// Adaptive where the platform supports it: spins for a moment before the thread sleeps. Critical
// sections under these locks are shorter than falling asleep and being woken.
class NQ_CAPABILITY("mutex") Mutex {
 public:
#if NQ_HAS_ADAPTIVE_MUTEX
  Mutex() {
    *mutex_.native_handle() = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
  }
#else
  Mutex() = default;
#endif
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() NQ_ACQUIRE() {
    mutex_.lock();
  }
  void Unlock() NQ_RELEASE() {
    mutex_.unlock();
  }

 private:
  std::mutex mutex_;
};

#else

class NQ_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock() NQ_ACQUIRE() {}
  void Unlock() NQ_RELEASE() {}
};

#endif

// Holds a mutex for a scope.
class NQ_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) NQ_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexLock() NQ_RELEASE() { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

#if !NQ_HAS_THREADS

class ConditionVariable {
 public:
  ConditionVariable() = default;
  ConditionVariable(const ConditionVariable&) = delete;
  ConditionVariable& operator=(const ConditionVariable&) = delete;

  // Never called: no other thread could end the wait.
  template <typename AnyMutex>
  void Wait(AnyMutex& /*mutex*/) {
    NQ_TRAP();
  }
  void Broadcast() {}
};

#elif NQ_HAS_FUTEX

// Wakes all waiting threads, by the system's futex. The standard one delays a broadcast until all
// threads woken by the previous one have run, which takes as long as a CPU needs to wake up;
// batches in close succession would wait for that each time.
class ConditionVariable {
 public:
  ConditionVariable() = default;
  ConditionVariable(const ConditionVariable&) = delete;
  ConditionVariable& operator=(const ConditionVariable&) = delete;

  // Releases `mutex`, sleeps until a broadcast, and reacquires it before returning. Spurious
  // wake-ups are possible. Waiters of one condition variable share one mutex; other types than
  // Mutex are for tests.
  template <typename AnyMutex>
  void Wait(AnyMutex& mutex) NQ_REQUIRES(mutex) {
    waiters_.fetch_add(1);
    const uint32_t seen = broadcasts_.load();
    mutex.Unlock();
    // Returns immediately if there has been a broadcast since.
    syscall(SYS_futex, &broadcasts_, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
    mutex.Lock();
    waiters_.fetch_sub(1);
  }

  // With or without the mutex, after a change made under it. A thread that locks the mutex later
  // sees the change; one that waited before is among the waiters.
  void Broadcast() {
    broadcasts_.fetch_add(1);
    if (waiters_.load() != 0) {
      syscall(SYS_futex, &broadcasts_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    }
  }

 private:
  std::atomic<uint32_t> broadcasts_{0};
  std::atomic<uint32_t> waiters_{0};
};
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "the word that a futex is");

#else

// The same by the standard library, with a count of broadcasts under its own mutex, so that none is
// missed between the release of the caller's mutex and the sleep. Lock order: the caller's mutex,
// then this one.
class ConditionVariable {
 public:
  ConditionVariable() = default;
  ConditionVariable(const ConditionVariable&) = delete;
  ConditionVariable& operator=(const ConditionVariable&) = delete;

  // Releases `mutex`, sleeps until a broadcast, and reacquires it before returning.
  template <typename AnyMutex>
  void Wait(AnyMutex& mutex) NQ_REQUIRES(mutex) {
    std::unique_lock<std::mutex> lock(countMutex_);
    const uint64_t seen = broadcasts_;
    lock.unlock();
    mutex.Unlock();
    lock.lock();
    while (broadcasts_ == seen) {
      broadcast_.wait(lock);
    }
    lock.unlock();
    mutex.Lock();
  }

  // With or without the mutex, after a change made under it.
  void Broadcast() {
    {
      const std::lock_guard<std::mutex> lock(countMutex_);
      ++broadcasts_;
    }
    broadcast_.notify_all();
  }

 private:
  std::mutex countMutex_;
  uint64_t broadcasts_ = 0;  // guarded by countMutex_
  std::condition_variable broadcast_;
};

#endif

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MUTEX_H_
