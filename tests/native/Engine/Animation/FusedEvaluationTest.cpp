// The pass over four bones at a time: the same bytes as the general evaluation, and what it
// refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <vector>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/ControllerEvaluation.h"
#include "Engine/Animation/FourQuaternions.h"
#include "Engine/Animation/FusedEvaluation.h"
#include "Engine/Animation/QuaternionMath.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

typedef ReferenceStage::Entry Entry;
typedef ReferenceStage::Layer Layer;

constexpr uint32_t kOverride = 0;
constexpr uint32_t kAdditive = 1;
constexpr uint32_t kFirstEuler = 7;
constexpr uint32_t kQuaternionTypes[] = {11, 12, 13, 10};  // x, y, z, w

// Bones of one controller.
class Character {
 public:
  // All bytes that an evaluation may write.
  typedef std::vector<uint8_t> Bytes;

  void AddBones(int32_t count) {
    const uint32_t key = scene.Add3D(count);
    for (int32_t i = 0; i < count; ++i) {
      const uint32_t handle = key + static_cast<uint32_t>(i);
      scene.ScaleTo(handle, 1, 1, 1);
      scene.Turn(handle, 0, 0, 0, 1);
      scene.AddRoot(handle);
      bones.push_back(handle);
    }
    scene.RunCommands();
    scene.Refresh();
  }

  AnimationClipBinding* Binding() { return scene.BindingOf(binding); }

  // True if the fused evaluation takes the controller.
  bool Fuses(uint32_t controller) { return fused.Run(scene.ControllerOf(controller), Binding()); }

  void EvaluateInFull(uint32_t controller) {
    ControllerEvaluation::OfThread()->RunInFull(scene.ControllerOf(controller), Binding());
  }

  Bytes Written() {
    Bytes bytes;
    for (const uint32_t handle : bones) {
      const Entity& entity = scene.At(handle);
      const uint8_t* local = reinterpret_cast<const uint8_t*>(entity.localMatrix());
      bytes.insert(bytes.end(), entity.sharedRecord(), entity.sharedRecord() + 108);
      bytes.insert(bytes.end(), local, local + 64);
      bytes.push_back(static_cast<uint8_t>(entity.dirtyState()));
    }
    return bytes;
  }

  void RestoreRecords(const Bytes& bytes) {
    const uint8_t* from = bytes.data();
    for (const uint32_t handle : bones) {
      std::memcpy(scene.At(handle).sharedRecord(), from, 108);
      from += 108 + 64 + 1;
    }
  }

  ControllerScene scene;
  FusedEvaluation fused;
  std::vector<uint32_t> bones;
  uint32_t binding = 0;
};

// Coverage of the random characters.
struct Encounters {
  int fused = 0;
  int refused = 0;
  int whole = 0;      // fused, with all weights summing up to 1
  int completed = 0;  // fused, with layers that were completed from rest poses
  int changed = 0;    // fused updates that changed a record
};

class RandomCharacter : public Character {
 public:
  RandomCharacter(uint32_t seed, Encounters* met) : random(seed), met(met) {
    // Sometimes more than a block of 64.
    AddBones(1 + static_cast<int32_t>(random.Below(11) + (random.Chance(4) ? 60 : 0)));
    if (random.Chance(20)) {
      AddBones(1 + static_cast<int32_t>(random.Below(5)));
    }
    for (const uint32_t bone : bones) {
      Pose(bone);
    }
    const uint32_t clipCount = 2 + random.Below(3);
    const uint32_t moving = random.OneOf({0u, 10u, 100u});
    for (uint32_t i = 0; i < clipCount; ++i) {
      AddClip(moving);
    }
    Bind();
    AddController();
  }

  // Changes times and weights, and compares both evaluations with each other and with the model.
  void Step() {
    Play();
    const Bytes before = Written();
    const size_t keys = Binding()->defaults.Ascending().size();
    if (Fuses(controller)) {
      const Bytes fast = Written();
      RestoreRecords(before);
      EvaluateInFull(controller);
      EXPECT_EQ(fast, Written());
      EXPECT_EQ(keys, Binding()->defaults.Ascending().size());
      ++met->fused;
      ++(isWhole ? met->whole : met->completed);
      met->changed += fast != before ? 1 : 0;
    } else {
      ++met->refused;
    }
    RestoreRecords(before);
    scene.Update(controller);
  }

