// Child processes that can't be started.
#ifndef NQ_TESTS_WASM_SYS_WAIT_H_
#define NQ_TESTS_WASM_SYS_WAIT_H_

#include <sys/types.h>

#define WIFSIGNALED(status) ((status) < 0)
#define WTERMSIG(status) (status)
#define WIFEXITED(status) ((status) >= 0)
#define WEXITSTATUS(status) (status)

inline pid_t fork() {
  return -1;
}
inline int pipe(int*) {
  return -1;
}
inline pid_t waitpid(pid_t, int*, int) {
  return -1;
}

#endif  // NQ_TESTS_WASM_SYS_WAIT_H_
