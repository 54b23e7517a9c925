// How a failed assertion ends the process.
#include "Common/Def/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace nq::engine {

void FailAssertion(const char* expression, const char* file, int line) {
  std::fflush(stdout);
  std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expression, file, line);
  std::fflush(stderr);
  std::abort();
}

}  // namespace nq::engine