 private:
  void Pose(uint32_t bone) {
    scene.MoveTo(bone, random.Real(-2, 2), random.Real(-2, 2), random.Real(-2, 2));
    scene.ScaleTo(bone, random.Real(0.5f, 2), random.Real(0.5f, 2), random.Real(0.5f, 2));
    if (random.Chance(20)) {
      scene.Turn(bone, random.Real(-3, 3), random.Real(-3, 3), random.Real(-3, 3));
    } else {
      scene.Turn(bone, random.Real(-1, 1), random.Real(-1, 1), random.Real(-1, 1),
                 random.Real(-1, 1));
    }
  }

  void AddClip(uint32_t moving) {
    std::vector<ReferenceCurve> curves;
    const uint32_t absent = random.OneOf({0u, 0u, 0u, 20u});
    for (uint32_t target = 0; target < bones.size(); ++target) {
      if (random.Chance(absent)) {
        continue;
      }
      const auto add = [&](uint32_t type) {
        curves.push_back(
            {target, type, {Flat(0, random.Real(-1, 1)), Flat(9, random.Real(-1, 1))}});
      };
      // A track without keys carries its bone along.
      curves.push_back({target, 1, {}});
      if (!random.Chance(absent)) {
        std::for_each(std::begin(kQuaternionTypes), std::end(kQuaternionTypes), add);
      }
      for (uint32_t type = 1; type <= 6; ++type) {
        if (random.Chance(moving)) {
          add(type);
        }
      }
    }
    if (random.Chance(2)) {
      curves.push_back(Constant(0, kFirstEuler, 1));
    }
    clips.push_back(scene.AddClip(10, curves));
  }

  void Bind() {
    std::vector<uint32_t> order = bones;
    if (random.Chance(25)) {
      std::reverse(order.begin(), order.end());
    }
    Groups groups;
    for (const uint32_t clip : clips) {
      std::vector<uint32_t> list = order;
      if (random.Chance(15)) {
        std::rotate(list.begin(), list.begin() + 1, list.end());
      }
      if (random.Chance(15)) {
        list[random.Below(static_cast<uint32_t>(list.size()))] = kHole;
      }
      if (random.Chance(15)) {
        list.resize(1 + random.Below(static_cast<uint32_t>(list.size())));
      }
      if (random.Chance(5)) {
        list[0] = list.back();
      }
      groups.push_back({clip, list});
    }
    binding = scene.Bind(groups);
  }

  void AddController() {
    std::vector<Layer> layers;
    for (uint32_t i = 1 + random.Below(3); i != 0; --i) {
      uint32_t next = kHole;
      for (uint32_t count = 1 + random.Below(3); count != 0; --count) {
        std::vector<Entry> entries(random.Chance(80) ? 1 : 2);
        for (Entry& entry : entries) {
          entry = Entry{OneOf(clips), 0, 1, random.Chance(80) ? OneOf(clips) : 0, Time()};
        }
        next = scene.AddState(1, 0, entries, next);
        states.push_back(next);
      }
      layers.push_back(Layer{random.Chance(60) ? kOverride : kAdditive, 1, next});
    }
    controller = scene.AddController(binding, layers);
    for (uint32_t layer = 0; layer < layers.size(); ++layer) {
      if (random.Chance(30)) {
        std::vector<std::pair<uint32_t, float>> mask;
        for (const uint32_t bone : bones) {
          if (random.Chance(50)) {
            mask.push_back({bone, random.OneOf({0.0f, 0.0f, 0.5f, -0.5f, 1.0f})});
          }
        }
        scene.SetMask(controller, layer, mask);
      }
    }
  }

