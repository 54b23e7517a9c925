// Batches, look-up, roots, and destruction of the system.
#include "Engine/Entity/EntitySystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

class EntitySystemTest : public WorldTest {};

using Handles = std::vector<uint32_t>;

}  // namespace

TEST_F(EntitySystemTest, ACountOf0CreatesNoBatch) {
  const NativeValueInfo info = world.System()->CreateEntities(true, 0);
  EXPECT_EQ(0u, info.handle);
  EXPECT_EQ(0u, info.size);
  EXPECT_EQ(0u, info.memoryID);
  EXPECT_EQ(nullptr, info.pointer);
  EXPECT_EQ(0x1000u, world.Add3D());
}

TEST_F(EntitySystemTest, BatchesHaveBlocksOfTheirKind) {
  const NativeValueInfo flat = world.AddRaw(false, 1);
  EXPECT_EQ(56u, flat.size);
  const NativeValueInfo solid = world.AddRaw(true, 3);
  EXPECT_EQ(324u, solid.size);
  EXPECT_EQ(flat.memoryID + 1, solid.memoryID);
  EXPECT_EQ(solid.pointer, world.Runtime()->FindBlock(solid.memoryID).pointer);
  EXPECT_FALSE(world.At(flat.handle).isThreeD());
  EXPECT_TRUE(world.At(solid.handle + 2).isThreeD());
}

TEST_F(EntitySystemTest, FindEntityReturnsNullForAllButTheElementsOfABatch) {
  const uint32_t batch = world.Add3D(3);
  EXPECT_EQ(batch, world.System()->FindEntity(batch)->handle);
  EXPECT_EQ(batch + 2, world.System()->FindEntity(batch + 2)->handle);
  for (const uint32_t handle :
       {0u, 1u, 2u, 0xFFFu, batch + 3, batch + 4095, batch + 0x1000, 0xFFFFF000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, world.System()->FindEntity(handle)) << handle;
  }
  world.Release(batch);
  EXPECT_EQ(nullptr, world.System()->FindEntity(batch));
  EXPECT_EQ(nullptr, world.System()->FindEntity(batch + 2));
}

TEST_F(EntitySystemTest, AnyHandleOfABatchReleasesIt) {
  const uint32_t batch = world.Add3D(3);
  world.Core()->ReleaseEntities(batch + 0x1000);
  EXPECT_NE(nullptr, world.System()->FindEntity(batch));
  // Past the end of the batch, but with its key.
  world.Release(batch + 4095);
  EXPECT_EQ(nullptr, world.System()->FindEntity(batch));
}

TEST_F(EntitySystemTest, NamesAreSetOnExistingEntitiesOnly) {
  const uint32_t batch = world.Add3D(2);
  world.Core()->SetEntityName(batch + 1, "left arm");
  world.Core()->SetEntityName(batch + 2, "nobody");
  EXPECT_EQ("", world.At(batch).name);
  EXPECT_EQ("left arm", world.At(batch + 1).name);
  world.Core()->SetEntityName(batch + 1, "");
  EXPECT_EQ("", world.At(batch + 1).name);
}

TEST_F(EntitySystemTest, AddRootKeepsOrderAndDuplicates) {
  const uint32_t batch = world.Add3D(4);
  world.System()->AddRoot(batch + 2);
  world.System()->AddRoot(batch);
  world.System()->AddRoot(batch + 2);
  EXPECT_EQ((Handles{batch + 2, batch, batch + 2}), world.Roots());
  EXPECT_TRUE(world.System()->IsRoot(&world.At(batch)));
  EXPECT_TRUE(world.System()->IsRoot(&world.At(batch + 2)));
  EXPECT_FALSE(world.System()->IsRoot(&world.At(batch + 1)));
}

TEST_F(EntitySystemTest, AddRootIgnoresChildrenAndUnknownHandles) {
  const uint32_t batch = world.Add3D(2);
  world.System()->AddChild(batch, batch + 1);
  world.System()->AddRoot(batch + 1);
  world.System()->AddRoot(batch + 2);
  world.System()->AddRoot(0);
  EXPECT_EQ(Handles{}, world.Roots());
  EXPECT_FALSE(world.System()->IsRoot(&world.At(batch + 1)));
}

TEST_F(EntitySystemTest, ARootThatIsLinkedStaysARoot) {
  const uint32_t batch = world.Add3D(2);
  world.System()->AddRoot(batch + 1);
  world.System()->AddChild(batch, batch + 1);
  EXPECT_EQ(Handles{batch + 1}, world.Roots());
  world.System()->RemoveFromParent(batch + 1);
  EXPECT_EQ(Handles{batch + 1}, world.Roots());
}

