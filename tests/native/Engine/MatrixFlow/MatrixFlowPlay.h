// Random command buffers and operations on them, for tests and for fuzzing.
#ifndef NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWPLAY_H_
#define NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWPLAY_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/native/Engine/MatrixFlow/MatrixFlowScene.h"

namespace nq::engine {

// A source of decisions: a generator, or bytes, followed by zeros when they are used up. A decision
// between at most 256 takes one byte, any other four.
class Choices {
 public:
  explicit Choices(uint32_t seed) : random(seed), isRandom(true) {}
  Choices(const uint8_t* data, size_t size) : bytes(data, data + size), isRandom(false) {}

  uint32_t Below(uint32_t count) { return count <= 256 ? Byte() % count : Word() % count; }
  bool Chance(uint32_t percent) { return Below(100) < percent; }
  uint32_t Word();
  template <typename T>
  T Of(const std::vector<T>& values) {
    return values[Below(static_cast<uint32_t>(values.size()))];
  }

  // The bytes that reproduce the same decisions.
  const std::vector<uint8_t>& Made() const { return made; }

 private:
  uint8_t Byte();

  std::mt19937 random;
  std::vector<uint8_t> bytes;
  bool isRandom;
  size_t used = 0;
  std::vector<uint8_t> made;
};

// Statistics of all runs so far.
struct PlayTally {
  uint32_t runs = 0;
  uint32_t undefined = 0;  // games that ended at a run without a defined result
  std::map<int32_t, uint32_t> codes;
  std::map<int32_t, uint32_t> performed;  // commands by type
  uint32_t selfWrites = 0;
  uint32_t slackWrites = 0;
  uint32_t reentries = 0;
  uint32_t wraps = 0;
  uint32_t resizes = 0;
};

// One random run: some blocks and buffers with random content, then a few executions with changes
// in between. Returns the first difference between the engine and the reference, or an empty
// string.
std::string PlayMatrixFlow(Choices* choices, PlayTally* tally);

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWPLAY_H_
