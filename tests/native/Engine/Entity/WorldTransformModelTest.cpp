// Random scenes, frame by frame, in the engine and in the model: the same bytes everywhere.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/native/Engine/Entity/ReferenceScene.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

// The kinds of events in a scene.
struct SceneKind {
  bool wildNumbers = false;  // NaNs, infinities, denormals, huge and tiny values
  bool cycles = false;       // links may close a parent cycle
  bool longLists = false;    // dirty lists of 32 entries and more
  bool calm = false;         // once built, most frames only change a few records
  bool bindings = true;      // entities may be bound to bones
};

// One scene, in the engine and in the model, and the script that changes both.
class RandomScene {
 public:
  RandomScene(uint32_t seed, const SceneKind& kind) : random(seed), kind(kind) {
    // Batches are created under released handles too.
    for (int i = 0; i < 3; ++i) {
      CreateBatch();
    }
  }

  // Changes the scene, runs one step in the model and in the engine, and compares. False if the
  // scene has ended before the engine's step.
  bool Frame() {
    calm = kind.calm && frames++ >= kFramesToBuild;
    if (Chance(calm ? 0.02 : 0.2)) {
      CreateBatch();
    }
    if (Chance(calm ? 0.02 : 0.08) && handles.size() > 4) {
      ReleaseBatch();
    }
    WriteRecords();
    WriteCommands();
    WriteDirtyList();
    if (Chance(0.1)) {
      NameSomething();
    }
    if (calm && Chance(0.2)) {
      CallNatively();
    }
    // Operations on a single entity, with a handle that may be invalid.
    const bool single = Chance(calm ? 0.03 : 0.15);
    const uint32_t handle = AnyHandle();

    const std::string logBefore = model.log;
    if (single) {
      model.RefreshEntity(handle);
    } else {
      model.Refresh();
    }
    if (model.wentRoundCycle) {
      return false;
    }
    OutputRecorder output;
    if (single) {
      world.Core()->RefreshEntity(handle);
    } else {
      world.Refresh();
    }
    EXPECT_EQ(model.log.substr(logBefore.size()), output.Text());
    return true;
  }

  // Compares the complete state after a frame. Reading local versions settles them, so not every
  // frame does.
  void Compare(bool versions) {
    CompareLists();
    for (const auto& batch : model.batches) {
      for (const auto& entity : batch.second.entities) {
        CompareEntity(*entity, versions);
        if (::testing::Test::HasFailure()) {
          return;
        }
      }
    }
  }

  bool Chance(double probability) {
    return std::uniform_real_distribution<double>(0, 1)(random) < probability;
  }

 private:
  uint32_t Below(uint32_t limit) {
    return std::uniform_int_distribution<uint32_t>(0, limit - 1)(random);
  }

  void CreateBatch() {
    const bool isThreeD = Chance(0.7);
    const uint32_t count = 1 + Below(Chance(0.5) ? 6 : kind.calm ? 80 : 25);
    const NativeValueInfo info = world.AddRaw(isThreeD, static_cast<int32_t>(count));
    std::vector<uintptr_t> addresses;
    for (uint32_t i = 0; i < count; ++i) {
      handles.push_back(info.handle + i);
      ranks[info.handle + i] = random();
      addresses.push_back(reinterpret_cast<uintptr_t>(&world.At(info.handle + i)));
    }
    model.Create(info.handle, isThreeD, addresses);
    for (uint32_t i = 0; i < count; ++i) {
      // The script finds zeros; what it does not write is unchanged.
      if (Chance(0.9)) {
        WriteRecord(info.handle + i);
      }
    }
  }

  void ReleaseBatch() {
    const uint32_t handle = handles[Below(static_cast<uint32_t>(handles.size()))];
    const uint32_t key = HandleKey(handle);
    model.Release(key);
    world.Release(handle);
    handles.erase(std::remove_if(handles.begin(), handles.end(),
                                 [key](uint32_t each) { return HandleKey(each) == key; }),
                  handles.end());
  }

  // A handle of an entity, or sometimes an invalid one.
  uint32_t AnyHandle() {
    if (Chance(0.06) || handles.empty()) {
      switch (Below(5)) {
        case 0:
          return 0;
        case 1:
          return Below(12);  // looks like a command
        case 2:
          return 0xFFFFFFFFu;
        case 3:
          return (1 + Below(12)) << 12 | 0xFFFu;  // past the end of its batch
        default:
          return 0x70000u + Below(64);
      }
    }
    return handles[Below(static_cast<uint32_t>(handles.size()))];
  }

