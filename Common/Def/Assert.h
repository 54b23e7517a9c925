// Assertions that stay on in release builds, and end the process when they fail.
#ifndef NQ_COMMON_DEF_ASSERT_H_
#define NQ_COMMON_DEF_ASSERT_H_

namespace nq::engine {

// Flushes standard output, so that log text printed before arrives even through a pipe, prints
// `Assertion failed: EXPRESSION, file FILE, line N` on standard error and aborts. Any thread.
[[noreturn]] void FailAssertion(const char* expression, const char* file, int line);

}  // namespace nq::engine

// Ends the process if `expression` is false. The message contains the expression as it is written,
// so the names in it are part of the message. `file` is the source's name in the message: path from
// the root, no extension.
#define NQ_ASSERT(expression, file) \
  ((expression) ? static_cast<void>(0) : ::nq::engine::FailAssertion(#expression, file, __LINE__))

// The same with a fixed line number in the message.
#define NQ_ASSERT_AT(expression, file, line) \
  ((expression) ? static_cast<void>(0) : ::nq::engine::FailAssertion(#expression, file, line))

#endif  // NQ_COMMON_DEF_ASSERT_H_
