// Writes the seeds of the fuzzer's corpus: the decisions of random runs, one file each.
//
// Usage: nq_fuzz_matrixflow_seeds FOLDER. For every command and every result code it searches the
// first few thousand runs for the shortest that has it, and adds further runs for special cases.
// The corpus in corpus/matrixflow is its output.
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "tests/native/Engine/MatrixFlow/MatrixFlowPlay.h"

namespace nq::engine {
namespace {

struct Wanted {
  std::string name;
  std::function<bool(const PlayTally&)> isMet;
  std::vector<uint8_t> shortest;
};

bool Has(const std::map<int32_t, uint32_t>& counts, int32_t which) {
  const auto found = counts.find(which);
  return found != counts.end() && found->second != 0;
}

int WriteSeeds(const std::string& folder) {
  std::vector<Wanted> wanted;
  for (const ReferenceCommand& command : kReferenceCommands) {
    const int32_t type = command.type;
    wanted.push_back({"command-" + std::to_string(type),
                      [type](const PlayTally& t) { return Has(t.performed, type); },
                      {}});
  }
  for (int32_t code = 1; code <= 5; ++code) {
    wanted.push_back({"code-" + std::to_string(code),
                      [code](const PlayTally& t) { return Has(t.codes, code); },
                      {}});
  }
  wanted.push_back({"self-write", [](const PlayTally& t) { return t.selfWrites > 1; }, {}});
  wanted.push_back({"slack-write", [](const PlayTally& t) { return t.slackWrites > 0; }, {}});
  wanted.push_back({"reentry", [](const PlayTally& t) { return t.reentries > 0; }, {}});
  wanted.push_back({"wrap", [](const PlayTally& t) { return t.wraps > 0; }, {}});
  wanted.push_back({"resize", [](const PlayTally& t) { return t.resizes > 1; }, {}});
  for (uint32_t seed = 1; seed <= 4000; ++seed) {
    Choices choices(seed);
    PlayTally tally;
    const std::string problem = PlayMatrixFlow(&choices, &tally);
    if (!problem.empty()) {
      std::fprintf(stderr, "seed %u: %s\n", seed, problem.c_str());
      return 1;
    }
    for (Wanted& one : wanted) {
      if (tally.undefined == 0 && one.isMet(tally) &&
          (one.shortest.empty() || choices.Made().size() < one.shortest.size())) {
        one.shortest = choices.Made();
      }
    }
  }
  for (const Wanted& one : wanted) {
    const std::string path = folder + "/" + one.name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (one.shortest.empty() || file == nullptr) {
      std::fprintf(stderr, "nothing for %s\n", path.c_str());
      return 1;
    }
    std::fwrite(one.shortest.data(), 1, one.shortest.size(), file);
    std::fclose(file);
  }
  return 0;
}

}  // namespace
}  // namespace nq::engine

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  return nq::engine::WriteSeeds(argv[1]);
}