  float Number() {
    const float inf = std::numeric_limits<float>::infinity();
    static const float kTame[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.5f, 2.0f, 3.14159274f, 1.57079637f};
    static const float kWild[] = {inf,     -inf,     std::numeric_limits<float>::quiet_NaN(),
                                  1e-45f,  -1e-40f,  1e-38f,
                                  FLT_MAX, -FLT_MAX, 1e30f,
                                  1e-7f,   1e-8f,    1.00001e-7f};
    if (Chance(0.2)) {
      return kTame[Below(sizeof(kTame) / sizeof(float))];
    }
    if (kind.wildNumbers && Chance(0.05)) {
      return kWild[Below(sizeof(kWild) / sizeof(float))];
    }
    return std::uniform_real_distribution<float>(-4.0f, 4.0f)(random);
  }

  void WriteRecord(uint32_t handle) {
    ReferenceEntity* entity = model.Find(handle);
    uint8_t* to = entity->record;
    const auto write = [&to, this](uint32_t offset) {
      const float number = Number();
      std::memcpy(to + offset, &number, 4);
    };
    uint32_t scriptBytes;
    if (entity->isThreeD) {
      scriptBytes = 44;
      const uint8_t kModes[] = {0, 0, 0, 1, 1, 2, 128, 255};
      to[0] = kModes[Below(8)];
      // Padding, neither read nor written.
      for (int i = 1; i < 4; ++i) {
        to[i] = static_cast<uint8_t>(Below(256));
      }
      for (uint32_t offset = 4; offset < 32; offset += 4) {
        write(offset);
      }
      for (uint32_t offset = 32; offset < 44; offset += 4) {
        // Mostly such that deep trees keep moderate numbers.
        const float scale = Chance(0.8) ? 1.0f + 0.1f * Number() : Number();
        std::memcpy(to + offset, &scale, 4);
      }
    } else {
      scriptBytes = 20;
      for (uint32_t offset = 0; offset < scriptBytes; offset += 4) {
        write(offset);
      }
    }
    std::memcpy(world.At(handle).sharedRecord(), to, scriptBytes);
  }