  void Play() {
    isWhole = random.Chance(50);
    for (const uint32_t state : states) {
      const ReferenceStage::State old = scene.stage.states.at(state);
      const float weight = isWhole ? 1.0f : Weight();
      scene.SetState(state, weight, random.Chance(1) ? 1.0f : 0.0f, old.next);
      for (uint32_t k = 0; k < old.entries.size(); ++k) {
        Entry entry = old.entries[k];
        entry.time = Time();
        entry.weight = isWhole ? 1.0f : Weight();
        scene.SetEntry(state, k, entry);
      }
    }
    const std::vector<Layer> layers = scene.stage.controllers.at(controller).layers;
    for (uint32_t i = 0; i < layers.size(); ++i) {
      scene.SetLayer(controller, i, Layer{layers[i].blendMode, Weight(), layers[i].firstState});
    }
  }

  float Weight() {
    return random.Chance(3) ? random.OneOf({kNone, 0.0f, -0.0f, kInfinity, -0.5f, 1.5f})
                            : random.OneOf({1.0f, 1.0f, 0.5f, 0.25f, random.Real(0, 1)});
  }

  float Time() { return random.OneOf({0.0f, 9.0f, -1.0f, 23.5f, random.Real(0, 10)}); }

  uint32_t OneOf(const std::vector<uint32_t>& choice) {
    return choice[random.Below(static_cast<uint32_t>(choice.size()))];
  }

  AnimationRandom random;
  Encounters* met;
  std::vector<uint32_t> clips;
  std::vector<uint32_t> states;
  uint32_t controller = 0;
  bool isWhole = false;
};

TEST(FusedEvaluationTest, WritesTheBytesOfTheGeneralEvaluation) {
  Encounters met;
  const uint32_t rounds = static_cast<uint32_t>(Rounds(1500));
  for (uint32_t seed = 1; seed <= rounds; ++seed) {
    RandomCharacter character(seed, &met);
    for (int step = 0; step < 4; ++step) {
      character.Step();
      ASSERT_FALSE(::testing::Test::HasFailure()) << "seed " << seed << ", step " << step;
    }
  }
  const int many = static_cast<int>(rounds) / 2;
  EXPECT_GT(met.fused, many);
  EXPECT_GT(met.whole, many);
  EXPECT_GT(met.completed, many);
  EXPECT_GT(met.changed, many);
  EXPECT_GT(met.refused, many / 10);
}

// Six bones, of which the second group of four is not full.
class FusedCharacterTest : public ::testing::Test {
 protected:
  FusedCharacterTest() { character.AddBones(6); }

  // A rotation of each bone about x or, by `half` turned, the other way.
  std::vector<ReferenceCurve> Turns(float half) {
    std::vector<ReferenceCurve> curves;
    for (uint32_t target = 0; target < character.bones.size(); ++target) {
      curves.push_back(Constant(target, 11, half));
      curves.push_back(Constant(target, 12, 0));
      curves.push_back(Constant(target, 13, 0));
      curves.push_back(Constant(target, 10, 1));
    }
    return curves;
  }

  uint32_t AddClip(const std::vector<ReferenceCurve>& curves) {
    return character.scene.AddClip(10, curves);
  }

  void Bind(const std::vector<uint32_t>& clips, const std::vector<uint32_t>& list) {
    Groups groups;
    for (const uint32_t clip : clips) {
      groups.push_back({clip, list});
    }
    character.binding = character.scene.Bind(groups);
  }
  void Bind(const std::vector<uint32_t>& clips) { Bind(clips, character.bones); }

  uint32_t AddState(uint32_t clip, float weight = 1, float fill = 0, uint32_t next = kHole) {
    return character.scene.AddState(weight, fill, {Entry{clip, 0, 1, clip, 0}}, next);
  }

  uint32_t AddController(const std::vector<Layer>& layers) {
    return character.scene.AddController(character.binding, layers);
  }

  // The general evaluation takes over: the results are the model's.
  void ExpectRefused(uint32_t controller) {
    EXPECT_FALSE(character.Fuses(controller));
    character.scene.Update(controller);
  }

  Character character;
};

