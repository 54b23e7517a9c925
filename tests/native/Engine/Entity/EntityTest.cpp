// Links, bindings, marks and resets of single entities.
#include "Engine/Entity/Entity.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

using Handles = std::vector<uint32_t>;

class EntityTest : public WorldTest {
 protected:
  // The marks of the elements of a batch.
  std::vector<uint32_t> Marks(uint32_t batch, uint32_t count) {
    std::vector<uint32_t> marks;
    for (uint32_t i = 0; i < count; ++i) {
      marks.push_back(world.At(batch + i).dirtyState());
    }
    return marks;
  }

  void SetMarks(uint32_t batch, const std::vector<uint8_t>& marks) {
    for (uint32_t i = 0; i < marks.size(); ++i) {
      world.SetMark(batch + i, marks[i]);
    }
  }
};

using Marked = std::vector<uint32_t>;

}  // namespace

TEST_F(EntityTest, AttachChildAppends) {
  const uint32_t e = world.Add3D(4);
  world.At(e).AttachChild(&world.At(e + 2));
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e).AttachChild(&world.At(e + 3));
  EXPECT_EQ((Handles{e + 2, e + 1, e + 3}), world.ChildrenOf(e));
  EXPECT_EQ(e, world.ParentOf(e + 1));
  EXPECT_EQ(3u, world.At(e).children().size());
  EXPECT_EQ(&world.At(e + 1), world.At(e).children()[1]);
}

TEST_F(EntityTest, AttachChildToTheCurrentParentKeepsItsPositionAndMarksNothing) {
  const uint32_t e = world.Add3D(3);
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e).AttachChild(&world.At(e + 2));
  SetMarks(e, {0, 0, 0});
  world.At(e).AttachChild(&world.At(e + 1));
  EXPECT_EQ((Handles{e + 1, e + 2}), world.ChildrenOf(e));
  EXPECT_EQ((Marked{0, 0, 0}), Marks(e, 3));
}

TEST_F(EntityTest, AttachChildRemovesAChildFromItsOldParent) {
  const uint32_t e = world.Add3D(5);
  for (const uint32_t child : {e + 2, e + 3, e + 4}) {
    world.At(e).AttachChild(&world.At(child));
  }
  world.At(e + 1).AttachChild(&world.At(e + 3));
  EXPECT_EQ((Handles{e + 2, e + 4}), world.ChildrenOf(e));
  EXPECT_EQ(Handles{e + 3}, world.ChildrenOf(e + 1));
  EXPECT_EQ(e + 1, world.ParentOf(e + 3));
}

//   0        marks before 0 0 0 0 0
//   |- 1 (linked now)
//   |  `- 2
//   `- 3
//      `- 4
TEST_F(EntityTest, LinkingMarksTheChildItsDescendantsAndItsNewAncestors) {
  const uint32_t e = world.Add3D(5);
  for (const bool insert : {false, true}) {
    world.At(e + 1).RemoveFromParent();
    world.At(e).AttachChild(&world.At(e + 3));
    world.At(e + 1).AttachChild(&world.At(e + 2));
    world.At(e + 3).AttachChild(&world.At(e + 4));
    SetMarks(e, {0, 0, 0, 0, 0});
    if (insert) {
      world.At(e).InsertChildAt(&world.At(e + 1), 0);
    } else {
      world.At(e).AttachChild(&world.At(e + 1));
    }
    EXPECT_EQ((Marked{1, 2, 2, 0, 0}), Marks(e, 5));
  }
}

// Children of e before:      1 2 3
struct InsertCase {
  uint32_t child;
  uint32_t index;
  std::vector<uint32_t> after;
};

