// Fuzzes clips, target lists or entity streams against the reference models: NQ_FUZZ_PLAY is the
// run whose decisions the bytes are.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/native/Engine/Fuzz/FuzzPlays.h"

namespace {

// Comparisons inside the scenes of the tests end the process, too, in a way that keeps the input.
class EndOnFailure : public ::testing::EmptyTestEventListener {
  void OnTestPartResult(const ::testing::TestPartResult& result) override {
    if (result.failed()) {
      std::fprintf(stderr, "%s\n", result.message());
      std::abort();
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  ::testing::InitGoogleTest(argc, *argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new EndOnFailure);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  bool used = false;
  const std::string problem = nq::engine::NQ_FUZZ_PLAY(data, size, &used);
  if (!problem.empty()) {
    std::fprintf(stderr, "%s\n", problem.c_str());
    std::abort();
  }
  // -1: not to be kept in the corpus.
  return used ? 0 : -1;
}
