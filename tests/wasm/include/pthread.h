// Threads that can't be started.
#ifndef NQ_TESTS_WASM_PTHREAD_H_
#define NQ_TESTS_WASM_PTHREAD_H_

#include <sys/types.h>

#include <cstddef>

inline int pthread_attr_init(pthread_attr_t*) {
  return 0;
}
inline int pthread_attr_setstacksize(pthread_attr_t*, std::size_t) {
  return 0;
}
inline int pthread_attr_destroy(pthread_attr_t*) {
  return 0;
}
inline int pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
  return -1;
}
inline int pthread_join(pthread_t, void**) {
  return -1;
}

#endif  // NQ_TESTS_WASM_PTHREAD_H_
