// Another native animation runtime, if its adapter is built in, at the work of the module's
// benchmarks: the crowd of AnimationBench.cpp. "bone" is the time per bone.
#include "bench/native/AnimationPeer.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/native/Crowd.h"

namespace nq::bench {
namespace {

// Greatest difference of a matrix's element from the module's: a bone is up to some metres from the
// character's origin, and clips are interpolated in another way between keys.
constexpr float kTolerance = 0.02f;

enum Stage : int64_t { kSample, kBlend, kMatrices, kSkin, kWhole };

const char* NameOf(int64_t stage) {
  static const char* const kNames[] = {"sample", "blend", "matrices", "skin", "whole frame"};
  return kNames[stage];
}

float Seconds(uint64_t number, uint32_t character, uint32_t played) {
  return CrowdMoment(number, character, played) / static_cast<float>(kCrowdFramesPerSecond);
}

class PeerCrowd {
 public:
  explicit PeerCrowd(uint32_t characters) : characters(characters), peer(CreateAnimationPeer()) {
    peer->Prepare(CrowdModel(), characters);
  }

  void Run(int64_t stage, uint64_t number) {
    for (uint32_t i = 0; i < characters; ++i) {
      if (stage == kSample || stage == kWhole) {
        peer->Sample(i, 0, i % kCrowdClips, Seconds(number, i, 0));
      }
      if (stage == kWhole) {
        peer->Sample(i, 1, (i + 1) % kCrowdClips, Seconds(number, i, 1));
      }
      if (stage == kBlend || stage == kWhole) {
        peer->Blend(i, CrowdWeight(1) / (CrowdWeight(0) + CrowdWeight(1)));
      }
      if (stage == kMatrices || stage == kWhole) {
        peer->ComputeMatrices(i);
      }
      if (stage == kSkin || stage == kWhole) {
        peer->ComputeSkin(i);
      }
    }
  }

  // Ends the process if the peer's matrices of one clip are not the module's. Blends differ: most
  // runtimes take the chord of the arc.
  void RequireAgreement() {
    Run(kSample, 0);
    Run(kMatrices, 0);
    Crowd crowd(characters, 1);
    crowd.SetTimes(0, false);
    crowd.Animate();
    crowd.RefreshWorld();
    for (uint32_t i = 0; i < characters; ++i) {
      for (uint32_t bone = 0; bone < kCrowdBones; ++bone) {
        float matrix[16];
        peer->ReadMatrix(i, bone, matrix);
        for (int element = 0; element < 16; ++element) {
          const float difference = matrix[element] - crowd.WorldMatrix(i, bone)[element];
          if (!(std::fabs(difference) < kTolerance)) {
            std::fprintf(stderr, "peer: element %d of bone %u of character %u differs by %g\n",
                         element, bone, i, static_cast<double>(difference));
            std::exit(1);
          }
        }
      }
    }
  }

  uint32_t BoneCount() const { return characters * kCrowdBones; }

 private:
  const uint32_t characters;
  std::unique_ptr<AnimationPeer> peer;
};

void BM_Peer(benchmark::State& state) {
  PeerCrowd crowd(static_cast<uint32_t>(state.range(0)));
  crowd.RequireAgreement();
  uint64_t number = 0;
  for (auto _ : state) {
    crowd.Run(state.range(1), number++);
    benchmark::ClobberMemory();
  }
  ReportBones(state, crowd.BoneCount());
  state.SetLabel(NameOf(state.range(1)));
}
BENCHMARK(BM_Peer)
    ->ArgNames({"characters", "stage"})
    ->ArgsProduct({{10, 100, 1000}, {kSample, kBlend, kMatrices, kSkin, kWhole}});

}  // namespace
}  // namespace nq::bench
