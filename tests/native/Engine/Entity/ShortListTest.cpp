// Frames that change few of many entities, after other frames and between them: what else is marked
// then, and in which order it is computed.
#include <gtest/gtest.h>

#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

using Handles = std::vector<uint32_t>;
using Numbers = std::vector<float>;

// A tree of seven in one batch with many other entities:
//
//   0 root ── 1 ──┬── 2 ── 3 ── 4
//                 └── 5 ── 6
class ShortListTest : public WorldTest {
 protected:
  static constexpr uint32_t kTree = 7;

  void SetUp() override {
    e = world.Add3D(100);
    world.AddRoot(e);
    const uint32_t parents[kTree] = {0, 0, 1, 2, 3, 1, 5};
    for (uint32_t i = 0; i < kTree; ++i) {
      world.MoveTo(e + i, 1, 0, 0);
      world.Dirty(e + i);
      if (i != 0) {
        world.Link(e + parents[i], e + i);
      }
    }
    world.Refresh();
    ASSERT_EQ(Handles(kTree, 0), Marks());
    ASSERT_EQ(Handles(kTree, 1), WorldVersions());
  }

  // Changes an entity in its record, and lists it.
  void Change(uint32_t entity) {
    world.MoveTo(e + entity, 1, 10, 0);
    world.Dirty(e + entity);
  }
  void ChangeAll(const Handles& entities) {
    for (const uint32_t entity : entities) {
      Change(entity);
    }
  }

  Handles Marks() {
    Handles marks;
    for (uint32_t i = 0; i < kTree; ++i) {
      marks.push_back(world.At(e + i).dirtyState());
    }
    return marks;
  }

  Handles WorldVersions() {
    Handles versions;
    for (uint32_t i = 0; i < kTree; ++i) {
      versions.push_back(world.At(e + i).worldVersion());
    }
    return versions;
  }

  uint32_t e = 0;
};

}  // namespace

TEST_F(ShortListTest, AListedEntityIsComputedOnceWithAllDescendantsOnly) {
  const std::vector<Handles> lists = {{3, 2}, {2, 3}, {2, 4, 2}, {4, 3, 2}};
  uint32_t version = 1;
  for (const Handles& list : lists) {
    ChangeAll(list);
    world.Refresh();
    ++version;
    EXPECT_EQ((Handles{1, 1, version, version, version, 1, 1}), WorldVersions());
    EXPECT_EQ(Handles(kTree, 0), Marks());
  }
  EXPECT_EQ((Numbers{5, 30, 0}), world.WorldPosition(e + 4));
}

TEST_F(ShortListTest, EntitiesInSeparateSubtreesAndARootAreComputedInAnyOrder) {
  for (const Handles& list : std::vector<Handles>{{6, 4}, {4, 6}}) {
    ChangeAll(list);
    world.Refresh();
  }
  EXPECT_EQ((Handles{1, 1, 1, 1, 3, 1, 3}), WorldVersions());
  ChangeAll({6, 0});
  world.Refresh();
  EXPECT_EQ((Handles{2, 2, 2, 2, 4, 2, 4}), WorldVersions());
  EXPECT_EQ(Handles(kTree, 0), Marks());
  EXPECT_EQ((Numbers{4, 20, 0}), world.WorldPosition(e + 6));
}

TEST_F(ShortListTest, MarksBelowAnInactiveEntityStayUntilItIsActivated) {
  world.Deactivate(e + 2);
  world.Refresh();
  for (int frame = 0; frame < 2; ++frame) {
    Change(4);
    Change(6);
    world.Refresh();
    EXPECT_EQ((Handles{0, 0, 1, 1, 2, 0, 0}), Marks());
  }
  EXPECT_EQ((Handles{1, 1, 1, 1, 1, 1, 3}), WorldVersions());
  EXPECT_EQ((Numbers{5, 0, 0}), world.WorldPosition(e + 4));
  world.Activate(e + 2);
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 2, 2, 2, 1, 3}), WorldVersions());
  EXPECT_EQ((Numbers{5, 10, 0}), world.WorldPosition(e + 4));
}

TEST_F(ShortListTest, AListedInactiveEntityKeepsItsMark) {
  world.Deactivate(e + 3);
  world.Refresh();
  ChangeAll({3, 4});
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 0, 2, 2, 0, 0}), Marks());
  // Computing the entities above skips it.
  ChangeAll({1, 4});
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 0, 2, 2, 0, 0}), Marks());
  EXPECT_EQ((Handles{1, 2, 2, 1, 1, 2, 2}), WorldVersions());
}

TEST_F(ShortListTest, OnlyTreesUnderActiveRootsAreComputed) {
  const uint32_t other = e + 50;
  world.AddRoot(other);
  world.Dirty(other);
  world.Deactivate(e);
  world.Refresh();
  ChangeAll({6, 50});
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 0, 0, 0, 1, 2}), Marks());
  EXPECT_EQ(2u, world.At(other).worldVersion());
  EXPECT_EQ(1u, world.At(e + 6).worldVersion());
}

TEST_F(ShortListTest, ATreeWithoutARootIsComputedWhenItsTopBecomesOne) {
  world.Link(e + 60, e + 61);
  world.Refresh();
  ChangeAll({60, 61});
  world.Refresh();
  EXPECT_EQ(2u, world.At(e + 61).dirtyState());
  EXPECT_EQ(0u, world.At(e + 61).worldVersion());
  world.AddRoot(e + 60);
  world.Refresh();
  EXPECT_EQ(0u, world.At(e + 61).dirtyState());
  EXPECT_EQ((Numbers{2, 20, 0}), world.WorldPosition(e + 61));
}

