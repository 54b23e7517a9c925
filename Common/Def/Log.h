// Log lines on standard output: two writes a line, the tag and then the message.
#ifndef NQ_COMMON_DEF_LOG_H_
#define NQ_COMMON_DEF_LOG_H_

#include "Common/Def/Platform.h"

namespace nq::engine {

// printf to standard output, by one write. A function of its own: where printf itself stands, a
// compiler may put in puts, which writes a line feed apart.
void PrintLog(const char* format, ...) NQ_PRINTF_FORMAT(1, 2);

}  // namespace nq::engine

// Prints a tag such as "[NQ_WARN][Engine]: " and then a printf-style message, by one write each.
// The message brings its own line feed, where it has one. Any thread; the two writes of one line
// may be parted by another thread's.
//
// A macro, so that the compiler checks the format against its arguments at the place of use.
#define NQ_LOG(tag, ...)                 \
  do {                                   \
    ::nq::engine::PrintLog("%s", tag);   \
    ::nq::engine::PrintLog(__VA_ARGS__); \
  } while (false)

#endif  // NQ_COMMON_DEF_LOG_H_