TEST_F(EntitySystemTest, OperationsIgnoreUnknownHandles) {
  const uint32_t batch = world.Add3D(2);
  const uint32_t unknown = batch + 2;
  EntitySystem* system = world.System();
  system->AddChild(batch, batch + 1);
  system->AddChild(unknown, batch + 1);
  system->AddChild(batch, unknown);
  system->InsertChild(unknown, batch + 1, 0);
  system->InsertChild(batch, unknown, 0);
  system->RemoveFromParent(unknown);
  system->ResetSubtree(unknown);
  system->BindToBone(unknown, batch);
  system->BindToBone(batch, unknown);
  system->UnbindFromBone(unknown);
  system->Activate(unknown, true);
  system->Deactivate(unknown);
  EXPECT_EQ(Handles{batch + 1}, world.ChildrenOf(batch));
  EXPECT_EQ(0u, world.BoneOf(batch));
  EXPECT_EQ(nullptr, system->FindEntity(unknown));
}

TEST_F(EntitySystemTest, TheDirtyListCanBeClearedAndTestedForEntries) {
  const uint32_t batch = world.Add3D(2);
  EXPECT_FALSE(world.System()->HasDirtyEntities());
  world.System()->AppendDirtyEntity(&world.At(batch + 1));
  EXPECT_TRUE(world.System()->HasDirtyEntities());
  EXPECT_EQ(Handles{batch + 1}, world.DirtyList());
  world.System()->ClearDirtyEntities();
  EXPECT_FALSE(world.System()->HasDirtyEntities());
  EXPECT_EQ(0u, world.DirtyWords()[0]);
  EXPECT_EQ(batch + 1, world.DirtyWords()[1]);
}

//    batch A          batch B
//    a0 (root)
//    |- a1 ---------- b0
//    |   `----------- b1
//    `- a2            b2 (bone of a2)
TEST_F(EntitySystemTest, ChildrenInAnotherBatchSurviveWithoutAParent) {
  const uint32_t a = world.Add3D(3);
  const uint32_t b = world.Add3D(3);
  world.AddRoot(a);
  world.Link(a, a + 1);
  world.Link(a, a + 2);
  world.Link(a + 1, b);
  world.Link(a + 1, b + 1);
  world.Bind(a + 2, b + 2);
  world.MoveTo(b, 1, 2, 3);
  world.Settle({a, a + 1, a + 2, b, b + 1, b + 2});
  const uint32_t version = world.At(b).worldVersion();
  world.Release(a);
  EXPECT_EQ(0u, world.ParentOf(b));
  EXPECT_EQ(0u, world.ParentOf(b + 1));
  EXPECT_EQ(Handles{}, world.BoundTo(b + 2));
  // They are no roots, and keep their matrices: nothing walks them.
  EXPECT_EQ(Handles{}, world.Roots());
  world.Settle({b, b + 1});
  EXPECT_EQ(version, world.At(b).worldVersion());
  EXPECT_EQ((std::vector<float>{1, 2, 3}), world.WorldPosition(b));
  // And can be linked again.
  world.Link(b + 1, b);
  world.AddRoot(b + 1);
  world.Refresh();
  EXPECT_EQ(Handles{b}, world.ChildrenOf(b + 1));
  EXPECT_EQ(version + 1, world.At(b).worldVersion());
}

TEST_F(EntitySystemTest, AReleasedBatchIsRemovedFromTheRootList) {
  const uint32_t a = world.Add3D(3);
  const uint32_t b = world.Add3D(2);
  for (const uint32_t handle : {a, b, a + 2, a, b + 1, b, a + 1}) {
    world.AddRoot(handle);
  }
  world.Settle({a, a + 1, a + 2, b, b + 1});
  world.Release(a);
  EXPECT_EQ((Handles{b, b + 1, b}), world.Roots());
  world.Settle({b, b + 1});
  EXPECT_EQ(2u, world.At(b).worldVersion());
}

TEST_F(EntitySystemTest, AReleasedBatchIsRemovedFromItsParentsAndItsBones) {
  const uint32_t a = world.Add3D(2);
  const uint32_t b = world.Add3D(3);
  world.Link(a, b);
  world.Link(a, a + 1);
  world.Link(a, b + 1);
  world.Bind(b, a);
  world.Bind(b + 2, a + 1);
  world.Bind(a + 1, b + 1);
  world.RunCommands();
  EXPECT_EQ(Handles{b + 2}, world.BoundTo(a + 1));
  world.Release(b);
  EXPECT_EQ(Handles{a + 1}, world.ChildrenOf(a));
  EXPECT_EQ(Handles{}, world.BoundTo(a));
  EXPECT_EQ(Handles{}, world.BoundTo(a + 1));
  EXPECT_EQ(0u, world.BoneOf(a + 1));
  world.AddRoot(a);
  world.Settle({a, a + 1});
  EXPECT_EQ(1u, world.At(a + 1).worldVersion());
}

