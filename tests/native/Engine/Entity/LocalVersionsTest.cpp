// Local versions against a walk of the subtree for every bump.
#include "Engine/Entity/LocalVersions.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

// The expected versions: each bump walks down at once, with a guard against cycles.
class PlainVersions {
 public:
  explicit PlainVersions(World* world) : world(world) {}

  void Bump(uint32_t handle) {
    if (visiting[handle]) {
      return;
    }
    ++versions[handle];
    visiting[handle] = true;
    for (const uint32_t child : world->ChildrenOf(handle)) {
      Bump(child);
    }
    visiting[handle] = false;
  }

  void Forget(uint32_t batch, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
      versions[batch + i] = 0;
    }
  }

  uint32_t operator[](uint32_t handle) { return versions[handle]; }

 private:
  World* const world;
  std::map<uint32_t, uint32_t> versions;
  std::map<uint32_t, bool> visiting;
};

class LocalVersionsTest : public WorldTest {
 protected:
  std::vector<uint32_t> VersionsOf(uint32_t batch, uint32_t count) {
    std::vector<uint32_t> versions;
    for (uint32_t i = 0; i < count; ++i) {
      versions.push_back(world.At(batch + i).localVersion());
    }
    return versions;
  }

  void LinkAll(uint32_t batch, std::initializer_list<std::pair<uint32_t, uint32_t>> links) {
    for (const auto& link : links) {
      world.At(batch + link.first).AttachChild(&world.At(batch + link.second));
    }
  }
};

using Versions = std::vector<uint32_t>;

// Handles as the script lists them in a frame: all kinds of links between, in any order.
void RunRandomScene(uint32_t seed, bool readOften) {
  constexpr uint32_t kBatches = 6;
  std::mt19937 random(seed);
  const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
  World world;
  PlainVersions expected(&world);
  std::map<uint32_t, uint32_t> batches;  // key to count
  const auto add = [&] {
    const uint32_t count = 1 + below(12);
    batches[world.Add3D(static_cast<int32_t>(count))] = count;
  };
  const auto any = [&] {
    auto batch = batches.begin();
    std::advance(batch, below(static_cast<uint32_t>(batches.size())));
    return batch->first + below(batch->second);
  };
  const auto compare = [&] {
    for (const auto& batch : batches) {
      for (uint32_t i = 0; i < batch.second; ++i) {
        ASSERT_EQ(expected[batch.first + i], world.At(batch.first + i).localVersion())
            << "seed " << seed << ", entity " << batch.first + i;
      }
    }
  };
  for (uint32_t i = 0; i < kBatches; ++i) {
    add();
  }
  for (int step = 0; step < 120; ++step) {
    switch (below(12)) {
      case 0: {
        const uint32_t parent = any();
        const uint32_t child = any();
        world.System()->InsertChild(parent, child, below(4));
        break;
      }
      case 1:
      case 2: {
        const uint32_t parent = any();
        const uint32_t child = any();
        world.System()->AddChild(parent, child);
        break;
      }
      case 3:
        world.System()->RemoveFromParent(any());
        break;
      case 4:
        if (below(3) == 0) {
          world.System()->ResetSubtree(any());
        } else {
          world.System()->Deactivate(any());
        }
        break;
      case 5:
        if (below(2) == 0) {
          const auto batch = batches.find(HandleKey(any()));
          world.Release(batch->first);
          expected.Forget(batch->first, batch->second);
          batches.erase(batch);
          add();
        }
        break;
      case 6: {
        const uint32_t handle = any();
        world.At(handle).BumpLocalVersion();
        expected.Bump(handle);
        break;
      }
      default: {
        // A list with duplicates and unknown handles, short or long.
        const uint32_t entries = below(3) == 0 ? 32 + below(40) : below(31);
        for (uint32_t i = 0; i < entries; ++i) {
          world.Dirty(below(20) == 0 ? 0x00F00000u : any());
        }
        for (const uint32_t handle : world.DirtyList()) {
          if (world.System()->FindEntity(handle) != nullptr) {
            expected.Bump(handle);
          }
        }
        world.System()->SyncLocalTransform();
        world.System()->ClearDirtyEntities();
        break;
      }
    }
    if (readOften || below(15) == 0) {
      compare();
    }
    if (::testing::Test::HasFatalFailure()) {
      return;
    }
  }
  compare();
}

}  // namespace

//   0
//   |- 1
//   |  |- 2
//   |  `- 3
//   `- 4
TEST_F(LocalVersionsTest, ABumpRaisesTheEntityAndAllDescendants) {
  const uint32_t e = world.Add3D(5);
  LinkAll(e, {{0, 1}, {1, 2}, {1, 3}, {0, 4}});
  EXPECT_EQ((Versions{0, 0, 0, 0, 0}), VersionsOf(e, 5));
  world.At(e + 1).BumpLocalVersion();
  EXPECT_EQ((Versions{0, 1, 1, 1, 0}), VersionsOf(e, 5));
  world.At(e).BumpLocalVersion();
  EXPECT_EQ((Versions{1, 2, 2, 2, 1}), VersionsOf(e, 5));
  world.At(e + 3).BumpLocalVersion();
  EXPECT_EQ((Versions{1, 2, 2, 3, 1}), VersionsOf(e, 5));
}

TEST_F(LocalVersionsTest, EveryEntryOfTheListCountsDuplicatesToo) {
  const uint32_t e = world.Add3D(3);
  LinkAll(e, {{0, 1}, {1, 2}});
  world.DirtyAll({e + 2, e, e + 1, e, e + 3});
  world.Refresh();
  EXPECT_EQ((Versions{2, 3, 4}), VersionsOf(e, 3));
}

