// The interface by which the benchmarks drive another native animation runtime.
//
// No other runtime is part of this project. Whoever has one writes an adapter, which implements
// AnimationPeer and defines CreateAnimationPeer, and builds with
//   npm run bench -- --peer ADAPTER.cpp
// bench/native/peer/PlainPeer.cpp is an example, in plain scalar C++.
#ifndef NQ_BENCH_NATIVE_ANIMATIONPEER_H_
#define NQ_BENCH_NATIVE_ANIMATIONPEER_H_

#include <cstdint>
#include <memory>
#include <vector>

namespace nq::bench {

// A clip as keys at equal distances: of each key all bones, of each bone 7 numbers: a unit
// quaternion x, y, z, w, and a position. Scales are 1.
struct PeerClip {
  static constexpr uint32_t kNumbers = 7;

  uint32_t keys = 0;
  float keysPerSecond = 0;
  std::vector<float> numbers;
};

// What all characters have in common. Parents come before their children; that of a root is
// 0xFFFFFFFF. Inverse bind matrices are 4x4, column-major.
struct PeerModel {
  std::vector<uint32_t> parents;
  std::vector<PeerClip> clips;
  std::vector<float> inverseBinds;
};

// Evaluates a character at a time on the calling thread. Each character has poses and matrices of
// its own, so that a crowd exceeds the caches as it does elsewhere.
class AnimationPeer {
 public:
  virtual ~AnimationPeer() = default;

  virtual void Prepare(const PeerModel& model, uint32_t characters) = 0;

  // Samples a clip at a number of seconds within it, into pose 0 or 1 of a character.
  virtual void Sample(uint32_t character, uint32_t pose, uint32_t clip, float seconds) = 0;

  // Blends pose 1 into pose 0, which keeps 1 - share.
  virtual void Blend(uint32_t character, float share) = 0;

  // Matrices of all bones in the space of the character, of pose 0.
  virtual void ComputeMatrices(uint32_t character) = 0;

  // These times the inverse bind matrices.
  virtual void ComputeSkin(uint32_t character) = 0;

  // The results, 4x4, column-major, for a comparison with the module's.
  virtual void ReadMatrix(uint32_t character, uint32_t bone, float* out) const = 0;
  virtual void ReadSkin(uint32_t character, uint32_t bone, float* out) const = 0;
};

std::unique_ptr<AnimationPeer> CreateAnimationPeer();

}  // namespace nq::bench

#endif  // NQ_BENCH_NATIVE_ANIMATIONPEER_H_
