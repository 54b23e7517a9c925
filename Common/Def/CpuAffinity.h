// CPU affinity where the system supports it; otherwise only the number of CPUs.
#ifndef NQ_COMMON_DEF_CPUAFFINITY_H_
#define NQ_COMMON_DEF_CPUAFFINITY_H_

#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Thread.h"

#if NQ_HAS_CPU_AFFINITY
#include <pthread.h>
#include <sched.h>
#endif

namespace nq::engine {

// If false, AllowedCpus counts the machine's CPUs, and threads can't be pinned.
constexpr bool kHasCpuAffinity = NQ_HAS_CPU_AFFINITY != 0;

#if NQ_HAS_CPU_AFFINITY

// The number of CPUs that the calling thread may run on, and so the threads that it starts: they
// inherit its affinity mask. 0 if unknown. std::thread::hardware_concurrency would count the
// machine's CPUs, whatever the mask.
inline uint32_t AllowedCpus() {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  if (sched_getaffinity(0, sizeof(cpus), &cpus) != 0) {
    return 0;  // more CPUs than the set has bits
  }
  return static_cast<uint32_t>(CPU_COUNT(&cpus));
}

// The CPU that the calling thread runs on. -1 if unknown, or not one that PinToCpu supports.
inline int CurrentCpu() {
  const int cpu = sched_getcpu();
  return cpu < CPU_SETSIZE ? cpu : -1;
}

// Pins `thread` to `cpu`, a result of CurrentCpu other than -1. If the system refuses, the thread
// runs on any CPU, as before.
inline void PinToCpu(Thread* thread, int cpu) {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  CPU_SET(cpu, &cpus);
  pthread_setaffinity_np(thread->native_handle(), sizeof(cpus), &cpus);
}

#else

inline uint32_t AllowedCpus() {
  return MachineCpus();
}
inline int CurrentCpu() {
  return -1;
}
inline void PinToCpu(Thread* /*thread*/, int /*cpu*/) {}

#endif

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_CPUAFFINITY_H_