TEST_F(LocalVersionsTest, UnrootedAndInactiveSubtreesCountToo) {
  const uint32_t e = world.Add3D(3);
  LinkAll(e, {{0, 1}, {1, 2}});
  world.Deactivate(e + 1);
  world.Settle({e});
  EXPECT_EQ((Versions{1, 1, 1}), VersionsOf(e, 3));
  EXPECT_EQ(0u, world.At(e).worldVersion());
}

TEST_F(LocalVersionsTest, ABumpAppliesToTheTreeAtThatTime) {
  const uint32_t e = world.Add3D(4);
  LinkAll(e, {{0, 1}});
  world.At(e).BumpLocalVersion();
  LinkAll(e, {{0, 2}});  // too late for this bump
  world.At(e).BumpLocalVersion();
  world.At(e + 1).RemoveFromParent();  // too early for the next
  world.At(e).BumpLocalVersion();
  world.At(e).InsertChildAt(&world.At(e + 3), 0);
  EXPECT_EQ((Versions{3, 2, 2, 0}), VersionsOf(e, 4));
  world.At(e).BumpLocalVersion();
  world.At(e).ResetSubtree();
  EXPECT_EQ((Versions{4, 2, 3, 1}), VersionsOf(e, 4));
}

TEST_F(LocalVersionsTest, ABumpBeforeTheReleaseOfAParentReachesTheChild) {
  const uint32_t parent = world.Add3D();
  const uint32_t child = world.Add3D();
  world.At(parent).AttachChild(&world.At(child));
  world.At(parent).BumpLocalVersion();
  world.Release(parent);
  EXPECT_EQ(1u, world.At(child).localVersion());
  // The key is reused, by an entity without bumps.
  ASSERT_EQ(parent, world.Add3D());
  EXPECT_EQ(0u, world.At(parent).localVersion());
}

TEST_F(LocalVersionsTest, ABumpOfAReleasedEntityIsDiscarded) {
  const uint32_t gone = world.Add3D();
  world.At(gone).BumpLocalVersion();
  world.Release(gone);
  ASSERT_EQ(gone, world.Add3D());
  EXPECT_EQ(0u, world.At(gone).localVersion());
}

// 0 -> 1 -> 2 -> 0, with 3 below 1, and 4 below 3
TEST_F(LocalVersionsTest, ABumpOnAParentCycleReachesEachEntityOnce) {
  const uint32_t e = world.Add3D(6);
  LinkAll(e, {{0, 1}, {1, 3}, {1, 2}, {2, 0}, {3, 4}, {2, 5}});
  world.At(e).BumpLocalVersion();
  EXPECT_EQ((Versions{1, 1, 1, 1, 1, 1}), VersionsOf(e, 6));
  world.At(e + 2).BumpLocalVersion();
  world.At(e + 1).BumpLocalVersion();
  EXPECT_EQ((Versions{3, 3, 3, 3, 3, 3}), VersionsOf(e, 6));
  world.At(e + 3).BumpLocalVersion();
  world.At(e + 5).BumpLocalVersion();
  world.At(e + 4).BumpLocalVersion();
  EXPECT_EQ((Versions{3, 3, 3, 4, 5, 4}), VersionsOf(e, 6));
  world.At(e + 4).BumpLocalVersion();
  world.At(e + 1).BumpLocalVersion();
  world.At(e + 3).BumpLocalVersion();
  EXPECT_EQ((Versions{4, 4, 4, 6, 8, 5}), VersionsOf(e, 6));
}

TEST_F(LocalVersionsTest, MoreBumpsThanAByteHoldsAllCount) {
  for (const uint32_t bumps : {1u, 254u, 255u, 256u, 257u, 511u, 512u, 513u, 1000u}) {
    const uint32_t e = world.Add3D(3);
    LinkAll(e, {{0, 1}, {1, 2}});
    for (uint32_t i = 0; i < bumps; ++i) {
      world.At(e + 1).BumpLocalVersion();
    }
    EXPECT_EQ((Versions{0, bumps, bumps}), VersionsOf(e, 3));
    world.At(e + 1).BumpLocalVersion();
    EXPECT_EQ((Versions{0, bumps + 1, bumps + 1}), VersionsOf(e, 3));
  }
}

TEST_F(LocalVersionsTest, ManyBumpsWithoutAReadBetweenAllCount) {
  const uint32_t e = world.Add3D(2);
  LinkAll(e, {{0, 1}});
  for (int i = 0; i < 100000; ++i) {
    world.At(e + (i % 10 == 0 ? 0 : 1)).BumpLocalVersion();
  }
  EXPECT_EQ((Versions{10000, 100000}), VersionsOf(e, 2));
}

TEST_F(LocalVersionsTest, WorldVersionsAreIndependent) {
  const uint32_t e = world.Add3D(2);
  LinkAll(e, {{0, 1}});
  world.AddRoot(e);
  world.Settle({e, e});
  EXPECT_EQ((Versions{2, 2}), VersionsOf(e, 2));
  EXPECT_EQ(1u, world.At(e + 1).worldVersion());
}

TEST_F(LocalVersionsTest, RandomScenesGiveTheVersionsOfAWalkForEachBump) {
  for (uint32_t seed = 1; seed <= static_cast<uint32_t>(Rounds(400)); ++seed) {
    RunRandomScene(seed, seed % 4 == 0);
    if (HasFailure()) {
      return;
    }
  }
}

}  // namespace nq::engine