TEST_F(EntityTest, InsertChildAtCountsPositionsWithoutTheChild) {
  const InsertCase cases[] = {
      {4, 0, {4, 1, 2, 3}},
      {4, 1, {1, 4, 2, 3}},
      {4, 2, {1, 2, 4, 3}},
      {4, 3, {1, 2, 3, 4}},            // as many as there are children: after the last
      {4, 4, {1, 2, 3, 4}},            //
      {4, 0xFFFFFFFFu, {1, 2, 3, 4}},  // not negative
      {4, 0x80000000u, {1, 2, 3, 4}},
      {1, 0, {1, 2, 3}},
      {1, 1, {2, 1, 3}},  // a move inside one parent
      {1, 2, {2, 3, 1}},
      {1, 3, {2, 3, 1}},
      {3, 0, {3, 1, 2}},
      {3, 1, {1, 3, 2}},
      {3, 2, {1, 2, 3}},
      {2, 0, {2, 1, 3}},
      {2, 1, {1, 2, 3}},
      {2, 2, {1, 3, 2}},
  };
  for (const InsertCase& each : cases) {
    SCOPED_TRACE(testing::Message() << "child " << each.child << " at " << each.index);
    const uint32_t e = world.Add3D(5);
    for (uint32_t child = 1; child <= 3; ++child) {
      world.At(e).AttachChild(&world.At(e + child));
    }
    SetMarks(e, {0, 0, 0, 0, 0});
    world.At(e).InsertChildAt(&world.At(e + each.child), each.index);
    Handles expected;
    for (const uint32_t child : each.after) {
      expected.push_back(e + child);
    }
    EXPECT_EQ(expected, world.ChildrenOf(e));
    EXPECT_EQ(2u, world.At(e + each.child).dirtyState());
    EXPECT_EQ(1u, world.At(e).dirtyState());
    // The list is consistent from its end, too.
    while (!world.At(e).children().empty()) {
      const Handles children = world.ChildrenOf(e);
      ASSERT_EQ(expected, children);
      world.At(children.back()).RemoveFromParent();
      expected.pop_back();
    }
    world.Release(e);
  }
}

TEST_F(EntityTest, InsertChildAtRemovesAChildFromItsOldParent) {
  const uint32_t e = world.Add3D(5);
  world.At(e).AttachChild(&world.At(e + 2));
  world.At(e).AttachChild(&world.At(e + 3));
  world.At(e + 1).AttachChild(&world.At(e + 4));
  world.At(e + 1).InsertChildAt(&world.At(e + 2), 0);
  EXPECT_EQ(Handles{e + 3}, world.ChildrenOf(e));
  EXPECT_EQ((Handles{e + 2, e + 4}), world.ChildrenOf(e + 1));
}

TEST_F(EntityTest, RemoveFromParentMarksNothingAndKeepsTheMatrices) {
  const uint32_t e = world.Add3D(2);
  world.MoveTo(e, 1, 0, 0);
  world.MoveTo(e + 1, 0, 1, 0);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  world.At(e + 1).RemoveFromParent();
  EXPECT_EQ((Marked{0, 0}), Marks(e, 2));
  EXPECT_EQ(0u, world.ParentOf(e + 1));
  EXPECT_EQ(Handles{e}, world.Roots());
  EXPECT_EQ((std::vector<float>{1, 1, 0}), world.WorldPosition(e + 1));
  world.At(e + 1).RemoveFromParent();
  EXPECT_EQ(0u, world.ParentOf(e + 1));
}

TEST_F(EntityTest, BoundEntitiesAreSortedByAddress) {
  const uint32_t e = world.Add3D(5);
  for (const uint32_t bound : {e + 3, e + 1, e + 4, e + 2}) {
    world.At(bound).BindToBone(&world.At(e));
  }
  EXPECT_EQ((Handles{e + 1, e + 2, e + 3, e + 4}), world.BoundTo(e));
  world.At(e + 3).UnbindFromBone();
  EXPECT_EQ((Handles{e + 1, e + 2, e + 4}), world.BoundTo(e));
  EXPECT_EQ(0u, world.BoneOf(e + 3));
  world.At(e + 3).UnbindFromBone();
  EXPECT_EQ((Handles{e + 1, e + 2, e + 4}), world.BoundTo(e));
}

TEST_F(EntityTest, BindingMarksNothingAndIsIndependentOfLinks) {
  const uint32_t e = world.Add3D(3);
  world.At(e).AttachChild(&world.At(e + 1));
  SetMarks(e, {0, 0, 0});
  world.At(e + 1).BindToBone(&world.At(e + 2));
  EXPECT_EQ((Marked{0, 0, 0}), Marks(e, 3));
  EXPECT_EQ(e, world.ParentOf(e + 1));
  EXPECT_EQ(e + 2, world.BoneOf(e + 1));
  world.At(e + 1).UnbindFromBone();
  EXPECT_EQ(e, world.ParentOf(e + 1));
}

