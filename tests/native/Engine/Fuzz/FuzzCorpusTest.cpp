// The corpora of the fuzzers and mutations of them, for compilers without a fuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "tests/native/Engine/Entity/World.h"
#include "tests/native/Engine/Fuzz/FuzzPlays.h"

namespace nq::engine {
namespace {

typedef std::string (*FuzzPlay)(const uint8_t* data, size_t size, bool* used);

// Plays all files of a corpus, and mutations of each. The path is relative to the root, where the
// suites run.
void PlayCorpus(const std::string& name, FuzzPlay play) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator("tests/fuzz/corpus/" + name)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  ASSERT_LE(10u, files.size());
  const int mutations = Rounds(9);
  std::mt19937 random(20261122);
  size_t allowed = 0;
  for (const std::filesystem::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> original((std::istreambuf_iterator<char>(file)),
                                        std::istreambuf_iterator<char>());
    for (int mutation = 0; mutation <= mutations; ++mutation) {
      std::vector<uint8_t> bytes = original;
      // The first one is the unchanged file.
      for (int change = mutation == 0 || bytes.empty() ? 0 : 1 + mutation % 3; change > 0;
           --change) {
        bytes[random() % bytes.size()] = static_cast<uint8_t>(random() >> 24);
      }
      bool used = false;
      ASSERT_EQ("", play(bytes.data(), bytes.size(), &used)) << path << " mutation " << mutation;
      allowed += used ? 1 : 0;
    }
  }
  EXPECT_LT(files.size() / 2, allowed);
}

TEST(FuzzCorpusTest, ClipsMatchTheReference) {
  PlayCorpus("clip", PlayClip);
}

TEST(FuzzCorpusTest, TargetListsMatchTheReference) {
  PlayCorpus("targets", PlayTargetLists);
}

TEST(FuzzCorpusTest, EntityStreamsMatchTheReference) {
  PlayCorpus("commands", PlayEntityStreams);
}

}  // namespace
}  // namespace nq::engine
