// Writing of log messages.
#include "Common/Def/Log.h"

#include <cstdarg>
#include <cstdio>

namespace nq::engine {

void PrintLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
}

}  // namespace nq::engine
