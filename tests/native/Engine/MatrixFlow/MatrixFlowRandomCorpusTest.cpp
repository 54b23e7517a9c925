// The corpus of random command buffers, in the engine and in the reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "tests/native/Engine/Entity/World.h"
#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

namespace nq::engine {
namespace {

// The fuzzer's corpus, and mutations of it, for compilers without a fuzzer. The path is relative to
// the root, where the suites run.
TEST(MatrixFlowRandomCorpusTest, TheCorpusAndItsMutationsMatchTheReference) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator("tests/fuzz/corpus/matrixflow")) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_LE(20u, files.size());
  const int mutations = Rounds(120);
  std::mt19937 random(20250301);
  PlayTally tally;
  for (const std::filesystem::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> original((std::istreambuf_iterator<char>(file)),
                                        std::istreambuf_iterator<char>());
    ASSERT_FALSE(original.empty()) << path;
    for (int mutation = 0; mutation <= mutations; ++mutation) {
      std::vector<uint8_t> bytes = original;
      // The first one is the unchanged file.
      for (int change = mutation == 0 ? 0 : 1 + mutation % 8; change > 0; --change) {
        const size_t at = random() % bytes.size();
        const uint8_t value = static_cast<uint8_t>(random() >> 24);
        switch (random() % 3) {
          case 0:
            bytes[at] = value;
            break;
          case 1:
            bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), value);
            break;
          default:
            bytes[at] = static_cast<uint8_t>(bytes[at] + 1);
            break;
        }
      }
      Choices choices(bytes.data(), bytes.size());
      ASSERT_EQ("", PlayMatrixFlow(&choices, &tally)) << path << " mutation " << mutation;
    }
  }
  EXPECT_LT(files.size(), tally.runs);
}

}  // namespace
}  // namespace nq::engine
