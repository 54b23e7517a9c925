// Mutex, scoped lock and condition variable that carry clang's thread-safety attributes.
#ifndef NQ_COMMON_DEF_MUTEX_H_
#define NQ_COMMON_DEF_MUTEX_H_

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <mutex>

#include "Common/Def/Platform.h"

#define NQ_CAPABILITY(x) NQ_THREAD_ATTRIBUTE(capability(x))
#define NQ_SCOPED_CAPABILITY NQ_THREAD_ATTRIBUTE(scoped_lockable)
#define NQ_GUARDED_BY(x) NQ_THREAD_ATTRIBUTE(guarded_by(x))
#define NQ_REQUIRES(...) NQ_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define NQ_ACQUIRE(...) NQ_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define NQ_RELEASE(...) NQ_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NQ_EXCLUDES(...) NQ_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// For a deliberate read or write outside the lock; the reason stands at the place of use.
#define NQ_NO_THREAD_SAFETY_ANALYSIS NQ_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace nq::engine {

// A non-recursive mutex. Errors of the platform are thrown as std::system_error by the standard
// mutex below, and end the process, since nothing catches them.
//
// Where the platform has such a kind of mutex, one that is taken is tried again for a moment before
// the thread goes to sleep: what is done under these locks takes less time than falling asleep and
// being woken.
class NQ_CAPABILITY("mutex") Mutex {
 public:
#if defined(PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP)
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

// Wakes all threads that wait, by the system's futex. The standard one holds a broadcast back until
// all that the last one woke have run, which is as long as a processor takes to wake up; batches
// that follow each other closely would wait for that each time.
class ConditionVariable {
 public:
  ConditionVariable() = default;
  ConditionVariable(const ConditionVariable&) = delete;
  ConditionVariable& operator=(const ConditionVariable&) = delete;

  // Releases `mutex`, sleeps until a broadcast, and holds it again on return. May return without a
  // broadcast. Waiters of one condition variable share one mutex, a Mutex but in tests.
  template <typename AnyMutex>
  void Wait(AnyMutex& mutex) NQ_REQUIRES(mutex) {
    waiters_.fetch_add(1);
    const uint32_t seen = broadcasts_.load();
    mutex.Unlock();
    // Returns at once if there has been a broadcast since.
    syscall(SYS_futex, &broadcasts_, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
    mutex.Lock();
    waiters_.fetch_sub(1);
  }

  // With or without the mutex, after a change that was made with it. Who holds the mutex later sees
  // the change; who waited before is among the waiters.
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

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_MUTEX_H_