TEST_F(FusedCharacterTest, PosesACrossfadeAndAnAdditiveLayer) {
  const uint32_t a = AddClip(Turns(0.25f));
  const uint32_t b = AddClip(Turns(-0.5f));
  Bind({a, b});
  const uint32_t controller =
      AddController({{kOverride, 1, AddState(a, 0.25f, 0, AddState(b, 0.75f))},
                     {kAdditive, 0.5f, character.scene.AddState(1, 0, {Entry{b, 0, 1, a, 0}})}});
  EXPECT_TRUE(character.Fuses(controller));
  character.scene.Update(controller);
}

TEST_F(FusedCharacterTest, PosesTargetsInAnyOrder) {
  const uint32_t a = AddClip(Turns(0.25f));
  const std::vector<uint32_t> reversed(character.bones.rbegin(), character.bones.rend());
  Bind({a}, reversed);
  const uint32_t controller = AddController({{kOverride, 1, AddState(a)}});
  EXPECT_TRUE(character.Fuses(controller));
  character.scene.Update(controller);
}

TEST_F(FusedCharacterTest, LeavesReleasedEntitiesAlone) {
  const uint32_t a = AddClip(Turns(0.25f));
  const uint32_t extra = character.scene.Add3D(2);
  std::vector<uint32_t> list = character.bones;
  list[1] = extra;
  list[5] = extra + 1;
  Bind({a}, list);
  const uint32_t controller = AddController({{kOverride, 1, AddState(a)}});
  character.scene.Release(extra);
  EXPECT_TRUE(character.Fuses(controller));
  character.scene.Update(controller);
}

// The pose that is subtracted belongs to another clip once the handle does.
TEST_F(FusedCharacterTest, SamplesTheReferenceOfANewClipUnderTheSameHandle) {
  const uint32_t a = AddClip(Turns(0.25f));
  const uint32_t b = AddClip(Turns(0.5f));
  Bind({a, b});
  const uint32_t state = character.scene.AddState(1, 0, {Entry{a, 0, 1, b, 0}});
  const uint32_t controller = AddController({{kAdditive, 1, state}});
  character.scene.Update(controller);
  const std::vector<float> before = character.scene.Rotation(character.bones[0]);
  character.scene.ReleaseClip(b);
  ASSERT_EQ(b, AddClip(Turns(-0.5f)));
  character.scene.Update(controller);
  EXPECT_NE(before, character.scene.Rotation(character.bones[0]));
}

TEST_F(FusedCharacterTest, RefusesStatesThatFillUp) {
  const uint32_t a = AddClip(Turns(0.25f));
  Bind({a});
  ExpectRefused(AddController({{kOverride, 1, AddState(a, 1, 1)}}));
}

TEST_F(FusedCharacterTest, RefusesEulerAngles) {
  const uint32_t a = AddClip(Turns(0.25f));
  const uint32_t angles = AddClip(Constants(0, kFirstEuler, {0.5f, 0.25f, 0.125f}));
  Bind({a, angles});
  ExpectRefused(AddController({{kOverride, 1, AddState(angles)}}));
  ExpectRefused(
      AddController({{kAdditive, 1, character.scene.AddState(1, 0, {Entry{a, 0, 1, angles, 0}})}}));
}

TEST_F(FusedCharacterTest, RefusesSeveralTargetsForOneEntity) {
  const uint32_t a = AddClip(Turns(0.25f));
  std::vector<uint32_t> list = character.bones;
  list[3] = list[2];
  Bind({a}, list);
  ExpectRefused(AddController({{kOverride, 1, AddState(a)}}));
}

TEST_F(FusedCharacterTest, RefusesMoreThanSixteenClips) {
  const uint32_t a = AddClip(Turns(0.25f));
  Bind({a});
  const auto play = [this, a](size_t count) {
    const std::vector<Entry> entries(count, Entry{a, 0, 1.0f / 16, a, 0});
    return AddController({{kOverride, 1, character.scene.AddState(1, 0, entries)}});
  };
  EXPECT_TRUE(character.Fuses(play(16)));
  ExpectRefused(play(17));
}

