// The operations of animation scenes.
#include "tests/native/Engine/Animation/AnimationScene.h"

#include <cmath>
#include <cstring>

#include "tests/native/Common/Def/ChildProcess.h"

namespace nq::engine {

namespace {

void StoreWord(uint8_t* block, size_t offset, uint32_t word) {
  std::memcpy(block + offset, &word, 4);
}

void StoreFloat(uint8_t* block, size_t offset, float value) {
  std::memcpy(block + offset, &value, 4);
}

}  // namespace

AnimationScene::~AnimationScene() {
  for (const auto& animator : animators) {
    Core()->ReleaseAnimatorComponent(animator.first);
  }
  for (const auto& skinning : skinnings) {
    Core()->ReleaseSkinningMatrixComponent(skinning.first);
  }
  for (const auto& clip : clips) {
    Core()->ReleaseAnimationClipModel(clip.first);
  }
  for (const auto& bones : bonesModels) {
    Core()->ReleaseSkeletonBonesInverseModel(bones.first);
  }
}

uint32_t AnimationScene::AddClip(const std::vector<uint8_t>& bytes) {
  const uint32_t clip =
      Core()->CreateAnimationClipModel(bytes.data(), static_cast<uint32_t>(bytes.size()));
  clips[clip] = true;
  return clip;
}

uint32_t AnimationScene::AddBones(const std::vector<float>& matrices) {
  const uint32_t bones =
      Core()->CreateSkeletonBonesInverseModel(reinterpret_cast<const uint8_t*>(matrices.data()),
                                              static_cast<uint32_t>(matrices.size() * 4));
  bonesModels[bones] = true;
  return bones;
}

void AnimationScene::ReleaseClip(uint32_t clip) {
  clips.erase(clip);
  Core()->ReleaseAnimationClipModel(clip);
}

void AnimationScene::ReleaseBones(uint32_t bones) {
  bonesModels.erase(bones);
  Core()->ReleaseSkeletonBonesInverseModel(bones);
}

uint32_t AnimationScene::AddAnimator(uint32_t clipCount, uint32_t entityCount) {
  const NativeValueInfo info = Core()->CreateAnimatorComponent(clipCount, entityCount);
  animators[info.handle] = Component{static_cast<uint8_t*>(info.pointer), clipCount};
  return info.handle;
}

uint32_t AnimationScene::AddSkinning(uint32_t count) {
  const NativeValueInfo info = Core()->CreateSkinningMatrixComponent(count);
  skinnings[info.handle] = Component{static_cast<uint8_t*>(info.pointer), count};
  return info.handle;
}

uint32_t AnimationScene::AddAnimator(const std::vector<Play>& plays,
                                     const std::vector<uint32_t>& targets) {
  const uint32_t animator =
      AddAnimator(static_cast<uint32_t>(plays.size()), static_cast<uint32_t>(targets.size()));
  for (uint32_t i = 0; i < plays.size(); ++i) {
    SetPlay(animator, i, plays[i]);
  }
  for (uint32_t i = 0; i < targets.size(); ++i) {
    SetTarget(animator, i, targets[i]);
  }
  return animator;
}

void AnimationScene::SetPlay(uint32_t animator, uint32_t place, const Play& play) {
  uint8_t* block = BlockOf(animator);
  StoreWord(block, size_t{12} * place, play.clip);
  StoreFloat(block, size_t{12} * place + 4, play.time);
  StoreFloat(block, size_t{12} * place + 8, play.weight);
}

void AnimationScene::SetTarget(uint32_t animator, uint32_t place, uint32_t handle) {
  StoreWord(BlockOf(animator), size_t{12} * animators.at(animator).count + size_t{4} * place,
            handle);
}

void AnimationScene::SetBone(uint32_t skinning, uint32_t place, uint32_t index, uint32_t entity) {
  StoreWord(SkinningBlockOf(skinning), 4 + size_t{4} * place, index);
  StoreWord(SkinningBlockOf(skinning), 4 + size_t{4} * (skinnings.at(skinning).count + place),
            entity);
}

void AnimationScene::SetBones(uint32_t skinning, uint32_t bones) {
  StoreWord(SkinningBlockOf(skinning), 0, bones);
}

const float* AnimationScene::ResultsOf(uint32_t skinning) {
  return reinterpret_cast<const float*>(SkinningBlockOf(skinning) + 4 +
                                        size_t{8} * skinnings.at(skinning).count);
}

uint32_t AnimationScene::FirstTargetOf(uint32_t animator) {
  const Entity* first = Animation()->FindAnimatorComponent(animator)->firstTarget;
  return first == nullptr ? 0 : first->handle;
}

std::vector<ReferenceCurve> Constants(uint32_t target, uint32_t firstType,
                                      const std::vector<float>& values) {
  std::vector<ReferenceCurve> curves;
  for (uint32_t i = 0; i < values.size(); ++i) {
    if (!std::isnan(values[i])) {
      curves.push_back(Constant(target, firstType + i, values[i]));
    }
  }
  return curves;
}

std::vector<ReferenceCurve> operator+(std::vector<ReferenceCurve> a,
                                      const std::vector<ReferenceCurve>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

::testing::AssertionResult SameSample(const ReferenceSample& expected, const ClipSample& actual) {
  if (expected.isQuaternion != actual.isQuaternion) {
    return ::testing::AssertionFailure() << "isQuaternion is " << actual.isQuaternion;
  }
  return SameFloats(expected.channel, actual.channel, kReferenceChannels);
}

::testing::AssertionResult SameSamples(const ReferenceSamples& expected, const SampleMap& actual) {
  if (expected.size() != actual.Size()) {
    return ::testing::AssertionFailure()
           << actual.Size() << " samples instead of " << expected.size();
  }
  uint32_t i = 0;
  for (const auto& [target, sample] : expected) {
    if (actual.Target(i) != target) {
      return ::testing::AssertionFailure()
             << "sample " << i << " is of target " << actual.Target(i) << ", not of " << target;
    }
    const ::testing::AssertionResult same = SameSample(sample, actual.Sample(i));
    if (!same) {
      return ::testing::AssertionFailure() << "target " << target << ": " << same.message();
    }
    if (actual.Find(target) != &actual.Sample(i)) {
      return ::testing::AssertionFailure() << "target " << target << " is not found";
    }
    ++i;
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult EndsWith(const std::string& out, const std::string& source, int line,
                                    const std::function<void()>& body) {
  const ChildResult child = RunInChild(body);
  const std::string err =
      "Assertion failed: 0, file " + source + ", line " + std::to_string(line) + "\n";
  if (!child.Aborted()) {
    return ::testing::AssertionFailure() << "ended with status " << child.status;
  }
  if (child.out != out) {
    return ::testing::AssertionFailure() << "standard output is \"" << child.out << "\"";
  }
  if (child.err != err) {
    return ::testing::AssertionFailure() << "standard error is \"" << child.err << "\"";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace nq::engine
