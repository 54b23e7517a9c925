// Controllers updated in a batch on the workers: the same bytes as one by one.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Task.h"
#include "Common/Def/WorkerPool.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

typedef ReferenceStage::Entry Entry;
typedef ReferenceStage::Layer Layer;

constexpr uint32_t kFigures = 24;
constexpr int32_t kBones = 12;
constexpr int kFrames = 6;

// Figures with a binding and a controller each, all playing the same clips. Half of them are under
// one root, the others under none: the batch updates their trees.
class Crowd {
 public:
  explicit Crowd(uint32_t seed) : random(seed), top(scene.Add3D()) {
    scene.AddRoot(top);
    std::vector<uint32_t> clips;
    for (int i = 0; i < 4; ++i) {
      clips.push_back(scene.AddClip(random.Clip(true)));
    }
    for (uint32_t figure = 0; figure < kFigures; ++figure) {
      AddFigure(clips);
    }
    scene.RunCommands();
    scene.Refresh();
  }

  // One update of all, one by one or on the workers, at the next time.
  void Update(bool batch) {
    ++frame;
    for (const auto& [state, entries] : states) {
      for (uint32_t k = 0; k < entries.size(); ++k) {
        Entry entry = entries[k];
        entry.time += 0.75f * static_cast<float>(frame);
        scene.SetEntry(state, k, entry);
      }
    }
    if (!batch) {
      for (const uint32_t controller : controllers) {
        scene.Core()->UpdateAnimatorController(controller);
      }
      return;
    }
    std::vector<Task> tasks;
    EngineCore* const core = scene.Core();
    for (const uint32_t controller : controllers) {
      tasks.emplace_back([core, controller] { core->UpdateAnimatorController(controller); });
    }
    WorkerPool* pool = scene.Runtime()->FirstPool();
    pool->PostAll(tasks.data(), tasks.size());
    pool->WaitIdle();
  }

  // All records, local matrices, marks and rest poses.
  std::vector<uint8_t> Bytes() {
    std::vector<uint8_t> bytes;
    const auto append = [&bytes](const void* data, size_t size) {
      const uint8_t* start = static_cast<const uint8_t*>(data);
      bytes.insert(bytes.end(), start, start + size);
    };
    for (const uint32_t handle : handles) {
      const Entity& entity = scene.At(handle);
      append(entity.sharedRecord(), sizeof(Entity3DRecord));
      append(entity.localMatrix(), 64);
      append(entity.worldMatrix(), 64);
      const uint32_t mark = entity.dirtyState();
      append(&mark, 4);
    }
    for (const uint32_t binding : bindings) {
      const RestPoses& defaults = scene.BindingOf(binding)->defaults;
      for (const RestPoses::Key& key : defaults.Ascending()) {
        const TransformValue& value = defaults.Value(key.slot);
        append(&key.number, 4);
        append(value.position, 12);
        append(value.scale, 12);
        append(value.euler(), 12);
        append(value.quaternion(), 16);
      }
    }
    return bytes;
  }

  void Refresh() { scene.Refresh(); }

 private:
  void AddFigure(const std::vector<uint32_t>& clips) {
    const uint32_t bones = scene.Add3D(kBones);
    Groups groups;
    for (int32_t i = 0; i < kBones; ++i) {
      const uint32_t bone = bones + static_cast<uint32_t>(i);
      handles.push_back(bone);
      scene.MoveTo(bone, random.Real(-2, 2), random.Real(-2, 2), random.Real(-2, 2));
      scene.Turn(bone, random.Real(-2, 2), random.Real(-2, 2), random.Real(-2, 2));
      if (i != 0) {
        scene.Link(bone - 1, bone);
      } else if (controllers.size() % 2 == 0) {
        scene.Link(top, bone);
      }
    }
    for (const uint32_t clip : clips) {
      std::vector<uint32_t> list;
      for (uint32_t k = 0; k < 8; ++k) {
        list.push_back(bones + random.Below(kBones));
      }
      groups.push_back({clip, list});
    }
    scene.RunCommands();
    const uint32_t binding = scene.Bind(groups);
    bindings.push_back(binding);
    std::vector<Layer> layers;
    for (uint32_t i = 0; i < 3; ++i) {
      std::vector<Entry> entries;
      for (int k = 0; k < 3; ++k) {
        entries.push_back(Entry{clips[random.Below(4)], random.Real(0, 30), random.Real(0.1f, 1),
                                clips[random.Below(4)], random.Real(0, 30)});
      }
      const uint32_t state =
          scene.AddState(random.Real(0.2f, 1), random.OneOf({0.0f, 1.0f}), entries);
      states.push_back({state, entries});
      layers.push_back(Layer{i == 0 ? 0 : random.Below(2), random.Real(0.2f, 1.2f), state});
    }
    controllers.push_back(scene.AddController(binding, layers));
    scene.SetMask(controllers.back(), 1, {{bones + 2, 0.0f}, {bones + 5, 0.5f}});
  }

  ControllerScene scene;
  AnimationRandom random;
  const uint32_t top;
  int frame = 0;
  std::vector<uint32_t> handles;
  std::vector<uint32_t> bindings;
  std::vector<std::pair<uint32_t, std::vector<Entry>>> states;
  std::vector<uint32_t> controllers;
};

TEST(AnimationControllerBatchTest, ABatchGivesTheBytesOfSingleUpdates) {
  for (uint32_t seed = 1; seed <= static_cast<uint32_t>(Rounds(20)); ++seed) {
    SCOPED_TRACE(seed);
    Crowd single(seed);
    Crowd batch(seed);
    ASSERT_EQ(single.Bytes(), batch.Bytes());
    for (int frame = 0; frame < kFrames; ++frame) {
      const std::vector<uint8_t> before = single.Bytes();
      single.Update(false);
      batch.Update(true);
      ASSERT_NE(before, single.Bytes()) << "frame " << frame;
      ASSERT_EQ(single.Bytes(), batch.Bytes()) << "frame " << frame;
      if (frame % 2 == 1) {
        single.Refresh();
        batch.Refresh();
        ASSERT_EQ(single.Bytes(), batch.Bytes()) << "refresh of frame " << frame;
      }
    }
  }
}

// A worker's reused memory must not affect its next update, of another size.
TEST(AnimationControllerBatchTest, ReusedWorkingMemoryDoesNotAffectResults) {
  Crowd first(101);
  Crowd second(102);
  Crowd again(101);
  for (int frame = 0; frame < kFrames; ++frame) {
    first.Update(false);
  }
  for (int frame = 0; frame < kFrames; ++frame) {
    second.Update(false);
    again.Update(true);
  }
  EXPECT_EQ(first.Bytes(), again.Bytes());
}

}  // namespace
}  // namespace nq::engine
