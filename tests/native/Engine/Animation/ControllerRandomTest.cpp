// Random bindings and controllers, in the engine and in the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/StateEvaluation.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

// Coverage of random scenes: a test that encounters nothing proves nothing.
struct Encounters {
  int changedRecords = 0;
  int carriedEntities = 0;  // rebuilt without a change
  int newKeys = 0;
  int keysOfEntities = 0;  // new keys that name a living 3D entity
  int writtenByKey = 0;    // such an entity, rebuilt on a later update
  int acceptedLists = 0;
  int refusedLists = 0;
  int additivePoses = 0;
};

class RandomStage {
 public:
  RandomStage(uint32_t seed, Encounters* met) : random(seed), met(met) {
    const uint32_t batchCount = 2 + random.Below(3);
    for (uint32_t i = 0; i < batchCount; ++i) {
      AddEntities(i == 0 || !random.Chance(20));
    }
    scene.RunCommands();
    scene.Refresh();
    const uint32_t clipCount = 1 + random.Below(4);
    for (uint32_t i = 0; i < clipCount; ++i) {
      AddClip();
    }
    const uint32_t bindingCount = 1 + random.Below(2);
    for (uint32_t i = 0; i < bindingCount; ++i) {
      AddBinding();
    }
    const uint32_t stateCount = 1 + random.Below(6);
    for (uint32_t i = 0; i < stateCount; ++i) {
      AddState();
    }
    const uint32_t controllerCount = 1 + random.Below(2);
    for (uint32_t i = 0; i < controllerCount; ++i) {
      AddController();
    }
  }

  // Changes something, and updates.
  void Step() {
    for (uint32_t i = random.Below(4); i != 0; --i) {
      Change();
    }
    const uint32_t controller = OneOf(controllers);
    const uint32_t binding = scene.stage.controllers.at(controller).binding;
    std::vector<uint32_t> before;
    if (scene.stage.bindings.count(binding) != 0) {
      before = scene.KeysOf(binding);
    }
    CompareState(controller);
    scene.Capture();
    const std::map<uint32_t, ReferenceStage::Entity> old = scene.stage.entities;
    if (random.Chance(70)) {
      scene.Update(controller);
    } else {
      scene.UpdateAtOnce(controller);
    }
    for (const uint32_t handle : scene.stage.rebuilt) {
      const bool isSame = old.at(handle).record == scene.stage.entities.at(handle).record;
      met->carriedEntities += isSame ? 1 : 0;
      met->changedRecords += isSame ? 0 : 1;
      met->writtenByKey += keysOfEntities.count(handle) != 0 ? 1 : 0;
    }
    if (scene.stage.bindings.count(binding) != 0) {
      for (const uint32_t key : scene.KeysOf(binding)) {
        if (!std::binary_search(before.begin(), before.end(), key)) {
          ++met->newKeys;
          if (old.count(key) != 0 && old.at(key).isThreeD) {
            ++met->keysOfEntities;
            keysOfEntities.insert(key);
          }
        }
      }
    }
  }

 private:
  uint32_t OneOf(const std::vector<uint32_t>& choice) {
    return choice[random.Below(static_cast<uint32_t>(choice.size()))];
  }

  // A mostly small number; sometimes, or times a share, an entity's handle.
  float Value() {
    if (random.Chance(8)) {
      return random.OneOf({-1.0f, kNone, kInfinity, -kInfinity, 2147483648.0f, 4294967040.0f, -0.0f,
                           1.0e20f, 3.0e9f});
    }
    if (random.Chance(40)) {
      const float key = static_cast<float>(4096 * (1 + random.Below(4)) + random.Below(5));
      return key * random.OneOf({1.0f, 2.0f, 2.0f, 4.0f}) + random.OneOf({0.0f, 0.5f, 0.1f});
    }
    return random.Real(-3, 3);
  }

  float Weight() {
    const uint32_t kind = random.Below(100);
    return kind < 25   ? random.Real(0, 1)
           : kind < 40 ? random.OneOf({0.0f, kNone, -0.5f, 1.5f, -0.0f, 3.0f})
                       : random.OneOf({0.25f, 0.5f, 0.5f, 0.75f, 1.0f, 1.0f});
  }

  float Fill() { return random.OneOf({0.0f, 0.0f, 1.0f, 1.0f, kNone, -0.0f, 0.5f}); }