  void WriteRecords() {
    const uint32_t count = Below(1 + static_cast<uint32_t>(handles.size()));
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t handle = AnyHandle();
      if (model.Find(handle) != nullptr) {
        WriteRecord(handle);
        written.push_back(handle);
      }
    }
  }

  void NameSomething() {
    const uint32_t handle = AnyHandle();
    const std::string name = "entity " + std::to_string(Below(1000));
    world.Core()->SetEntityName(handle, name);
    if (model.Find(handle) != nullptr) {
      model.Find(handle)->name = name;
    }
  }

  void Append(std::vector<uint32_t>* dirty) {
    if (!written.empty() && Chance(0.8)) {
      dirty->push_back(written[Below(static_cast<uint32_t>(written.size()))]);
    } else {
      dirty->push_back(AnyHandle());
    }
  }

  // The script appends after what the engine left in the list.
  void WriteDirtyList() {
    std::vector<uint32_t> dirty;
    const uint32_t left = model.dirtyWords[0];
    uint32_t wanted = Below(31);
    if (calm) {
      wanted = Below(2 + static_cast<uint32_t>(handles.size()) / 8);
    } else if (kind.longLists) {
      static const uint32_t kLengths[] = {31, 32, 33, 35, 36, 63, 64, 100, 400};
      wanted = kLengths[Below(9)];
      wanted = wanted > left ? wanted - left : 0;
    } else if (left < 31) {
      wanted = std::min(wanted, 31 - left);
    }
    while (dirty.size() < wanted) {
      Append(&dirty);
    }
    if (Chance(0.5)) {
      written.clear();
    }
    for (const uint32_t handle : dirty) {
      model.dirtyWords[++model.dirtyWords[0]] = handle;
      world.Dirty(handle);
    }
  }

  void Link(std::vector<uint32_t>* words) {
    uint32_t parent = AnyHandle();
    uint32_t child = AnyHandle();
    if (!kind.cycles && ranks[parent] > ranks[child]) {
      std::swap(parent, child);
    }
    if (StandsAlone(child)) {
      return;
    }
    if (Chance(0.5)) {
      words->insert(words->end(), {2, parent, child});
    } else {
      words->insert(words->end(), {3, parent, child, Chance(0.9) ? Below(6) : 0xFFFFFFFFu});
    }
  }

  // Makes roots of the reserved entities, and gives most others a parent.
  void LinkMost(std::vector<uint32_t>* words) {
    for (const uint32_t handle : handles) {
      const uint32_t other = handles[Below(static_cast<uint32_t>(handles.size()))];
      if (StandsAlone(handle)) {
        words->insert(words->end(), {1, handle});
      } else if (ranks[other] < ranks[handle]) {
        words->insert(words->end(), {2, other, handle});
      }
    }
  }

  void OneCommand(std::vector<uint32_t>* words) {
    switch (Below(20)) {
      case 0:
      case 1:
      case 2: {
        const uint32_t handle = AnyHandle();
        if (!kind.calm || StandsAlone(handle) || Chance(0.005)) {
          words->insert(words->end(), {1, handle});
        }
        break;
      }
      case 3:
        words->insert(words->end(), {4, AnyHandle()});
        break;
      case 4:
        if (Chance(0.3)) {
          words->insert(words->end(), {5, AnyHandle()});
        }
        break;
      case 5:
      case 6:
        if (kind.bindings) {
          words->insert(words->end(), {6, AnyHandle(), AnyHandle()});
        }
        break;
      case 7: {
        const uint32_t n = kind.bindings ? Below(5) : 0;
        words->insert(words->end(), {7, n});
        for (uint32_t i = 0; i < 2 * n; ++i) {
          words->push_back(AnyHandle());
        }
        break;
      }
      case 8:
        words->insert(words->end(), {8, AnyHandle()});
        break;
      case 9: {
        const uint32_t n = Below(4);
        words->insert(words->end(), {9, n});
        for (uint32_t i = 0; i < n; ++i) {
          words->push_back(AnyHandle());
        }
        break;
      }
      case 10:
      case 11:
        words->insert(words->end(), {10, AnyHandle()});
        break;
      case 12:
        words->insert(words->end(), {11, AnyHandle()});
        break;
      case 13: {
        const uint32_t kUnknown[] = {0, 12, 13, 99, 0x80000000u, 0xFFFFFFFFu};
        words->push_back(kUnknown[Below(6)]);
        break;
      }
      default:
        Link(words);
        break;
    }
  }

  void WriteCommands() {
    if (Chance(calm ? 0.9 : 0.3)) {
      return;
    }
    std::vector<uint32_t> words;
    const uint32_t count = Below(calm ? 3 : 40);
    for (uint32_t i = 0; i < count; ++i) {
      OneCommand(&words);
    }
    if (kind.calm && !calm) {
      LinkMost(&words);
    }
    uint32_t bytes = static_cast<uint32_t>(words.size()) * 4;
    if (bytes >= 8 && Chance(0.2)) {
      bytes -= 1 + Below(7);  // a last command that is truncated
    } else if (Chance(0.1)) {
      bytes += 1 + Below(4);  // one word more than was written
    }
    const auto write = [&words, bytes](uint32_t* to) {
      to[0] = bytes;
      std::copy(words.begin(), words.end(), to + 1);
      to[1 + words.size()] = 0;
    };
    write(model.commandWords.data());
    write(world.CommandWords());
  }

  // In calm scenes every fourth entity is reserved for roots, and is nobody's child: roots under
  // parents are rare.
  bool StandsAlone(uint32_t handle) { return kind.calm && ranks[handle] % 4 == 0; }

  // Calls of an embedding program between frames.
  void CallNatively() {
    const uint32_t handle = AnyHandle();
    ReferenceEntity* expected = model.Find(handle);
    if (expected == nullptr) {
      return;
    }
    Entity& entity = world.At(handle);
    const bool flag = Chance(0.5);
    const size_t logged = model.log.size();
    OutputRecorder output;
    // The last two are rare: their effect on a scene is permanent.
    switch (Chance(0.97) ? Below(5) : 5 + Below(2)) {
      case 0:
        model.MarkDirty(expected, flag);
        entity.PropagateMarkDirty(flag);
        break;
      case 1:
        model.UpdateTree(expected, 0);
        entity.UpdateTree();
        break;
      case 2:
        model.UpdateWorldSubtree(expected, 0);
        entity.UpdateWorldSubtree();
        break;
      case 3:
        model.RefreshChain(expected);
        entity.RefreshChain();
        break;
      case 4:
        model.MarkListed(flag);
        world.System()->MarkDirtyEntities(flag);
        break;
      case 5:
        model.MarkSubtree(expected);
        entity.MarkSubtreeDirty();
        break;
      default:
        expected->active = flag;
        entity.SetActive(flag);
        break;
    }
    EXPECT_EQ(model.log.substr(logged), output.Text());
  }

  void CompareLists() {
    ASSERT_EQ(0, std::memcmp(model.dirtyWords.data(), world.DirtyWords(),
                             size_t{4} * ReferenceScene::kWords))
        << "dirty list";
    ASSERT_EQ(0, std::memcmp(model.commandWords.data(), world.CommandWords(),
                             size_t{4} * ReferenceScene::kWords))
        << "command stream";
    std::vector<uint32_t> roots;
    for (const ReferenceEntity* root : model.roots) {
      roots.push_back(root->handle);
    }
    ASSERT_EQ(roots, world.Roots());
  }

  void CompareEntity(const ReferenceEntity& expected, bool versions) {
    SCOPED_TRACE("entity " + std::to_string(expected.handle));
    Entity* found = world.System()->FindEntity(expected.handle);
    ASSERT_NE(nullptr, found);
    const Entity& entity = *found;
    EXPECT_EQ(expected.handle, entity.handle);
    EXPECT_EQ(expected.isThreeD, entity.isThreeD());
    EXPECT_EQ(expected.active, entity.active());
    EXPECT_EQ(expected.dirtyState, entity.dirtyState());
    EXPECT_EQ(expected.worldVersion, entity.worldVersion());
    EXPECT_EQ(expected.name, entity.name);
    EXPECT_EQ(expected.parent == nullptr ? 0 : expected.parent->handle,
              world.ParentOf(expected.handle));
    EXPECT_EQ(expected.boundTo == nullptr ? 0 : expected.boundTo->handle,
              world.BoneOf(expected.handle));
    EXPECT_EQ(std::count(model.roots.begin(), model.roots.end(), &expected) != 0,
              world.System()->IsRoot(&entity));
    std::vector<uint32_t> children;
    for (const ReferenceEntity* child : expected.children) {
      children.push_back(child->handle);
    }
    EXPECT_EQ(children, world.ChildrenOf(expected.handle));
    std::vector<uint32_t> bound;
    for (const auto& each : expected.boundEntities) {
      bound.push_back(each.second->handle);
    }
    EXPECT_EQ(bound, world.BoundTo(expected.handle));
    EXPECT_TRUE(SameFloats(expected.local, entity.localMatrix(), 16)) << "local matrix";
    EXPECT_TRUE(SameFloats(expected.world, entity.worldMatrix(), 16)) << "world matrix";
    CompareRecord(expected, entity.sharedRecord());
    if (versions) {
      EXPECT_EQ(expected.localVersion, entity.localVersion());
    }
  }

  static void CompareRecord(const ReferenceEntity& expected, const uint8_t* actual) {
    uint32_t offset = 0;
    if (expected.isThreeD) {
      EXPECT_EQ(0, std::memcmp(expected.record, actual, 4)) << "rotation mode and what is unused";
      offset = 4;
    }
    const uint32_t end = expected.isThreeD ? 108 : 56;
    std::vector<float> numbers((end - offset) / 4);
    std::vector<float> actualNumbers(numbers.size());
    std::memcpy(numbers.data(), expected.record + offset, end - offset);
    std::memcpy(actualNumbers.data(), actual + offset, end - offset);
    EXPECT_TRUE(SameFloats(numbers, actualNumbers.data())) << "shared record";
  }

  // Frames in which a calm scene is built, like any other.
  static constexpr int kFramesToBuild = 4;

  World world;
  ReferenceScene model;
  std::mt19937 random;
  const SceneKind kind;
  int frames = 0;
  bool calm = false;  // in this frame
  std::vector<uint32_t> handles;
  std::map<uint32_t, uint32_t> ranks;  // links go from lower to higher, where cycles are unwanted
  std::vector<uint32_t> written;       // handles whose records the script wrote recently
};

