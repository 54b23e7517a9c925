// Limits that can't be set.
#ifndef NQ_TESTS_WASM_SYS_RESOURCE_H_
#define NQ_TESTS_WASM_SYS_RESOURCE_H_

#define RLIMIT_AS 0

using rlim_t = unsigned long;
struct rlimit {
  rlim_t rlim_cur;
  rlim_t rlim_max;
};

inline int setrlimit(int, const rlimit*) {
  return -1;
}
inline int getrlimit(int, rlimit*) {
  return -1;
}

#endif  // NQ_TESTS_WASM_SYS_RESOURCE_H_