  void AddEntities(bool isThreeD) {
    const int32_t count = 1 + static_cast<int32_t>(random.Below(5));
    const uint32_t key = isThreeD ? scene.Add3D(count) : scene.Add2D(count);
    for (int32_t i = 0; i < count; ++i) {
      const uint32_t handle = key + static_cast<uint32_t>(i);
      if (isThreeD) {
        Pose(handle);
      }
      // Parents are older than their children: no cycles.
      if (!all.empty() && random.Chance(60)) {
        scene.Insert(OneOf(all), handle, 0);
      } else if (random.Chance(50)) {
        scene.AddRoot(handle);
      }
      all.push_back(handle);
      (isThreeD ? threeD : twoD).push_back(handle);
    }
  }

  void Pose(uint32_t handle) {
    scene.MoveTo(handle, Value(), Value(), Value());
    scene.ScaleTo(handle, random.Real(0.5f, 2), random.Real(0.5f, 2), Value());
    if (random.Chance(50)) {
      scene.Turn(handle, random.Real(-4, 4), random.Real(-4, 4), random.Real(-4, 4));
    } else {
      scene.Turn(handle, random.Real(-1, 1), random.Real(-1, 1), random.Real(-1, 1),
                 random.Real(-1, 1));
    }
    if (random.Chance(5)) {
      scene.Record3D(handle).rotationMode = 200;
    }
  }

  // Half of the clips have keys in all shapes, half have values that become keys of rest poses.
  void AddClip() {
    if (random.Chance(50)) {
      clips.push_back(scene.AddClip(random.Clip(random.Chance(70))));
      return;
    }
    std::vector<ReferenceCurve> curves;
    const uint32_t absent = random.OneOf({0u, 10u, 40u, 80u});
    const uint32_t targetCount = 1 + random.Below(6);
    for (uint32_t target = 0; target < targetCount; ++target) {
      const bool isQuaternion = random.Chance(50);
      for (uint32_t type = 1; type <= 13; ++type) {
        if (random.Chance(absent) || (type > 6 && (type > 9) != isQuaternion)) {
          continue;
        }
        ReferenceCurve curve = Constant(target, type, type > 6 ? random.Real(-1, 1) : Value());
        if (random.Chance(30)) {
          curve.keys.push_back(Flat(10, type > 6 ? random.Real(-1, 1) : Value()));
        }
        curves.push_back(curve);
      }
    }
    clips.push_back(scene.AddClip(20, curves));
  }

  TargetLists Lists() {
    TargetLists::Groups groups;
    const uint32_t shared = random.Below(2);  // all clips move the same entities, or not
    std::vector<uint32_t> handles;
    for (const uint32_t clip : clips) {
      if (random.Chance(10)) {
        continue;
      }
      if (handles.empty() || shared == 0) {
        handles.clear();
        const size_t among = random.Chance(40) ? (threeD.size() + 1) / 2 : threeD.size();
        const uint32_t count = random.Chance(10) ? 0 : 1 + random.Below(7);
        for (uint32_t i = 0; i < count; ++i) {
          const uint32_t kind = random.Below(100);
          handles.push_back(kind < 80   ? threeD[random.Below(static_cast<uint32_t>(among))]
                            : kind < 85 ? kHole
                            : kind < 92 && !twoD.empty()
                                ? OneOf(twoD)
                                : random.OneOf({0u, 0x9000u, 0x1FFFu, 0xFFFFF000u}));
        }
      }
      groups.push_back({random.Chance(3) ? clip + 1 : clip, handles});
      if (random.Chance(6)) {
        groups.push_back({clip, {OneOf(threeD)}});
      }
    }
    if (random.Chance(4)) {
      groups.push_back({random.OneOf({0u, 0x8000u, kHole}), {}});
    }
    return TargetLists(groups);
  }

  void AddBinding() {
    TargetLists lists = Lists();
    const uint32_t words = lists.TargetWords();
    // Slightly fewer or more than there are, with readable memory there.
    const uint32_t claimed = words + random.OneOf({0u, 0u, 1u, 30u, 30u, 30u}) -
                             (words > 2 && random.Chance(8) ? 1 + random.Below(2) : 0);
    lists.words.resize(lists.words.size() + 40, OneOf(threeD));
    const uint32_t binding =
        lists.clipCount == 0
            ? 0
            : scene.Bind(lists, random.OneOf({1u, 1u, 1u, 1u, 1u, 1u, 1u, 0u, 3u}), claimed);
    if (binding != 0) {
      bindings.push_back(binding);
    }
  }

  // The next state of a state is older: no endless lists.
  uint32_t AnyState() {
    return states.empty() || random.Chance(15) ? random.OneOf({0u, 0x9000u, kHole}) : OneOf(states);
  }