TEST_F(EntityTest, RebindingRemovesTheOldBinding) {
  const uint32_t e = world.Add3D(3);
  world.At(e).BindToBone(&world.At(e + 1));
  world.At(e).BindToBone(&world.At(e + 1));
  EXPECT_EQ(Handles{e}, world.BoundTo(e + 1));
  world.At(e).BindToBone(&world.At(e + 2));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 1));
  EXPECT_EQ(Handles{e}, world.BoundTo(e + 2));
}

TEST_F(EntityTest, ABindingCycleIsRefusedWithTwoWrites) {
  const uint32_t e = world.Add3D(2);
  world.At(e).BindToBone(&world.At(e + 1));
  std::vector<std::string> writes;
  {
    OutputRecorder output;
    world.At(e + 1).BindToBone(&world.At(e));
    writes = output.Writes();
  }
  EXPECT_EQ((std::vector<std::string>{
                "[NQ_WARN][Engine]: ",
                "Cycle Binding Detected, bind: 4097 to bone: 4096\n",
            }),
            writes);
  EXPECT_EQ(0u, world.BoneOf(e + 1));
  EXPECT_EQ(e + 1, world.BoneOf(e));
}

TEST_F(EntityTest, ARefusedRebindLeavesTheEntityUnbound) {
  //  2 -> 1 -> 0 -> 3 are bound; then 0 is bound to 2
  const uint32_t e = world.Add3D(4);
  world.At(e + 2).BindToBone(&world.At(e + 1));
  world.At(e + 1).BindToBone(&world.At(e));
  world.At(e).BindToBone(&world.At(e + 3));
  std::string text;
  {
    OutputRecorder output;
    world.At(e).BindToBone(&world.At(e + 2));
    text = output.Text();
  }
  EXPECT_EQ("[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4096 to bone: 4098\n", text);
  EXPECT_EQ(0u, world.BoneOf(e));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 3));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 2));
  EXPECT_EQ(Handles{e + 1}, world.BoundTo(e));
}

TEST_F(EntityTest, AnEntityCannotBeItsOwnBone) {
  const uint32_t e = world.Add3D(2);
  world.At(e).BindToBone(&world.At(e + 1));
  std::string text;
  {
    OutputRecorder output;
    world.At(e).BindToBone(&world.At(e));
    text = output.Text();
  }
  EXPECT_EQ("[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4096 to bone: 4096\n", text);
  EXPECT_EQ(0u, world.BoneOf(e));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 1));
}

TEST_F(EntityTest, ABindingCycleThroughAParentLinkIsNotDetected) {
  const uint32_t e = world.Add3D(2);
  world.At(e).AttachChild(&world.At(e + 1));
  OutputRecorder output;
  world.At(e).BindToBone(&world.At(e + 1));
  EXPECT_EQ("", output.Text());
  EXPECT_EQ(e + 1, world.BoneOf(e));
}

TEST_F(EntityTest, EntitiesOfDifferentKindsCanBeBound) {
  const uint32_t flat = world.Add2D();
  const uint32_t solid = world.Add3D();
  world.At(flat).BindToBone(&world.At(solid));
  EXPECT_EQ(Handles{flat}, world.BoundTo(solid));
}

