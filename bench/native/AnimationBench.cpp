// Animation on one thread: sampling of clips, updates of animators, skinning, and the phases of a
// frame. "bone" is the time per bone.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "Engine/Animation/AnimationClipModel.h"
#include "bench/native/Crowd.h"

namespace nq::bench {
namespace {

using engine::AnimationClipModel;
using engine::SampleMap;

double Now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(time).count();
}

void BM_SampleAtTime(benchmark::State& state) {
  const std::vector<uint8_t> bytes = CrowdClipBytes(0);
  AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
  SampleMap samples;
  uint64_t number = 0;
  for (auto _ : state) {
    model.SampleAtTime(CrowdMoment(number++), &samples);
    benchmark::DoNotOptimize(samples.Sample(0).channel);
    benchmark::ClobberMemory();
  }
  ReportBones(state, kCrowdBones);
}
BENCHMARK(BM_SampleAtTime);

// All frames are in the cache.
void BM_SampleAtFrame(benchmark::State& state) {
  const std::vector<uint8_t> bytes = CrowdClipBytes(0);
  AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
  for (uint32_t frame = 0; frame < kCrowdClipFrames; ++frame) {
    model.SampleAtFrame(frame);
  }
  uint32_t frame = 0;
  for (auto _ : state) {
    frame += 37;
    const SampleMap& samples = model.SampleAtFrame(frame);
    benchmark::DoNotOptimize(samples.Sample(0).channel);
  }
  ReportBones(state, kCrowdBones);
}
BENCHMARK(BM_SampleAtFrame);

// range: characters, clips played, whether at whole frames. World matrices are refreshed between
// the updates, so that each update finds its bones unmarked. Neither that nor the writing of times
// is measured.
void BM_UpdateAnimator(benchmark::State& state) {
  Crowd crowd(static_cast<uint32_t>(state.range(0)), static_cast<uint32_t>(state.range(1)));
  uint64_t number = 0;
  for (auto _ : state) {
    crowd.SetTimes(number++, state.range(2) != 0);
    const double start = Now();
    crowd.Animate();
    state.SetIterationTime(Now() - start);
    crowd.RefreshWorld();
  }
  ReportBones(state, crowd.BoneCount());
}

void Playing(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"characters", "clips", "whole"});
  for (const int64_t characters : {10, 100, 1000}) {
    benchmark->Args({characters, 1, 0});
    benchmark->Args({characters, 1, 1});
    benchmark->Args({characters, 2, 0});
    benchmark->Args({characters, 2, 1});
    benchmark->Args({characters, 3, 0});
  }
}
BENCHMARK(BM_UpdateAnimator)->Apply(Playing)->UseManualTime();

void BM_UpdateSkinningMatrix(benchmark::State& state) {
  Crowd crowd(static_cast<uint32_t>(state.range(0)), 1);
  crowd.SetTimes(0, false);
  crowd.Animate();
  crowd.RefreshWorld();
  for (auto _ : state) {
    crowd.Skin();
    benchmark::ClobberMemory();
  }
  ReportBones(state, crowd.BoneCount());
}
BENCHMARK(BM_UpdateSkinningMatrix)->ArgName("characters")->Arg(10)->Arg(100)->Arg(1000);

// A frame of two blended clips, with the time of its phases per bone.
void BM_AnimatedFrame(benchmark::State& state) {
  Crowd crowd(static_cast<uint32_t>(state.range(0)), 2);
  double animate = 0;
  double world = 0;
  double skin = 0;
  uint64_t number = 0;
  for (auto _ : state) {
    crowd.SetTimes(number++, false);
    const double start = Now();
    crowd.Animate();
    const double animated = Now();
    crowd.RefreshWorld();
    const double refreshed = Now();
    crowd.Skin();
    const double end = Now();
    animate += animated - start;
    world += refreshed - animated;
    skin += end - refreshed;
    state.SetIterationTime(end - start);
  }
  const double all = static_cast<double>(state.iterations()) * crowd.BoneCount();
  state.counters["animate"] = animate / all;
  state.counters["world"] = world / all;
  state.counters["skin"] = skin / all;
  ReportBones(state, crowd.BoneCount());
}
BENCHMARK(BM_AnimatedFrame)
    ->ArgName("characters")
    ->Arg(10)
    ->Arg(100)
    ->Arg(500)
    ->Arg(1000)
    ->UseManualTime();

}  // namespace
}  // namespace nq::bench