  ReferenceStage::Entry AnyEntry() {
    const auto clip = [this] {
      return random.Chance(5) ? random.OneOf({0u, 0x9000u, kHole, clips[0] + 1}) : OneOf(clips);
    };
    const uint32_t own = clip();
    const uint32_t reference = clip();
    return ReferenceStage::Entry{own, Time(own), Weight(), reference, Time(reference)};
  }

  float Time(uint32_t clip) {
    const auto found = scene.stage.clips.find(clip);
    return found == scene.stage.clips.end() || random.Chance(40)
               ? random.OneOf({0.0f, 5.0f, 2.25f, -1.0f, kNone})
               : random.Time(found->second);
  }

  void AddState() {
    std::vector<ReferenceStage::Entry> entries;
    for (uint32_t i = 1 + random.Below(3); i != 0; --i) {
      entries.push_back(AnyEntry());
    }
    const uint32_t next = AnyState();
    states.push_back(scene.AddState(Weight(), Fill(), entries, next));
  }

  ReferenceStage::Layer AnyLayer() {
    const uint32_t blendMode = random.OneOf({0u, 0u, 0u, 0u, 0u, 1u, 1u, 1u, 1u, 2u, 7u, kHole});
    return ReferenceStage::Layer{blendMode, Weight(), AnyState()};
  }

  void AddController() {
    std::vector<ReferenceStage::Layer> layers;
    for (uint32_t i = 1 + random.Below(4); i != 0; --i) {
      layers.push_back(AnyLayer());
    }
    controllers.push_back(scene.AddController(AnyBinding(), layers));
    if (random.Chance(50)) {
      Mask(controllers.back());
    }
  }

  uint32_t AnyBinding() {
    return bindings.empty() || random.Chance(2) ? random.OneOf({0u, 0x9000u, kHole})
                                                : OneOf(bindings);
  }

  void Mask(uint32_t controller) {
    std::vector<std::pair<uint32_t, float>> records;
    for (uint32_t i = random.Below(9); i != 0; --i) {
      records.push_back(
          {random.Chance(80) ? OneOf(threeD) : random.OneOf({0u, 1u, 4096u, kHole, 0x9000u}),
           Weight()});
    }
    const size_t layers = scene.stage.controllers.at(controller).layers.size();
    scene.SetMask(controller, random.Below(static_cast<uint32_t>(layers)), records);
  }

  void Change() {
    const uint32_t kind = random.Below(100);
    const uint32_t controller = OneOf(controllers);
    if (kind < 25) {
      const uint32_t state = OneOf(states);
      const ReferenceStage::State old = scene.stage.states.at(state);
      scene.SetState(state, Weight(), Fill(), old.next);
      scene.SetEntry(state, random.Below(static_cast<uint32_t>(old.entries.size())), AnyEntry());
    } else if (kind < 40) {
      const size_t layers = scene.stage.controllers.at(controller).layers.size();
      scene.SetLayer(controller, random.Below(static_cast<uint32_t>(layers)), AnyLayer());
    } else if (kind < 55) {
      Pose(OneOf(threeD));
    } else if (kind < 65) {
      Mask(controller);
    } else if (kind < 70) {
      scene.SetBinding(controller, AnyBinding());
    } else if (kind < 85) {
      Rebind();
    } else if (kind < 88) {
      scene.Refresh();
    } else {
      ReleaseSomething();
    }
  }

  void Rebind() {
    if (bindings.empty()) {
      return;
    }
    TargetLists lists = Lists();
    const auto mode = [this] { return random.OneOf({0u, 0u, 1u, 2u, 3u, 4u, 6u, kHole}); };
    const uint32_t removed = mode();
    const uint32_t kept = mode();
    // The bound is that of the first lists; there is readable memory after these.
    lists.words.resize(lists.words.size() + 200, OneOf(threeD));
    const bool accepted =
        scene.Rebind(OneOf(bindings), lists, removed, kept, random.OneOf({0u, 1u, 1u, 3u}));
    ++(accepted ? met->acceptedLists : met->refusedLists);
  }

  static void Erase(std::vector<uint32_t>* handles, uint32_t handle) {
    handles->erase(std::find(handles->begin(), handles->end(), handle));
  }

