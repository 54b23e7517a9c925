// Log messages on standard output: two writes each, the tag and then the message.
#ifndef NQ_COMMON_DEF_LOG_H_
#define NQ_COMMON_DEF_LOG_H_

#include "Common/Def/Platform.h"

namespace nq::engine {

// printf to standard output, in one write. Not inlined: a compiler may replace printf by puts,
// which writes the line feed separately.
void PrintLog(const char* format, ...) NQ_PRINTF_FORMAT(1, 2);

}  // namespace nq::engine

// Prints a tag such as "[NQ_WARN][Engine]: " and then a printf-style message, in one write each.
// The message includes its own line feed, if it has one. Any thread; another thread may write
// between the two.
//
// A macro, so that the compiler checks the format string against its arguments at the call.
#define NQ_LOG(tag, ...)                 \
  do {                                   \
    ::nq::engine::PrintLog("%s", tag);   \
    ::nq::engine::PrintLog(__VA_ARGS__); \
  } while (false)

#endif  // NQ_COMMON_DEF_LOG_H_
