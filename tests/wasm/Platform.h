// What the native suites use that WebAssembly lacks, so that they compile; included before each
// source. Tests that need it are in left-out.txt, and fail if they are run. Standard output is a
// variable, as in other C libraries: the log goes through it (Platform.cpp).
#ifndef NQ_TESTS_WASM_PLATFORM_H_
#define NQ_TESTS_WASM_PLATFORM_H_

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

extern FILE* nqTestOutput;
#undef stdout
#define stdout nqTestOutput

inline int dup(int) {
  return -1;
}
inline int dup2(int, int) {
  return -1;
}

#define SOCK_SEQPACKET 5
inline int socketpair(int, int, int, int*) {
  return -1;
}

namespace testing::internal {
void CaptureStdout();
std::string GetCapturedStdout();
}  // namespace testing::internal

#define EXPECT_DEATH(statement, matcher) ADD_FAILURE() << "needs a process"
#define EXPECT_EXIT(statement, predicate, matcher) ADD_FAILURE() << "needs a process"

namespace testing {
inline void KilledBySignal(int) {}
}  // namespace testing

namespace std {

class thread {
 public:
  thread() = default;
  template <typename... Arguments>
  explicit thread(Arguments&&...) {
    std::abort();
  }
  void join() {}
  bool joinable() const { return false; }
  static unsigned int hardware_concurrency() { return 1; }
};

namespace this_thread {
template <typename Duration>
void sleep_for(const Duration&) {}
inline void yield() {}
}  // namespace this_thread

}  // namespace std

#endif  // NQ_TESTS_WASM_PLATFORM_H_