// Runs scenes of one kind with their own seeds.
void RunScenes(uint32_t firstSeed, int scenes, int frames, const SceneKind& kind) {
  int compared = 0;
  for (uint32_t seed = firstSeed; seed < firstSeed + static_cast<uint32_t>(scenes); ++seed) {
    RandomScene scene(seed, kind);
    for (int frame = 0; frame < frames; ++frame) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", frame " + std::to_string(frame));
      if (!scene.Frame()) {
        break;
      }
      scene.Compare(frame + 1 == frames || scene.Chance(0.3));
      ++compared;
      if (::testing::Test::HasFailure()) {
        return;
      }
    }
  }
  // Most scenes must reach their last frame, or the comparison says little.
  EXPECT_GE(compared, scenes * (kind.cycles ? 2 : frames));
}

}  // namespace

TEST(WorldTransformModelTest, ScenesWithShortDirtyListsGiveTheBytesOfTheModel) {
  RunScenes(1000, Rounds(600), 12, SceneKind());
}

TEST(WorldTransformModelTest, ScenesWithLongDirtyListsGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.longLists = true;
  RunScenes(2000, Rounds(600), 12, kind);
}

TEST(WorldTransformModelTest, ScenesWithNaNsAndExtremeNumbersGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.wildNumbers = true;
  RunScenes(3000, Rounds(300), 12, kind);
  kind.longLists = true;
  RunScenes(4000, Rounds(300), 12, kind);
}

