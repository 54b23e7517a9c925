// Standard output of the suites, which tests replace and capture.
#include "tests/wasm/Platform.h"

#include <cstdarg>

#undef stdout
FILE* nqTestOutput = stdout;
#define stdout nqTestOutput

namespace {

FILE* before = nullptr;
char* text = nullptr;
size_t length = 0;

}  // namespace

namespace testing::internal {

void CaptureStdout() {
  std::fflush(stdout);
  before = stdout;
  stdout = open_memstream(&text, &length);
}

std::string GetCapturedStdout() {
  std::fclose(stdout);
  stdout = before;
  std::string result(text, length);
  std::free(text);
  return result;
}

}  // namespace testing::internal

// The linker replaces calls of vprintf (option --wrap) by this.
extern "C" int __wrap_vprintf(const char* format, va_list arguments) {
  return std::vfprintf(stdout, format, arguments);
}
