// The operations of stages.
#include "tests/native/Engine/Animation/AnimatorStage.h"

#include <algorithm>
#include <cstring>

namespace nq::engine {

namespace {

// Records differ only in the payload of NaNs.
bool SameRecords(bool isThreeD, const uint8_t* expected, const uint8_t* actual) {
  size_t offset = 0;
  if (isThreeD) {
    if (std::memcmp(expected, actual, 4) != 0) {
      return false;
    }
    offset = 4;
  }
  float a[26];
  float b[26];
  const size_t bytes = (isThreeD ? 108 : 56) - offset;
  std::memcpy(a, expected + offset, bytes);
  std::memcpy(b, actual + offset, bytes);
  return static_cast<bool>(SameFloats(a, b, bytes / 4));
}

}  // namespace

uint32_t AnimatorStage::Add(bool isThreeD, int32_t count) {
  const uint32_t key = isThreeD ? scene.Add3D(count) : scene.Add2D(count);
  EXPECT_EQ(key, isThreeD ? plain.Add3D(count) : plain.Add2D(count));
  batches[key] = count;
  for (int32_t i = 0; i < count; ++i) {
    handles.push_back(key + static_cast<uint32_t>(i));
  }
  return key;
}

void AnimatorStage::Release(uint32_t key) {
  scene.Release(key);
  plain.Release(key);
  batches.erase(key);
  handles.erase(std::remove_if(handles.begin(), handles.end(),
                               [key](uint32_t handle) { return HandleKey(handle) == key; }),
                handles.end());
}

void AnimatorStage::Command(std::initializer_list<uint32_t> words) {
  scene.Command(words);
  plain.Command(words);
}

void AnimatorStage::RunCommands() {
  scene.RunCommands();
  plain.RunCommands();
}

void AnimatorStage::Refresh() {
  scene.Refresh();
  plain.Refresh();
}

void AnimatorStage::WriteRecord(uint32_t handle, AnimationRandom* random) {
  uint8_t* record = scene.At(handle).sharedRecord();
  const bool isThreeD = scene.At(handle).isThreeD();
  if (isThreeD) {
    record[0] = random->OneOf<uint8_t>({0, 1, 1, 2, 0xFF});
    std::memset(record + 1, static_cast<int>(random->Below(256)), 3);
  }
  const size_t from = isThreeD ? 4 : 0;
  const size_t size = isThreeD ? 44 : 20;
  for (size_t offset = from; offset < size; offset += 4) {
    const float number = random->Real(-2, 2);
    std::memcpy(record + offset, &number, 4);
  }
  std::memcpy(plain.At(handle).sharedRecord(), record, size);
  scene.Dirty(handle);
  plain.Dirty(handle);
}

void AnimatorStage::Populate(AnimationRandom* random, uint32_t batchCount) {
  for (uint32_t b = 0; b < batchCount; ++b) {
    const int32_t count = static_cast<int32_t>(1 + random->Below(7));
    const uint32_t key = Add(random->Chance(75), count);
    for (int32_t i = 0; i < count; ++i) {
      const uint32_t handle = key + static_cast<uint32_t>(i);
      WriteRecord(handle, random);
      // Parents are older, so that there are no cycles.
      const size_t older =
          static_cast<size_t>(std::find(handles.begin(), handles.end(), handle) - handles.begin());
      if (older != 0 && random->Chance(60)) {
        Command({2, handles[random->Below(static_cast<uint32_t>(older))], handle});
      }
      if (random->Chance(35)) {
        Command({1, handle});
      }
      if (random->Chance(8)) {
        Command({11, handle});
      }
    }
  }
  Refresh();
}

uint32_t AnimatorStage::AddClip(const std::vector<uint8_t>& bytes) {
  const uint32_t clip = scene.AddClip(bytes);
  clips.erase(clip);
  clips.emplace(clip, ReferenceClip(bytes));
  return clip;
}

AnimatorStage::Animator AnimatorStage::AddAnimator(const std::vector<AnimationScene::Play>& plays,
                                                   const std::vector<uint32_t>& targets) {
  return Animator{scene.AddAnimator(plays, targets), plays, targets};
}

void AnimatorStage::SetPlays(Animator* animator, const std::vector<AnimationScene::Play>& plays) {
  animator->plays = plays;
  for (uint32_t i = 0; i < plays.size(); ++i) {
    scene.SetPlay(animator->handle, i, plays[i]);
  }
}

void AnimatorStage::Expect(const Animator& animator) {
  std::vector<ReferencePlay> plays;
  for (const AnimationScene::Play& play : animator.plays) {
    plays.push_back(ReferencePlay{&clips.at(play.clip), play.time, play.weight});
  }
  expectedFirst = 0;
  for (const ReferenceWrite& write : ReferenceUpdate(plays, animator.targets)) {
    Entity* entity = plain.System()->FindEntity(write.handle);
    if (entity == nullptr) {
      continue;
    }
    ReferenceApply(write.sample, entity->isThreeD(), entity->sharedRecord());
    entity->UpdateLocalMatrix();
    entity->PropagateMarkDirty(false);
    expectedFirst = expectedFirst == 0 ? write.handle : expectedFirst;
  }
  if (expectedFirst == 0) {
    return;
  }
  uint32_t top = expectedFirst;
  while (plain.ParentOf(top) != 0) {
    top = plain.ParentOf(top);
  }
  const std::vector<uint32_t> roots = plain.Roots();
  if (std::find(roots.begin(), roots.end(), top) == roots.end()) {
    plain.At(top).UpdateTree();
  }
}

::testing::AssertionResult AnimatorStage::Agree() {
  for (const uint32_t handle : handles) {
    const Entity& expected = plain.At(handle);
    const Entity& actual = scene.At(handle);
    if (!SameRecords(expected.isThreeD(), expected.sharedRecord(), actual.sharedRecord())) {
      return ::testing::AssertionFailure() << "record of " << handle;
    }
    ::testing::AssertionResult same = SameFloats(expected.localMatrix(), actual.localMatrix(), 16);
    if (!same) {
      return ::testing::AssertionFailure() << "local of " << handle << ": " << same.message();
    }
    same = SameFloats(expected.worldMatrix(), actual.worldMatrix(), 16);
    if (!same) {
      return ::testing::AssertionFailure() << "world of " << handle << ": " << same.message();
    }
    if (expected.dirtyState() != actual.dirtyState()) {
      return ::testing::AssertionFailure() << "mark of " << handle << " is " << actual.dirtyState();
    }
    if (expected.worldVersion() != actual.worldVersion() ||
        expected.localVersion() != actual.localVersion()) {
      return ::testing::AssertionFailure() << "versions of " << handle;
    }
  }
  if (scene.DirtyList() != plain.DirtyList()) {
    return ::testing::AssertionFailure() << "dirty list";
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult AnimatorStage::AgreeOnFirst(const Animator& animator) {
  const uint32_t first = scene.FirstTargetOf(animator.handle);
  return first == expectedFirst
             ? ::testing::AssertionSuccess()
             : ::testing::AssertionFailure() << "first is " << first << ", not " << expectedFirst;
}

uint32_t AnimatorStage::AnyTarget(AnimationRandom* random) {
  if (handles.empty() || random->Chance(7)) {
    return random->OneOf({0u, 0xFFFFFFFFu, 0x7000FFFu, HandleKey(random->Bits() >> 8) | 0xFFEu});
  }
  return handles[random->Below(static_cast<uint32_t>(handles.size()))];
}

}  // namespace nq::engine