TEST(WorldTransformModelTest, ScenesWithParentCyclesGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.cycles = true;
  RunScenes(5000, Rounds(600), 12, kind);
}

TEST(WorldTransformModelTest, LongScenesGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.longLists = true;
  RunScenes(6000, Rounds(20), 150, kind);
}

TEST(WorldTransformModelTest, ScenesWithFewChangesGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.calm = true;
  kind.bindings = false;
  RunScenes(7000, Rounds(400), 60, kind);
  kind.longLists = true;
  RunScenes(8000, Rounds(100), 60, kind);
}

TEST(WorldTransformModelTest, ScenesWithFewChangesAndBindingsGiveTheBytesOfTheModel) {
  SceneKind kind;
  kind.calm = true;
  RunScenes(9000, Rounds(200), 60, kind);
}

// The same scene, with its dirty lists unchanged and padded with invalid handles, so that the
// workers process them.
TEST(WorldTransformModelTest, ShortAndLongDirtyListsGiveTheSameBytes) {
  constexpr int32_t kCount = 40;
  constexpr uint32_t kUnknownHandle = 0x00ABC000u;
  for (uint32_t seed = 1; seed <= static_cast<uint32_t>(Rounds(50)); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    World shortWorld;
    World longWorld;
    World* const worlds[] = {&shortWorld, &longWorld};
    uint32_t key = 0;
    uint32_t parents[kCount] = {};
    for (uint32_t i = 1; i < kCount; ++i) {
      parents[i] = random() % i;
    }
    for (World* world : worlds) {
      key = world->Add3D(kCount);
      world->AddRoot(key);
      for (uint32_t i = 1; i < kCount; ++i) {
        world->Link(key + parents[i], key + i);
      }
      for (uint32_t i = 0; i < kCount; ++i) {
        world->Dirty(key + i);
      }
      world->Refresh();
      world->Bind(key + 5, key + 30);
      world->Bind(key + 9, key + 30);
    }
    for (int frame = 0; frame < 6; ++frame) {
      for (int entry = 0; entry < 25; ++entry) {
        const uint32_t handle = key + random() % kCount;
        const float x = static_cast<float>(random() % 1000) * 0.01f;
        for (World* world : worlds) {
          world->MoveTo(handle, x, x + 1, x + 2);
          world->Record3D(handle).rotation[1] = x;
          world->Dirty(handle);
        }
      }
      while (longWorld.DirtyWords()[0] < 60) {
        longWorld.Dirty(kUnknownHandle);
      }
      shortWorld.Refresh();
      longWorld.Refresh();
      ASSERT_EQ(shortWorld.DirtyList(), longWorld.DirtyList());
      ASSERT_EQ(0, std::memcmp(&shortWorld.Record3D(key), &longWorld.Record3D(key),
                               kCount * sizeof(Entity3DRecord)));
      for (uint32_t i = 0; i < kCount; ++i) {
        ASSERT_EQ(shortWorld.At(key + i).localVersion(), longWorld.At(key + i).localVersion());
        ASSERT_EQ(shortWorld.At(key + i).worldVersion(), longWorld.At(key + i).worldVersion());
        ASSERT_EQ(shortWorld.At(key + i).dirtyState(), longWorld.At(key + i).dirtyState());
      }
    }
    // Guards the test: the last frames moved what follows the bone.
    EXPECT_EQ(1, shortWorld.Record3D(key + 9).rotationMode);
    EXPECT_EQ(1.0f, shortWorld.Record3D(key + 9).worldMatrix[15]);
  }
}

}  // namespace nq::engine
