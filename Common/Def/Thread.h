// Threads where the system has them; otherwise a class of which no object exists.
#ifndef NQ_COMMON_DEF_THREAD_H_
#define NQ_COMMON_DEF_THREAD_H_

#include "Common/Def/Platform.h"

#if NQ_HAS_THREADS
#include <thread>
#endif

namespace nq::engine {

// If false, a pool has no threads, and runs tasks where they are posted.
constexpr bool kHasThreads = NQ_HAS_THREADS != 0;

#if NQ_HAS_THREADS

using Thread = std::thread;

inline void YieldCpu() {
  std::this_thread::yield();
}

// CPUs of the machine; 0 if unknown.
inline unsigned int MachineCpus() {
  return std::thread::hardware_concurrency();
}

#else

class Thread {
 public:
  template <typename Function>
  explicit Thread(Function /*function*/) {
    NQ_TRAP();
  }
  bool joinable() const { return false; }
  void join() {}
};

inline void YieldCpu() {}
inline unsigned int MachineCpus() {
  return 1;
}

#endif

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_THREAD_H_
