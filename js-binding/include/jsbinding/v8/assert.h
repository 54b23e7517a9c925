// Assertions of the binding library; they stay on in release builds.
#ifndef JSBINDING_V8_ASSERT_H_
#define JSBINDING_V8_ASSERT_H_

#include <cstdio>
#include <cstdlib>

namespace vx::internal {

// Flushes standard output first: what was printed before must arrive, even through a pipe.
[[noreturn]] inline void FailAssertion(const char* expression, const char* file, int line) {
  std::fflush(stdout);
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expression, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace vx::internal

// Ends the process if `expression` is false; its text is printed as it is written.
#define VX_ASSERT_IN(expression, file) \
  ((expression) ? static_cast<void>(0) : ::vx::internal::FailAssertion(#expression, file, __LINE__))

#define VX_ASSERT(expression) VX_ASSERT_IN(expression, "js-binding/include/jsbinding/v8/class")

#endif  // JSBINDING_V8_ASSERT_H_
