// Crossfades of characters, whose bones are blended four at a time, against a plain model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/native/Engine/Animation/AnimatorStage.h"

namespace nq::engine {
namespace {

constexpr uint32_t kFirstPosition = 1;
constexpr uint32_t kFirstEuler = 7;
constexpr uint32_t kQuaternionTypes[] = {10, 11, 12, 13};  // w, x, y, z
constexpr uint32_t kNoEntity = 0xFFFFFFFFu;

// A character of two clips with the same targets. Every byte of every entity is compared after each
// update.
class CrossfadingCharacter {
 public:
  explicit CrossfadingCharacter(uint32_t seed) : random(seed) {
    const uint32_t bones = 1 + random.Below(13);
    AddBones(bones);
    const uint32_t moving = random.OneOf({0u, 10u, 100u});
    for (uint32_t& clip : clips) {
      clip = stage.AddClip(ReferenceBytes(30.0f, random.Chance(3) ? 0 : 10, Curves(bones, moving)));
    }
    const std::vector<uint32_t> targets = Targets();
    animator = stage.AddAnimator(Plays(), targets);
  }

  void Step() {
    stage.Update(animator);
    ASSERT_TRUE(stage.AgreeOnFirst(animator));
    ASSERT_TRUE(stage.Agree());
    stage.SetPlays(&animator, Plays());
    if (random.Chance(30)) {
      stage.Refresh();
    }
  }

 private:
  // Mostly one batch of 3D entities; sometimes several, or handles with gaps, or of other entities.
  void AddBones(uint32_t count) {
    const bool isOneBatch = random.Chance(60);
    while (handles.size() < count) {
      const uint32_t rest = count - static_cast<uint32_t>(handles.size());
      const uint32_t length = isOneBatch ? rest : 1 + random.Below(rest);
      const bool isThreeD = isOneBatch || random.Chance(85);
      const uint32_t gap = isOneBatch ? 0 : random.Below(2);
      const uint32_t key = stage.Add(isThreeD, static_cast<int32_t>(length + gap));
      for (uint32_t i = 0; i < length; ++i) {
        handles.push_back(key + gap + i);
      }
      if (!isOneBatch && random.Chance(10)) {
        stage.Release(key);
      }
    }
    if (random.Chance(10)) {
      handles.back() = kNoEntity;
    }
    std::sort(handles.begin(), handles.end());
    for (const uint32_t handle : stage.Entities()) {
      stage.WriteRecord(handle, &random);
    }
    stage.Refresh();
  }

  // Mostly the same ascending handles twice.
  std::vector<uint32_t> Targets() {
    std::vector<uint32_t> first = handles;
    const uint32_t kind = random.Below(100);
    if (kind < 8) {
      std::rotate(first.begin(), first.begin() + 1, first.end());
    } else if (kind < 16) {
      first[random.Below(static_cast<uint32_t>(first.size()))] = first[0];
    }
    std::vector<uint32_t> second = first;
    if (kind >= 90) {
      second.back() = stage.Add(true, 1);
    } else if (kind >= 86) {
      second.pop_back();
    }
    first.insert(first.end(), second.begin(), second.end());
    return first;
  }

  std::vector<ReferenceCurve> Curves(uint32_t bones, uint32_t moving) {
    std::vector<ReferenceCurve> curves;
    const bool isOdd = random.Chance(10);
    for (uint32_t target = 0; target < bones; ++target) {
      const auto add = [&](uint32_t type) {
        const auto value = [&] { return isOdd ? random.Odd(-1, 1) : random.Real(-1, 1); };
        curves.push_back({target, type, {Flat(0, value()), Flat(9, value())}});
      };
      // A track without keys carries its bone along.
      curves.push_back({target, kFirstPosition, {}});
      const uint32_t kind = random.Below(100);
      if (kind < 3) {
        add(kFirstEuler);
      } else if (kind < 96) {
        std::for_each(std::begin(kQuaternionTypes), std::end(kQuaternionTypes), add);
      } else if (kind < 98) {
        add(kQuaternionTypes[0]);
      }
      for (uint32_t type = kFirstPosition; type < kFirstPosition + 6; ++type) {
        if (random.Chance(moving)) {
          add(type);
        }
      }
    }
    return curves;
  }

  std::vector<AnimationScene::Play> Plays() {
    const auto play = [this](uint32_t clip) {
      const float weight = random.OneOf({1.0f, 0.25f, 1e-45f, random.Real(0, 1)});
      return AnimationScene::Play{clip, random.OneOf({0.0f, 9.0f, random.Real(0, 10)}),
                                  random.Chance(2) ? 0.0f : weight};
    };
    return {play(clips[0]), play(random.Chance(10) ? clips[0] : clips[1])};
  }

  AnimationRandom random;
  AnimatorStage stage;
  std::vector<uint32_t> handles;
  uint32_t clips[2];
  AnimatorStage::Animator animator;
};

TEST(AnimatorCrossfadeTest, CrossfadesMatchThePlainModel) {
  for (int seed = 0; seed < Rounds(1500); ++seed) {
    CrossfadingCharacter character(static_cast<uint32_t>(seed));
    for (int step = 0; step < 6; ++step) {
      character.Step();
      ASSERT_FALSE(::testing::Test::HasFailure()) << "seed " << seed << ", step " << step;
    }
  }
}

}  // namespace
}  // namespace nq::engine