//   0            marks before   0
//   |- 1                        |- 0
//   |  |- 2                     |  |- 0
//   |  |  `- 3 <- marked        |  |  `- 0
//   |  |     `- 4               |  |     `- 0
//   |  `- 5                     |  `- 0
//   `- 6                        `- 0
TEST_F(EntityTest, MarksAncestorsAsDirtyBelowAndDescendantsOnlyIfDeep) {
  const uint32_t e = world.Add3D(7);
  for (const auto& link :
       {std::pair<uint32_t, uint32_t>{0, 1}, {1, 2}, {2, 3}, {3, 4}, {1, 5}, {0, 6}}) {
    world.At(e + link.first).AttachChild(&world.At(e + link.second));
  }
  SetMarks(e, {0, 0, 0, 0, 0, 0, 0});
  world.At(e + 3).PropagateMarkDirty(false);
  EXPECT_EQ((Marked{1, 1, 1, 2, 0, 0, 0}), Marks(e, 7));

  SetMarks(e, {0, 0, 0, 0, 0, 0, 0});
  world.At(e + 3).PropagateMarkDirty(true);
  EXPECT_EQ((Marked{1, 1, 1, 2, 2, 0, 0}), Marks(e, 7));

  // The climb ends at the first ancestor that is marked, whatever is above it.
  SetMarks(e, {0, 1, 0, 0, 0, 0, 0});
  world.At(e + 3).PropagateMarkDirty(false);
  EXPECT_EQ((Marked{0, 1, 1, 2, 0, 0, 0}), Marks(e, 7));

  SetMarks(e, {0, 2, 0, 1, 0, 0, 0});
  world.At(e + 3).PropagateMarkDirty(false);
  EXPECT_EQ((Marked{0, 2, 1, 2, 0, 0, 0}), Marks(e, 7));
}

//   0                 marks before  0            after   0
//   |- 1                            |- 2                 |- 2
//   |  `- 2                         |  `- 0              |  `- 0   passed over with its parent
//   |- 3                            |- 1                 |- 2
//   |  |- 4                         |  |- 2              |  |- 2
//   |  |  `- 5                      |  |  `- 0           |  |  `- 0
//   |  `- 6                         |  `- 0              |  `- 2
//   `- 7                            `- 0                 `- 2
TEST_F(EntityTest, MarkSubtreeDirtySkipsMarkedSubtrees) {
  const uint32_t e = world.Add3D(8);
  for (const auto& link :
       {std::pair<uint32_t, uint32_t>{0, 1}, {1, 2}, {0, 3}, {3, 4}, {4, 5}, {3, 6}, {0, 7}}) {
    world.At(e + link.first).AttachChild(&world.At(e + link.second));
  }
  SetMarks(e, {0, 2, 0, 1, 2, 0, 0, 0});
  world.At(e).MarkSubtreeDirty();
  EXPECT_EQ((Marked{0, 2, 0, 2, 2, 0, 2, 2}), Marks(e, 8));
}

TEST_F(EntityTest, MarkSubtreeDirtyMarksOnlyDescendants) {
  // 0 -> 1 -> 2, and 3 beside 1
  const uint32_t e = world.Add3D(4);
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e + 1).AttachChild(&world.At(e + 2));
  world.At(e).AttachChild(&world.At(e + 3));
  SetMarks(e, {0, 0, 0, 0});
  world.At(e + 1).MarkSubtreeDirty();
  EXPECT_EQ((Marked{0, 0, 2, 0}), Marks(e, 4));
}

// 0 -> 1 -> 2 -> 0, with 3 below 1
TEST_F(EntityTest, MarkingAParentCycleTerminates) {
  const uint32_t e = world.Add3D(4);
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e + 1).AttachChild(&world.At(e + 3));
  world.At(e + 1).AttachChild(&world.At(e + 2));
  world.At(e + 2).AttachChild(&world.At(e));
  SetMarks(e, {0, 0, 0, 0});
  world.At(e).MarkSubtreeDirty();
  EXPECT_EQ((Marked{2, 2, 2, 2}), Marks(e, 4));
  SetMarks(e, {0, 0, 0, 0});
  world.At(e + 1).PropagateMarkDirty(false);
  EXPECT_EQ((Marked{1, 2, 1, 0}), Marks(e, 4));
  SetMarks(e, {0, 0, 0, 0});
  world.At(e + 3).PropagateMarkDirty(true);
  EXPECT_EQ((Marked{1, 1, 1, 2}), Marks(e, 4));
}

