// Clips and characters of a benchmark crowd.
#include "bench/native/Crowd.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/ClipFormat.h"

namespace nq::bench {

namespace {

using engine::AnimatorClipRecord;
using engine::NativeValueInfo;

constexpr uint32_t kKeys = kCrowdClipFrames + 1;
constexpr double kPi = 3.14159265358979323846;

// A number and its slope per second.
struct Motion {
  double value;
  double slope;
};

// Inverse bind matrices of no particular pose.
std::vector<float> InverseBinds() {
  std::vector<float> inverses(16 * kCrowdBones);
  for (uint32_t i = 0; i < inverses.size(); ++i) {
    inverses[i] = 0.01f * static_cast<float>(i % 97);
  }
  return inverses;
}

}  // namespace

std::vector<uint8_t> CrowdClipBytes(uint32_t clip) {
  std::vector<engine::ClipCurve> curves;
  std::vector<engine::ClipKey> keys;
  const auto addCurve = [&](uint32_t bone, engine::SampleType type, auto motionAt) {
    curves.push_back(engine::ClipCurve{bone, type, kKeys});
    for (uint32_t frame = 0; frame < kKeys; ++frame) {
      const Motion motion = motionAt(static_cast<double>(frame) / kCrowdFramesPerSecond);
      const float slope = static_cast<float>(motion.slope);
      keys.push_back(engine::ClipKey{frame, static_cast<float>(motion.value), slope, slope});
    }
  };
  const double seconds = static_cast<double>(kCrowdClipFrames) / kCrowdFramesPerSecond;
  for (uint32_t bone = 0; bone < kCrowdBones; ++bone) {
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
                                  static_cast<float>(kCrowdFramesPerSecond), kCrowdClipFrames,
                                  static_cast<uint32_t>(curves.size())};
  std::vector<uint8_t> bytes(header.keyDataOffset + keys.size() * sizeof(keys[0]));
  std::memcpy(bytes.data(), &header, sizeof(header));
  std::memcpy(bytes.data() + sizeof(header), curves.data(), curveBytes);
  std::memcpy(bytes.data() + header.keyDataOffset, keys.data(), keys.size() * sizeof(keys[0]));
  return bytes;
}

PeerModel CrowdModel() {
  PeerModel model;
  // Without the scene's root, node 0: bone 0 of the first character is node 1.
  for (const uint32_t parent : TreeParents(Shape::kHumanoids, 1 + kCrowdBones)) {
    model.parents.push_back(parent - 1);
  }
  model.parents.erase(model.parents.begin());
  model.inverseBinds = InverseBinds();
  for (uint32_t c = 0; c < kCrowdClips; ++c) {
    const std::vector<uint8_t> bytes = CrowdClipBytes(c);
    engine::ClipHeader header;
    std::memcpy(&header, bytes.data(), sizeof(header));
    std::vector<engine::ClipKey> keys((bytes.size() - header.keyDataOffset) /
                                      sizeof(engine::ClipKey));
    std::memcpy(keys.data(), bytes.data() + header.keyDataOffset, keys.size() * sizeof(keys[0]));
    PeerClip clip;
    clip.keys = kKeys;
    clip.keysPerSecond = static_cast<float>(kCrowdFramesPerSecond);
    // Curves: the four of each bone's quaternion, then the three of the hips' position.
    for (uint32_t key = 0; key < kKeys; ++key) {
      for (uint32_t bone = 0; bone < kCrowdBones; ++bone) {
        for (uint32_t i = 0; i < PeerClip::kNumbers; ++i) {
          const uint32_t curve = i < 4 ? 4 * bone + i : 4 * kCrowdBones + i - 4;
          clip.numbers.push_back(i < 4 || bone == 0 ? keys[curve * kKeys + key].value : 0.0f);
        }
      }
    }
    model.clips.push_back(clip);
  }
  return model;
}

float CrowdMoment(uint64_t number) {
  return static_cast<float>(number * 37 % kCrowdClipFrames) + 0.3125f;
}

float CrowdMoment(uint64_t number, uint32_t character, uint32_t played) {
  return CrowdMoment(number + uint64_t{7} * character + uint64_t{3} * played);
}

float CrowdWeight(uint32_t played) {
  return 0.3f + 0.2f * static_cast<float>(played);
}

void ReportBones(benchmark::State& state, uint32_t bones) {
  const double all = static_cast<double>(state.iterations()) * bones;
  state.counters["bone"] =
      benchmark::Counter(all, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

Crowd::Crowd(uint32_t characters, uint32_t clipsPlayed)
    : scene(Shape::kHumanoids, 1 + characters * kCrowdBones),
      core(scene.System()->core),
      played(clipsPlayed) {
  for (uint32_t c = 0; c < kCrowdClips; ++c) {
    const std::vector<uint8_t> bytes = CrowdClipBytes(c);
    clips.push_back(
        core->CreateAnimationClipModel(bytes.data(), static_cast<uint32_t>(bytes.size())));
  }
  const std::vector<float> inverses = InverseBinds();
  bonesModel =
      core->CreateSkeletonBonesInverseModel(reinterpret_cast<const uint8_t*>(inverses.data()),
                                            static_cast<uint32_t>(inverses.size() * sizeof(float)));
  for (uint32_t character = 0; character < characters; ++character) {
    AddAnimator(character);
    AddSkin(character);
  }
}

Crowd::~Crowd() {
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

void Crowd::SetTimes(uint64_t number, bool whole) {
  for (size_t character = 0; character < records.size(); ++character) {
    for (uint32_t c = 0; c < played; ++c) {
      const float moment = CrowdMoment(number, static_cast<uint32_t>(character), c);
      records[character][c].time = whole ? std::floor(moment) : moment;
    }
  }
}

void Crowd::Animate() {
  for (const uint32_t handle : animators) {
    core->UpdateAnimator(handle);
  }
}

void Crowd::Skin() {
  for (const uint32_t handle : skins) {
    core->UpdateSkinningMatrix(handle);
  }
}

const float* Crowd::WorldMatrix(uint32_t character, uint32_t bone) const {
  return scene.Record(1 + character * kCrowdBones + bone)->worldMatrix;
}

void Crowd::AddAnimator(uint32_t character) {
  const NativeValueInfo info = core->CreateAnimatorComponent(played, played * kCrowdBones);
  AnimatorClipRecord* clipRecords = static_cast<AnimatorClipRecord*>(info.pointer);
  uint32_t* targets = reinterpret_cast<uint32_t*>(clipRecords + played);
  for (uint32_t c = 0; c < played; ++c) {
    clipRecords[c] = AnimatorClipRecord{clips[(character + c) % kCrowdClips], 0.0f, CrowdWeight(c)};
    for (uint32_t bone = 0; bone < kCrowdBones; ++bone) {
      targets[c * kCrowdBones + bone] = scene.Handle(1 + character * kCrowdBones + bone);
    }
  }
  animators.push_back(info.handle);
  records.push_back(clipRecords);
}

void Crowd::AddSkin(uint32_t character) {
  const NativeValueInfo info = core->CreateSkinningMatrixComponent(kCrowdBones);
  uint32_t* words = static_cast<uint32_t*>(info.pointer);
  words[0] = bonesModel;
  for (uint32_t bone = 0; bone < kCrowdBones; ++bone) {
    words[1 + bone] = bone;
    words[1 + kCrowdBones + bone] = scene.Handle(1 + character * kCrowdBones + bone);
  }
  skins.push_back(info.handle);
}

}  // namespace nq::bench