  void ReleaseSomething() {
    const uint32_t kind = random.Below(5);
    if (kind == 0 && clips.size() > 1) {
      const uint32_t clip = OneOf(clips);
      Erase(&clips, clip);
      scene.ReleaseClip(clip);
      if (random.Chance(50)) {
        AddClip();  // mostly gets the same handle
      }
    } else if (kind == 1 && states.size() > 1) {
      const uint32_t state = OneOf(states);
      Erase(&states, state);
      scene.ReleaseState(state);
    } else if (kind == 2 && bindings.size() > 1) {
      const uint32_t binding = OneOf(bindings);
      Erase(&bindings, binding);
      scene.ReleaseBinding(binding);
    } else if (kind >= 3) {
      const uint32_t key = OneOf(threeD) & 0xFFFFF000u;
      const auto isOfKey = [key](uint32_t handle) { return (handle & 0xFFFFF000u) == key; };
      if (std::all_of(threeD.begin(), threeD.end(), isOfKey)) {
        return;
      }
      all.erase(std::remove_if(all.begin(), all.end(), isOfKey), all.end());
      threeD.erase(std::remove_if(threeD.begin(), threeD.end(), isOfKey), threeD.end());
      scene.Release(key);
      if (random.Chance(60)) {
        AddEntities(true);
        scene.RunCommands();
      }
    }
  }

  // A single state.
  void CompareState(uint32_t controller) {
    const ReferenceStage::Controller& model = scene.stage.controllers.at(controller);
    const auto binding = scene.stage.bindings.find(model.binding);
    const uint32_t layer = random.Below(static_cast<uint32_t>(model.layers.size()));
    const uint32_t state = OneOf(states);
    const bool additive = random.Chance(50);
    scene.Capture();
    ReferenceStage::Poses expected;
    if (binding != scene.stage.bindings.end()) {
      expected = scene.stage.EvaluateState(binding->second, scene.stage.states.at(state), additive,
                                           model.masks[layer]);
    }
    AnimatorControllerModel* engine = scene.ControllerOf(controller);
    EvaluateState(*engine, *scene.Animation()->FindAnimatorControllerStateModel(state), additive,
                  engine->masks.Find(layer), &scratch, &poses);
    met->additivePoses += additive ? static_cast<int>(expected.size()) : 0;
    ASSERT_EQ(expected.size(), poses.Slots().size());
    for (const uint32_t slot : poses.Slots()) {
      const uint32_t handle = scene.BindingOf(model.binding)->defaults.Number(slot);
      ASSERT_EQ(1u, expected.count(handle)) << handle;
      const ReferenceStage::Pose& a = expected.at(handle);
      const TargetPose& b = poses.At(slot);
      EXPECT_TRUE(SameFloats(a.value, b.value, 6)) << "values of " << handle;
      EXPECT_TRUE(SameFloats(a.weight, b.weight, 6)) << "weights of " << handle;
      EXPECT_TRUE(SameFloats(a.rotation, b.rotation, 4)) << "rotation of " << handle;
      EXPECT_TRUE(SameFloat(a.rotationWeight, b.rotationWeight)) << handle;
    }
    EXPECT_TRUE(scene.Same(true));
  }

  ControllerScene scene;
  AnimationRandom random;
  Encounters* met;
  std::vector<uint32_t> all;
  std::vector<uint32_t> threeD;
  std::vector<uint32_t> twoD;
  std::vector<uint32_t> clips;
  std::vector<uint32_t> bindings;
  std::vector<uint32_t> states;
  std::vector<uint32_t> controllers;
  std::set<uint32_t> keysOfEntities;
  StateScratch scratch;
  PoseSet poses;
};

TEST(AnimationControllerRandomTest, EachUpdateGivesTheModelsRecordsMarksAndRestPoses) {
  Encounters met;
  const uint32_t rounds = static_cast<uint32_t>(Rounds(3000));
  for (uint32_t seed = 1; seed <= rounds; ++seed) {
    RandomStage stage(seed, &met);
    for (int step = 0; step < 10; ++step) {
      stage.Step();
      ASSERT_FALSE(::testing::Test::HasFailure()) << "seed " << seed << ", step " << step;
    }
  }
  const int few = static_cast<int>(rounds) / 50;
  EXPECT_GT(met.changedRecords, few);
  EXPECT_GT(met.carriedEntities, few);
  EXPECT_GT(met.newKeys, few);
  EXPECT_GT(met.keysOfEntities, few);
  EXPECT_GT(met.writtenByKey, few);
  EXPECT_GT(met.acceptedLists, few);
  EXPECT_GT(met.refusedLists, few);
  EXPECT_GT(met.additivePoses, few);
}

}  // namespace
}  // namespace nq::engine
