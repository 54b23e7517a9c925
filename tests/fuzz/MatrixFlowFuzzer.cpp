// Fuzzes command buffers against the reference: bytes are the decisions of a random run.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  nq::engine::Choices choices(data, size);
  nq::engine::PlayTally tally;
  const std::string problem = nq::engine::PlayMatrixFlow(&choices, &tally);
  if (!problem.empty()) {
    std::fprintf(stderr, "%s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
