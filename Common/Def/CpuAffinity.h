// Which CPUs threads may run on, where the system lets a process choose; else how many there are.
#ifndef NQ_COMMON_DEF_CPUAFFINITY_H_
#define NQ_COMMON_DEF_CPUAFFINITY_H_

#include <cstdint>
#include <thread>

#include "Common/Def/Platform.h"

#if NQ_HAS_CPU_AFFINITY
#include <pthread.h>
#include <sched.h>
#endif

namespace nq::engine {

// False where AllowedCpus counts the machine's CPUs, and threads can't be pinned.
constexpr bool kHasCpuAffinity = NQ_HAS_CPU_AFFINITY != 0;

#if NQ_HAS_CPU_AFFINITY

// How many CPUs the calling thread may run on, and with it the threads that it starts: they inherit
// its affinity mask. 0 if that is unknown. std::thread::hardware_concurrency would count the
// machine's CPUs, whatever the mask.
inline uint32_t AllowedCpus() {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  if (sched_getaffinity(0, sizeof(cpus), &cpus) != 0) {
    return 0;  // more CPUs than the set has bits
  }
  return static_cast<uint32_t>(CPU_COUNT(&cpus));
}

// The CPU that the calling thread runs on. -1 if that is unknown, or none that PinToCpu takes.
inline int CurrentCpu() {
  const int cpu = sched_getcpu();
  return cpu < CPU_SETSIZE ? cpu : -1;
}

// Keeps `thread` on `cpu`, a result of CurrentCpu but -1. Where this is refused, the thread runs
// anywhere, as before.
inline void PinToCpu(std::thread* thread, int cpu) {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  CPU_SET(cpu, &cpus);
  pthread_setaffinity_np(thread->native_handle(), sizeof(cpus), &cpus);
}

#else

inline uint32_t AllowedCpus() {
  return std::thread::hardware_concurrency();
}
inline int CurrentCpu() {
  return -1;
}
inline void PinToCpu(std::thread* /*thread*/, int /*cpu*/) {}

#endif

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_CPUAFFINITY_H_
