// Runs a part of a test in a child process and captures its output streams.
#ifndef NQ_TESTS_NATIVE_COMMON_DEF_CHILDPROCESS_H_
#define NQ_TESTS_NATIVE_COMMON_DEF_CHILDPROCESS_H_

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace nq::engine {

struct ChildResult {
  std::string out;  // all of standard output
  std::string err;  // all of standard error
  int status = 0;   // as returned by waitpid

  bool Aborted() const { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }
};

// Reads `descriptor` to its end and closes it.
inline std::string ReadToEnd(int descriptor) {
  std::string text;
  char part[4096];
  ssize_t n;
  while ((n = read(descriptor, part, sizeof(part))) > 0) {
    text.append(part, static_cast<size_t>(n));
  }
  close(descriptor);
  return text;
}

// Removes the line that an emulator adds to standard error when a signal ends the program in it.
inline void RemoveEmulatorLine(std::string* text) {
  const size_t start = text->find("qemu: uncaught target signal");
  if (start != std::string::npos) {
    text->erase(start, text->find('\n', start) + 1 - start);
  }
}

// Runs `body` in a child whose standard output is a fully buffered pipe and whose standard error is
// another. Its output must fit into a pipe's buffer. No other thread may be alive in the caller.
inline ChildResult RunInChild(const std::function<void()>& body) {
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0) {
    std::abort();
  }
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(errPipe[1], STDERR_FILENO);
    for (const int descriptor : {outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) {
      close(descriptor);
    }
    // Reopened, since the stream may have been a line-buffered terminal.
    if (std::freopen("/dev/fd/1", "w", stdout) == nullptr) {
      std::abort();
    }
    body();
    _exit(0);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  ChildResult result;
  result.out = ReadToEnd(outPipe[0]);
  result.err = ReadToEnd(errPipe[0]);
  RemoveEmulatorLine(&result.err);
  waitpid(child, &result.status, 0);
  return result;
}

// Runs `body` in a child whose standard output is unbuffered, so that the bounds of each write are
// kept. Returns the writes in order. No other thread may be alive in the caller.
inline std::vector<std::string> WritesOf(const std::function<void()>& body) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
    std::abort();
  }
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    body();
    _exit(0);
  }
  close(ends[1]);
  std::vector<std::string> writes;
  char packet[4096];
  ssize_t n;
  while ((n = recv(ends[0], packet, sizeof(packet), 0)) > 0) {
    writes.emplace_back(packet, static_cast<size_t>(n));
  }
  close(ends[0]);
  int status;
  waitpid(child, &status, 0);
  return writes;
}

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_COMMON_DEF_CHILDPROCESS_H_
