// A crowd of animated characters for benchmarks: clips of 4 seconds, of which every character plays
// some at times of its own.
#ifndef NQ_BENCH_NATIVE_CROWD_H_
#define NQ_BENCH_NATIVE_CROWD_H_

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "Engine/Animation/AnimationRecord.h"
#include "bench/native/AnimationPeer.h"
#include "bench/native/BenchScene.h"

namespace nq::bench {

constexpr uint32_t kCrowdBones = 50;
constexpr uint32_t kCrowdClips = 3;
constexpr uint32_t kCrowdFramesPerSecond = 30;
constexpr uint32_t kCrowdClipFrames = 120;  // one key per frame, and one at the end

// The bytes of a clip. Each bone swings about its own axis; the hips also move. `clip` makes the
// motion of each clip different.
std::vector<uint8_t> CrowdClipBytes(uint32_t clip);

// The clips and the skeleton of a character for another runtime.
PeerModel CrowdModel();

// Times in frames, spread over a clip, none of them a whole frame; and the one of a clip that a
// character plays in frame `number`.
float CrowdMoment(uint64_t number);
float CrowdMoment(uint64_t number, uint32_t character, uint32_t played);

// The weight of a played clip.
float CrowdWeight(uint32_t played);

// Reports the measured time per bone. `bones` is the number per iteration.
void ReportBones(benchmark::State& state, uint32_t bones);

// Characters under one root, each with an animator and a skinning component. All share the clips
// and the bones model. A character plays the clips from the one of its own number on.
class Crowd {
 public:
  Crowd(uint32_t characters, uint32_t clipsPlayed);
  ~Crowd();
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  // Sets what every character plays, as the script would before a frame.
  void SetTimes(uint64_t number, bool whole);

  void Animate();
  void RefreshWorld() { core->RefreshWorldTransform(); }
  void Skin();

  uint32_t BoneCount() const { return static_cast<uint32_t>(records.size()) * kCrowdBones; }
  const float* WorldMatrix(uint32_t character, uint32_t bone) const;

 private:
  void AddAnimator(uint32_t character);
  void AddSkin(uint32_t character);

  BenchScene scene;
  engine::EngineCore* const core;
  const uint32_t played;  // clips per character
  uint32_t bonesModel = 0;
  std::vector<uint32_t> clips;
  std::vector<uint32_t> animators;
  std::vector<uint32_t> skins;
  std::vector<engine::AnimatorClipRecord*> records;  // by character
};

}  // namespace nq::bench

#endif  // NQ_BENCH_NATIVE_CROWD_H_
