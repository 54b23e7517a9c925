// Animation on one thread: sampling of clips, updates of animators, skinning, and the phases of a
// frame. "bone" is the time per bone.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/ClipFormat.h"
#include "bench/native/BenchScene.h"

namespace nq::bench {
namespace {

using engine::AnimationClipModel;
using engine::AnimatorClipRecord;
using engine::NativeValueInfo;
using engine::SampleMap;

constexpr uint32_t kBones = 50;
constexpr uint32_t kFramesPerSecond = 30;
constexpr uint32_t kClipFrames = 120;  // 4 seconds; one key per frame, and one at the end
constexpr uint32_t kKeys = kClipFrames + 1;
constexpr uint32_t kClips = 3;
constexpr double kPi = 3.14159265358979323846;

// A number and its slope per second.
struct Motion {
  double value;
  double slope;
};

// The bytes of a clip. Each bone swings about its own axis; the hips also move. `clip` makes the
// motion of each clip different.
std::vector<uint8_t> ClipBytes(uint32_t clip) {
  std::vector<engine::ClipCurve> curves;
  std::vector<engine::ClipKey> keys;
  const auto addCurve = [&](uint32_t bone, engine::SampleType type, auto motionAt) {
    curves.push_back(engine::ClipCurve{bone, type, kKeys});
    for (uint32_t frame = 0; frame < kKeys; ++frame) {
      const Motion motion = motionAt(static_cast<double>(frame) / kFramesPerSecond);
      const float slope = static_cast<float>(motion.slope);
      keys.push_back(engine::ClipKey{frame, static_cast<float>(motion.value), slope, slope});
    }
  };
  const double seconds = static_cast<double>(kClipFrames) / kFramesPerSecond;
  for (uint32_t bone = 0; bone < kBones; ++bone) {
    const double turns = 2.0 * kPi * (1 + (bone + clip) % 3) / seconds;
    const double phase = 0.7 * bone + 1.3 * clip;
    const double reach = 0.3 + 0.02 * (bone % 10);
    const auto halfAngle = [=](double time) {
      return Motion{reach * std::sin(turns * time + phase),
                    reach * turns * std::cos(turns * time + phase)};
    };
    const double axis[3] = {0.6, 0.48 * (bone % 2 == 0 ? 1.0 : -1.0), 0.64};
    const engine::SampleType imaginary[3] = {engine::kQuaternionX, engine::kQuaternionY,
                                             engine::kQuaternionZ};
    for (int i = 0; i < 3; ++i) {
      const double along = axis[i];
      addCurve(bone, imaginary[i], [=](double time) {
        const Motion half = halfAngle(time);
        return Motion{along * std::sin(half.value), along * std::cos(half.value) * half.slope};
      });
    }
    addCurve(bone, engine::kQuaternionW, [=](double time) {
      const Motion half = halfAngle(time);
      return Motion{std::cos(half.value), -std::sin(half.value) * half.slope};
    });
  }
  for (const engine::SampleType type :
       {engine::kPositionX, engine::kPositionY, engine::kPositionZ}) {
    addCurve(0, type, [=](double time) {
      const double turns = 2.0 * kPi * type / seconds;
      return Motion{0.1 * std::sin(turns * time), 0.1 * turns * std::cos(turns * time)};
    });
  }

  const uint32_t curveBytes = static_cast<uint32_t>(curves.size() * sizeof(curves[0]));
  const engine::ClipHeader header{static_cast<uint32_t>(sizeof(engine::ClipHeader)) + curveBytes,
                                  static_cast<float>(kFramesPerSecond), kClipFrames,
                                  static_cast<uint32_t>(curves.size())};
  std::vector<uint8_t> bytes(header.keyDataOffset + keys.size() * sizeof(keys[0]));
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + sizeof(header), curves.data(), curveBytes);
  std::memcpy(bytes.data() + header.keyDataOffset, keys.data(), keys.size() * sizeof(keys[0]));
  return bytes;
}

double Now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(time).count();
}