TEST_F(EntitySystemTest, ABatchUnderAReusedKeyStartsFresh) {
  const uint32_t old = world.Add3D(2);
  world.Link(old, old + 1);
  world.AddRoot(old);
  world.MoveTo(old, 5, 5, 5);
  world.Settle({old, old + 1});
  world.Release(old);
  const NativeValueInfo info = world.AddRaw(true, 2);
  ASSERT_EQ(old, info.handle);
  const Entity& entity = world.At(info.handle);
  EXPECT_EQ(0u, entity.worldVersion());
  EXPECT_EQ(0u, entity.localVersion());
  EXPECT_EQ(2u, entity.dirtyState());
  EXPECT_TRUE(entity.children().empty());
  EXPECT_FALSE(world.System()->IsRoot(&entity));
  const std::vector<float> zeros(16, 0.0f);
  EXPECT_TRUE(SameFloats(zeros, entity.localMatrix()));
  EXPECT_TRUE(SameFloats(zeros, entity.worldMatrix()));
  EXPECT_EQ(0.0f, world.Record3D(info.handle).position[0]);
}

// Destroys a system with batches that are linked and bound in every way.
TEST_F(EntitySystemTest, DestroyingASystemReleasesRemainingBatches) {
  EngineRuntime* runtime = world.Runtime();
  EngineCore* core = new EngineCore(runtime);
  EntitySystem* system = new EntitySystem(core);
  std::vector<uint32_t> blocks = {system->DirtyEntitiesBlock().memoryID,
                                  system->EntityCommandsBlock().memoryID};
  uint32_t keys[4];
  for (uint32_t i = 0; i < 4; ++i) {
    const NativeValueInfo info = system->CreateEntities(i % 2 == 0, 3 + i);
    keys[i] = info.handle;
    blocks.push_back(info.memoryID);
  }
  system->AddRoot(keys[0]);
  system->AddRoot(keys[3]);
  system->AddChild(keys[0], keys[2]);
  system->AddChild(keys[2], keys[0] + 1);
  system->InsertChild(keys[0] + 1, keys[1], 0);
  system->BindToBone(keys[2] + 1, keys[0]);
  system->BindToBone(keys[3], keys[2]);
  system->FindEntity(keys[1])->name = "a name that is too long to stand inside the string itself";
  system->FindEntity(keys[2])->BumpLocalVersion();
  EXPECT_EQ(5u, core->ReferenceCount());
  delete system;
  EXPECT_EQ(1u, core->ReferenceCount());
  for (const uint32_t block : blocks) {
    EXPECT_EQ(nullptr, runtime->FindBlock(block).pointer) << block;
  }
  core->DropReference();
}

TEST_F(EntitySystemTest, BatchesCanBeReleasedInAnyOrder) {
  // Every order of four batches whose entities form a cycle of links and bindings.
  uint32_t order[4] = {0, 1, 2, 3};
  do {
    uint32_t keys[4];
    for (uint32_t& key : keys) {
      key = world.Add3D(2);
    }
    for (uint32_t i = 0; i < 4; ++i) {
      world.Link(keys[i], keys[(i + 1) % 4] + 1);
      world.Bind(keys[i], keys[(i + 3) % 4] + 1);
      world.AddRoot(keys[i]);
    }
    for (const uint32_t key : keys) {
      world.DirtyAll({key, key + 1});
    }
    world.Refresh();
    std::vector<uint32_t> left = {0, 1, 2, 3};
    for (const uint32_t next : order) {
      world.Release(keys[next]);
      left.erase(std::find(left.begin(), left.end(), next));
      EXPECT_EQ(left.size(), world.Roots().size());
      for (const uint32_t each : left) {
        const bool childLeft = std::count(left.begin(), left.end(), (each + 1) % 4) != 0;
        const bool parentLeft = std::count(left.begin(), left.end(), (each + 3) % 4) != 0;
        EXPECT_EQ(childLeft ? 1u : 0u, world.ChildrenOf(keys[each]).size());
        EXPECT_EQ(parentLeft ? keys[(each + 3) % 4] : 0u, world.ParentOf(keys[each] + 1));
        EXPECT_EQ(parentLeft ? keys[(each + 3) % 4] + 1 : 0u, world.BoneOf(keys[each]));
        EXPECT_EQ(childLeft ? 1u : 0u, world.BoundTo(keys[each] + 1).size());
      }
      world.Refresh();
    }
  } while (std::next_permutation(order, order + 4));
}

}  // namespace nq::engine