TEST_F(EntityTest, ResetRemovesLinksAndKeepsChildrenRootsAndRecord) {
  const uint32_t e = world.Add3D(6);
  // 0 is parent of 1, and 1 of 2; 1 is bound to 3, and 4 and 5 to 1.
  world.AddRoot(e + 1);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Link(e + 1, e + 2);
  world.Bind(e + 1, e + 3);
  world.Bind(e + 4, e + 1);
  world.Bind(e + 5, e + 1);
  world.Core()->SetEntityName(e + 1, "hip");
  world.MoveTo(e + 1, 1, 2, 3);
  world.Settle({e, e + 1, e + 2});
  world.Deactivate(e + 1);
  world.RunCommands();
  const uint32_t version = world.At(e + 1).localVersion();
  EXPECT_NE(0u, version);
  const Entity3DRecord before = world.Record3D(e + 1);

  world.At(e + 1).Reset();
  const Entity& entity = world.At(e + 1);
  EXPECT_EQ(0u, world.ParentOf(e + 1));
  EXPECT_EQ(Handles{}, world.ChildrenOf(e));
  EXPECT_EQ(0u, world.BoneOf(e + 1));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 3));
  EXPECT_EQ(Handles{}, world.BoundTo(e + 1));
  EXPECT_EQ(0u, world.BoneOf(e + 4));
  EXPECT_EQ(0u, world.BoneOf(e + 5));
  EXPECT_EQ(0u, entity.worldVersion());
  EXPECT_EQ(2u, entity.dirtyState());
  EXPECT_TRUE(entity.active());
  EXPECT_EQ("", entity.name);

  EXPECT_EQ(Handles{e + 2}, world.ChildrenOf(e + 1));
  EXPECT_EQ(version, entity.localVersion());
  EXPECT_EQ((Handles{e + 1, e}), world.Roots());
  EXPECT_EQ(0, std::memcmp(&before, &world.Record3D(e + 1), sizeof(before)));
}

//   0
//   |- 1
//   |  |- 2
//   |  `- 3
//   `- 4
TEST_F(EntityTest, ResetSubtreeUnlinksEveryDescendantAndKeepsItsRecord) {
  const uint32_t e = world.Add3D(6);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.Link(e + 1, e + 3);
  world.Link(e, e + 4);
  world.Link(e + 5, e);
  world.AddRoot(e + 5);
  for (uint32_t i = 0; i < 6; ++i) {
    world.MoveTo(e + i, static_cast<float>(i), 1, 2);
    world.Dirty(e + i);
  }
  world.Refresh();
  world.Deactivate(e + 3);
  world.RunCommands();
  std::vector<Entity3DRecord> before(6);
  std::memcpy(before.data(), &world.Record3D(e), 6 * sizeof(Entity3DRecord));

  world.At(e).ResetSubtree();
  for (uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(0u, world.ParentOf(e + i)) << i;
    EXPECT_EQ(Handles{}, world.ChildrenOf(e + i)) << i;
    EXPECT_EQ(0u, world.At(e + i).worldVersion()) << i;
    EXPECT_EQ(2u, world.At(e + i).dirtyState()) << i;
    EXPECT_TRUE(world.At(e + i).active()) << i;
    EXPECT_EQ(1u, world.At(e + i).worldMatrix()[15]) << i;
  }
  EXPECT_EQ(Handles{}, world.ChildrenOf(e + 5));
  EXPECT_EQ(1u, world.At(e + 5).worldVersion());
  EXPECT_EQ(0, std::memcmp(before.data(), &world.Record3D(e), 6 * sizeof(Entity3DRecord)));
  EXPECT_EQ(Handles{e + 5}, world.Roots());
}

TEST_F(EntityTest, ResetSubtreeBreaksAParentCycle) {
  const uint32_t e = world.Add3D(3);
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e + 1).AttachChild(&world.At(e + 2));
  world.At(e + 2).AttachChild(&world.At(e));
  world.At(e + 1).ResetSubtree();
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(0u, world.ParentOf(e + i));
    EXPECT_EQ(Handles{}, world.ChildrenOf(e + i));
  }
}

// An entity can't be deleted alone: its batch cleans it.
using EntityDeathTest = EntityTest;

TEST_F(EntityDeathTest, TheDestructorTraps) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const uint32_t e = world.Add3D();
  EXPECT_DEATH(world.At(e).~Entity(), "");
}

}  // namespace nq::engine