TEST_F(ShortListTest, ARootUnderAnInactiveParentIsWalkedFromItsOwnEntry) {
  world.AddRoot(e + 50);
  world.Refresh();
  world.Link(e + 5, e + 50);
  world.Dirty(e + 50);
  world.Deactivate(e + 5);
  world.Refresh();
  const uint32_t version = world.At(e + 50).worldVersion();
  for (uint32_t frame = 1; frame <= 2; ++frame) {
    Change(50);
    world.Refresh();
    EXPECT_EQ(version + frame, world.At(e + 50).worldVersion());
    EXPECT_EQ(0u, world.At(e + 50).dirtyState());
  }
}

TEST_F(ShortListTest, EntitiesMarkedBetweenFramesAreComputedToo) {
  Change(4);
  world.Refresh();
  world.MoveTo(e + 5, 1, 10, 0);
  world.At(e + 5).UpdateLocalMatrix();
  world.At(e + 5).PropagateMarkDirty(false);
  Change(4);
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 1, 3, 2, 2}), WorldVersions());
  EXPECT_EQ((Numbers{4, 10, 0}), world.WorldPosition(e + 6));
}

TEST_F(ShortListTest, AListMarkedBeforeTheFrameIsComputedInIt) {
  Change(4);
  world.System()->MarkDirtyEntities(false);
  ASSERT_EQ((Handles{1, 1, 1, 1, 2, 0, 0}), Marks());
  // The frame marks the same list: it finds the ancestors marked already.
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 1, 2, 1, 1}), WorldVersions());
  EXPECT_EQ(Handles(kTree, 0), Marks());
}

TEST_F(ShortListTest, AListMarkedAndClearedIsComputedInTheNextFrame) {
  Change(4);
  world.System()->SyncLocalTransform();
  world.System()->MarkDirtyEntities(false);
  world.System()->ClearDirtyEntities();
  Change(6);
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 1, 2, 1, 2}), WorldVersions());
  EXPECT_EQ(Handles(kTree, 0), Marks());
  EXPECT_EQ((Numbers{5, 10, 0}), world.WorldPosition(e + 4));
}

TEST_F(ShortListTest, ARootThatIsResetIsComputedWithoutBeingListed) {
  Change(4);
  world.Refresh();
  world.ResetSubtree(e);
  Change(4);
  world.Refresh();
  // Versions are reset, and all descendants are unlinked.
  EXPECT_EQ((Handles{1, 0, 0, 0, 0, 0, 0}), WorldVersions());
  EXPECT_EQ((Handles{0, 2, 2, 2, 2, 2, 2}), Marks());
}

TEST_F(ShortListTest, MarksBelowAnInactiveEntityAreFoundByTheNextWalkThatVisitsIt) {
  world.Deactivate(e + 2);
  Change(4);
  world.Refresh();
  // The program only activates it, and marks nothing: no walk has a reason to visit it.
  world.At(e + 2).SetActive(true);
  world.Refresh();
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 1, 1, 1, 1}), WorldVersions());
  EXPECT_EQ((Handles{0, 0, 1, 1, 2, 0, 0}), Marks());
  // A walk to its sibling passes it.
  Change(6);
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 1, 2, 1, 2}), WorldVersions());
  EXPECT_EQ(Handles(kTree, 0), Marks());
}

TEST_F(ShortListTest, MarksBelowACleanEntityAreFoundByTheNextWalkThatVisitsIt) {
  world.Link(e + 2, e + 70);
  world.Dirty(e + 70);
  world.Refresh();
  // 3, 4 and 70 are marked, but no ancestor.
  world.At(e + 2).MarkSubtreeDirty();
  world.Refresh();
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 0, 2, 2, 0, 0}), Marks());
  // On the way to 70, a child of 2 like 3.
  Change(70);
  world.Refresh();
  EXPECT_EQ(Handles(kTree, 0), Marks());
  EXPECT_EQ((Handles{1, 1, 1, 2, 2, 1, 1}), WorldVersions());
}

TEST_F(ShortListTest, BoundEntitiesAreListedInPreorderOfTheirBones) {
  world.Bind(e + 80, e + 4);
  world.Bind(e + 90, e + 6);
  ChangeAll({4, 6});
  world.Refresh();
  for (const Handles& list : std::vector<Handles>{{6, 4}, {4, 6}}) {
    world.DirtyWords()[0] = 0;
    ChangeAll(list);
    world.Refresh();
    EXPECT_EQ((Handles{e + 80, e + 90}), world.DirtyList());
  }
}

TEST_F(ShortListTest, BoundEntitiesStopFollowingWhenTheyOrTheBoneAreReset) {
  world.Bind(e + 80, e + 4);
  world.Bind(e + 81, e + 4);
  world.Bind(e + 90, e + 6);
  world.ResetSubtree(e + 80);
  world.Unbind(e + 81);
  world.ResetSubtree(e + 6);
  world.Refresh();
  for (int frame = 0; frame < 2; ++frame) {
    Change(4);
    world.Refresh();
    EXPECT_EQ(Handles(), world.DirtyList());
  }
  EXPECT_EQ(3u, world.At(e + 4).worldVersion());
  // Bound again, they follow again.
  world.Bind(e + 80, e + 4);
  world.Bind(e + 90, e + 3);
  for (int frame = 0; frame < 2; ++frame) {
    Change(3);
    world.Refresh();
    EXPECT_EQ((Handles{e + 90, e + 80}), world.DirtyList());
    world.DirtyWords()[0] = 0;
  }
}

}  // namespace nq::engine