// Reports the measured time per bone. `bones` is the number per iteration.
void ReportBones(benchmark::State& state, uint32_t bones) {
  const double all = static_cast<double>(state.iterations()) * bones;
  state.counters["bone"] =
      benchmark::Counter(all, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// Times spread over a clip, none of them a whole frame.
float MomentOf(uint64_t number) {
  return static_cast<float>(number * 37 % kClipFrames) + 0.3125f;
}

void BM_SampleAtTime(benchmark::State& state) {
  const std::vector<uint8_t> bytes = ClipBytes(0);
  AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
  SampleMap samples;
  uint64_t number = 0;
  for (auto _ : state) {
    model.SampleAtTime(MomentOf(number++), &samples);
    benchmark::DoNotOptimize(samples.Sample(0).channel);
    benchmark::ClobberMemory();
  }
  ReportBones(state, kBones);
}
BENCHMARK(BM_SampleAtTime);

// All frames are in the cache.
void BM_SampleAtFrame(benchmark::State& state) {
  const std::vector<uint8_t> bytes = ClipBytes(0);
  AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
  for (uint32_t frame = 0; frame < kClipFrames; ++frame) {
    model.SampleAtFrame(frame);
  }
  uint32_t frame = 0;
  for (auto _ : state) {
    frame += 37;
    const SampleMap& samples = model.SampleAtFrame(frame);
    benchmark::DoNotOptimize(samples.Sample(0).channel);
  }
  ReportBones(state, kBones);
}
BENCHMARK(BM_SampleAtFrame);

// Characters under one root, each with an animator and a skinning component. All share the clips
// and the bones model; each is at a different time.
class Crowd {
 public:
  Crowd(uint32_t characters, uint32_t clipsPlayed)
      : scene(Shape::kHumanoids, 1 + characters * kBones), core(scene.System()->core) {
    for (uint32_t c = 0; c < kClips; ++c) {
      const std::vector<uint8_t> bytes = ClipBytes(c);
      clips.push_back(
          core->CreateAnimationClipModel(bytes.data(), static_cast<uint32_t>(bytes.size())));
    }
    std::vector<float> inverses(16 * kBones);
    for (uint32_t i = 0; i < inverses.size(); ++i) {
      inverses[i] = 0.01f * static_cast<float>(i % 97);
    }
    bonesModel = core->CreateSkeletonBonesInverseModel(
        reinterpret_cast<const uint8_t*>(inverses.data()),
        static_cast<uint32_t>(inverses.size() * sizeof(float)));
    for (uint32_t character = 0; character < characters; ++character) {
      AddAnimator(character, clipsPlayed);
      AddSkin(character);
    }
  }

  ~Crowd() {
    for (const uint32_t handle : animators) {
      core->ReleaseAnimatorComponent(handle);
    }
    for (const uint32_t handle : skins) {
      core->ReleaseSkinningMatrixComponent(handle);
    }
    core->ReleaseSkeletonBonesInverseModel(bonesModel);
    for (const uint32_t handle : clips) {
      core->ReleaseAnimationClipModel(handle);
    }
  }

  // Sets what every character plays, as the script would before a frame.
  void SetTimes(uint64_t number, bool whole) {
    for (size_t character = 0; character < records.size(); ++character) {
      for (uint32_t c = 0; c < played; ++c) {
        const float moment = MomentOf(number + 7 * character + 3 * c);
        records[character][c].time = whole ? std::floor(moment) : moment;
      }
    }
  }

  void Animate() {
    for (const uint32_t handle : animators) {
      core->UpdateAnimator(handle);
    }
  }

  void RefreshWorld() { core->RefreshWorldTransform(); }

  void Skin() {
    for (const uint32_t handle : skins) {
      core->UpdateSkinningMatrix(handle);
    }
  }

  uint32_t BoneCount() const { return static_cast<uint32_t>(records.size()) * kBones; }

 private:
  void AddAnimator(uint32_t character, uint32_t clipsPlayed) {
    played = clipsPlayed;
    const NativeValueInfo info = core->CreateAnimatorComponent(played, played * kBones);
    AnimatorClipRecord* clipRecords = static_cast<AnimatorClipRecord*>(info.pointer);
    uint32_t* targets = reinterpret_cast<uint32_t*>(clipRecords + played);
    for (uint32_t c = 0; c < played; ++c) {
      clipRecords[c] = AnimatorClipRecord{clips[(character + c) % kClips], 0.0f, 0.3f + 0.2f * c};
      for (uint32_t bone = 0; bone < kBones; ++bone) {
        targets[c * kBones + bone] = scene.Handle(1 + character * kBones + bone);
      }
    }
    animators.push_back(info.handle);
    records.push_back(clipRecords);
  }

  void AddSkin(uint32_t character) {
    const NativeValueInfo info = core->CreateSkinningMatrixComponent(kBones);
    uint32_t* words = static_cast<uint32_t*>(info.pointer);
    words[0] = bonesModel;
    for (uint32_t bone = 0; bone < kBones; ++bone) {
      words[1 + bone] = bone;
      words[1 + kBones + bone] = scene.Handle(1 + character * kBones + bone);
    }
    skins.push_back(info.handle);
  }

  BenchScene scene;
  engine::EngineCore* const core;
  uint32_t played = 0;  // clips per character
  uint32_t bonesModel = 0;
  std::vector<uint32_t> clips;
  std::vector<uint32_t> animators;
  std::vector<uint32_t> skins;
  std::vector<AnimatorClipRecord*> records;  // by character
};

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