TEST_F(FusedCharacterTest, RefusesMoreThanEightReferences) {
  const uint32_t a = AddClip(Turns(0.25f));
  Bind({a});
  const auto play = [this, a](uint32_t count) {
    std::vector<Entry> entries;
    for (uint32_t i = 0; i < count; ++i) {
      entries.push_back(Entry{a, 0, 1, a, static_cast<float>(i)});
    }
    return AddController({{kAdditive, 1, character.scene.AddState(1, 0, entries)}});
  };
  const uint32_t eight = play(8);
  EXPECT_TRUE(character.Fuses(eight));
  ExpectRefused(play(9));
  EXPECT_TRUE(character.Fuses(eight));
}

TEST_F(FusedCharacterTest, RefusesARotationThatBecomesNaN) {
  std::vector<ReferenceCurve> curves = Turns(0.25f);
  for (ReferenceCurve& curve : curves) {
    if (curve.target == 5) {
      curve.keys[0].value = 0;
    }
  }
  const uint32_t a = AddClip(curves);
  Bind({a});
  ExpectRefused(AddController({{kOverride, 1, AddState(a)}}));
}

TEST_F(FusedCharacterTest, RefusesAPositionThatBecomesNaN) {
  const uint32_t a = AddClip(Turns(0.25f) + Constants(4, 1, {kInfinity}));
  Bind({a});
  ExpectRefused(AddController({{kOverride, 0.0f, AddState(a)}}));
}

// Half a rotation is completed by the rest pose of number 0, half a position of 7 by that of 3.
TEST_F(FusedCharacterTest, RefusesUntilTheRestPosesOfItsNumbersExist) {
  const uint32_t a = AddClip(Turns(0.25f) + Constants(4, 1, {7.0f}));
  Bind({a});
  const uint32_t controller = AddController({{kOverride, 1, AddState(a, 0.5f)}});
  ExpectRefused(controller);
  EXPECT_EQ(6u + 2u, character.Binding()->defaults.SlotCount());
  EXPECT_TRUE(character.Fuses(controller));
  character.scene.Update(controller);
}

TEST(FourQuaternionsTest, GivesTheBitsOfTheSingleQuaternions) {
  AnimationRandom random(1);
  const auto one = [&random](float* q) {
    const float size = random.OneOf({1.0f, 1.0f, 1e-18f, 1e15f});
    for (int i = 0; i < 4; ++i) {
      q[i] = random.Chance(5) ? random.OneOf({0.0f, -0.0f, 1.0f}) : random.Real(-size, size);
    }
  };
  const auto gather = [](const float(*q)[4]) {
    return TransposeFour(_mm_loadu_ps(q[0]), _mm_loadu_ps(q[1]), _mm_loadu_ps(q[2]),
                         _mm_loadu_ps(q[3]));
  };
  for (int round = 0; round < 20000; ++round) {
    float a[4][4];
    float b[4][4];
    for (int lane = 0; lane < 4; ++lane) {
      one(a[lane]);
      one(b[lane]);
    }
    const float share = random.Real(-1, 2);
    const __m128 shares = _mm_set1_ps(share);
    const __m128 all = _mm_castsi128_ps(_mm_set1_epi32(-1));
    __m128 sums[4];
    __m128 products[4];
    __m128 normals[4];
    StoreTransposed(AddFour(gather(a), gather(b), shares, all), sums);
    StoreTransposed(MultiplyFour(gather(a), gather(b)), products);
    StoreTransposed(NormaliseFour(gather(a)), normals);
    for (int lane = 0; lane < 4; ++lane) {
      float expected[4];
      float actual[4];
      MultiplyQuaternion(a[lane], b[lane], expected);
      _mm_storeu_ps(actual, products[lane]);
      ASSERT_TRUE(SameFloats(expected, actual, 4)) << "product, round " << round;
      std::memcpy(expected, a[lane], sizeof(expected));
      AddQuaternion(expected, b[lane], share);
      _mm_storeu_ps(actual, sums[lane]);
      ASSERT_TRUE(SameFloats(expected, actual, 4)) << "sum, round " << round;
      std::memcpy(expected, a[lane], sizeof(expected));
      NormaliseQuaternion(expected);
      _mm_storeu_ps(actual, normals[lane]);
      ASSERT_TRUE(SameFloats(expected, actual, 4)) << "normalised, round " << round;
    }
  }
}

}  // namespace
}  // namespace nq::engine
