// The writer of animated poses: which entity it selects, what it replaces, and how it marks.
#include "Engine/Animation/EntityPoseWriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "Common/Def/WorkerPool.h"
#include "tests/native/Engine/Animation/AnimationScene.h"

namespace nq::engine {
namespace {

class EntityPoseWriterTest : public AnimationSceneTest {
 protected:
  // Marks an entity, as after writing its pose.
  void Mark(uint32_t handle) {
    EntityPoseWriter writer(&scene.System()->Tree());
    ASSERT_TRUE(writer.Seek(handle));
    writer.Mark();
  }

  uint32_t StateOf(uint32_t handle) { return scene.At(handle).dirtyState(); }

  std::vector<uint32_t> StatesOf(const std::vector<uint32_t>& handles) {
    std::vector<uint32_t> states;
    for (const uint32_t handle : handles) {
      states.push_back(StateOf(handle));
    }
    return states;
  }
};

TEST_F(EntityPoseWriterTest, SeekFindsEntitiesOfAnyBatchInAnyOrder) {
  const uint32_t a = scene.Add3D(3);
  const uint32_t b = scene.Add2D(2);
  EntityPoseWriter writer(&scene.System()->Tree());
  for (const uint32_t handle : {a + 2, a, b + 1, a + 1, b}) {
    ASSERT_TRUE(writer.Seek(handle));
    EXPECT_EQ(&scene.At(handle), writer.Target());
    EXPECT_EQ(scene.At(handle).sharedRecord(), writer.Record());
    EXPECT_EQ(scene.At(handle).localMatrix(), writer.LocalMatrix());
    EXPECT_EQ(handle < b, writer.isThreeD());
  }
}

TEST_F(EntityPoseWriterTest, SeekRefusesInvalidHandlesAndStaysUsable) {
  const uint32_t a = scene.Add3D(3);
  const uint32_t gone = scene.Add3D(2);
  scene.Release(gone);
  EntityPoseWriter writer(&scene.System()->Tree());
  for (const uint32_t handle :
       {0u, 1u, 4095u, a + 3, a + 4095, gone, gone + 1, gone + 0x1000, 0xFFFFF000u, 0xFFFFFFFFu}) {
    EXPECT_FALSE(writer.Seek(handle)) << handle;
    ASSERT_TRUE(writer.Seek(a + 1)) << handle;
    EXPECT_EQ(&scene.At(a + 1), writer.Target());
  }
}

// The run ends where handles do not follow each other, and at the end of the batch.
TEST_F(EntityPoseWriterTest, SeekRun3DCountsConsecutive3DEntitiesOfABatch) {
  const uint32_t a = scene.Add3D(11);
  const uint32_t flat = scene.Add2D(4);
  EntityPoseWriter writer(&scene.System()->Tree());
  const auto runOf = [&writer](const std::vector<uint32_t>& handles) {
    return writer.SeekRun3D(handles.data(), static_cast<uint32_t>(handles.size()));
  };
  std::vector<uint32_t> ascending;
  for (uint32_t count = 1; count <= 11; ++count) {
    ascending.push_back(a + count - 1);
    EXPECT_EQ(count, runOf(ascending));
    EXPECT_EQ(&scene.At(a), writer.Target());
    std::vector<uint32_t> broken = ascending;
    broken.push_back(a);
    broken.push_back(a + count + 1);
    EXPECT_EQ(count, runOf(broken));
  }
  ascending.push_back(a + 11);
  EXPECT_EQ(11u, runOf(ascending)) << "past the end of the batch";
  EXPECT_EQ(2u, runOf({a + 9, a + 10, a + 11, a + 12}));
  EXPECT_EQ(&scene.At(a + 9), writer.Target());
  EXPECT_EQ(writer.Record3D(), writer.Run(2).records);
  EXPECT_EQ(writer.LocalMatrix(), writer.Run(2).locals->m);
  EXPECT_EQ(0u, runOf({}));
  EXPECT_EQ(0u, runOf({a + 11}));
  EXPECT_EQ(0u, runOf({0xFFFFFFFFu, 0u}));
  EXPECT_EQ(0u, runOf({flat, flat + 1}));
}

TEST_F(EntityPoseWriterTest, PrefetchingAcceptsAnyHandle) {
  const uint32_t a = scene.Add3D(1);
  const uint32_t flat = scene.Add2D(1);
  EntityPoseWriter writer(&scene.System()->Tree());
  for (const uint32_t current : {a, flat}) {
    ASSERT_TRUE(writer.Seek(current));
    for (const uint32_t handle : {0u, a, a + 1, a + 4095, flat, flat + 4095, 0xFFFFFFFFu}) {
      writer.Prefetch(handle);
    }
    EXPECT_EQ(&scene.At(current), writer.Target());
  }
}

TEST_F(EntityPoseWriterTest, ReplaceChangesOnlyLanesOfTheMask) {
  const uint32_t entity = scene.Add3D(2) + 1;
  for (uint32_t lanes = 0; lanes < 64; ++lanes) {
    Entity3DRecord& record = scene.Record3D(entity);
    std::memset(&record, 0xA5, sizeof(record));
    const float old[6] = {1, 2, 3, 4, 5, 6};
    std::memcpy(record.position, old, sizeof(record.position));
    std::memcpy(record.scale, old + 3, sizeof(record.scale));
    Entity3DRecord expected = record;
    float mask[8];
    std::memset(mask, 0xFF, sizeof(mask));  // the two unused lanes are set, and must be ignored
    for (uint32_t lane = 0; lane < 6; ++lane) {
      if ((lanes >> lane & 1) == 0) {
        std::memset(mask + lane, 0, sizeof(float));
        continue;
      }
      (lane < 3 ? expected.position[lane] : expected.scale[lane - 3]) =
          10.0f + static_cast<float>(lane);
    }
    EntityPoseWriter writer(&scene.System()->Tree());
    ASSERT_TRUE(writer.Seek(entity));
    const PositionScale values =
        writer.Replace(_mm_setr_ps(10, 11, 12, 13), _mm_loadu_ps(mask), _mm_setr_ps(14, 15, 98, 99),
                       _mm_loadu_ps(mask + 4));
    ASSERT_EQ(0, std::memcmp(&expected, &record, sizeof(record))) << lanes;
    float returned[8];
    _mm_storeu_ps(returned, values.positionScaleX);
    _mm_storeu_ps(returned + 4, values.scaleYZ);
    EXPECT_EQ(0, std::memcmp(expected.position, returned, 12)) << lanes;
    EXPECT_EQ(0, std::memcmp(expected.scale, returned + 3, 12)) << lanes;
  }
}

TEST_F(EntityPoseWriterTest, AQuaternionGivesTheMatrixThatTheRecordGives) {
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 3, -0.0f, 5e-42f);
  scene.ScaleTo(entity, -2, kInfinity, 0);
  EntityPoseWriter writer(&scene.System()->Tree());
  ASSERT_TRUE(writer.Seek(entity));
  writer.WriteQuaternion(_mm_setr_ps(0.1f, -0.2f, 0.3f, 0.9f),
                         PositionScale(scene.Record3D(entity)));
  EXPECT_EQ(1, scene.Record3D(entity).rotationMode);
  EXPECT_EQ(0.9f, scene.Record3D(entity).rotation[3]);
  std::vector<float> written(writer.LocalMatrix(), writer.LocalMatrix() + 16);
  scene.At(entity).UpdateLocalMatrix();
  EXPECT_TRUE(SameFloats(written, scene.At(entity).localMatrix()));
  EXPECT_EQ(0.0f, written[3] + written[7] + written[11]) << "whatever the scale is";
  EXPECT_EQ(1.0f, written[15]);
}

//   top ── middle ── leaf, in one batch or in one each
TEST_F(EntityPoseWriterTest, AMarkReachesAllAncestorsThatAreClean) {
  for (const bool together : {true, false}) {
    const uint32_t top = scene.Add3D(3);
    const uint32_t middle = together ? top + 1 : scene.Add3D();
    const uint32_t leaf = together ? top + 2 : scene.Add3D();
    scene.AddRoot(top);
    scene.Link(top, middle);
    scene.Link(middle, leaf);
    scene.Settle({top, middle, leaf});
    ASSERT_EQ(0u, StateOf(top) + StateOf(middle) + StateOf(leaf));
    Mark(leaf);
    EXPECT_EQ(2u, StateOf(leaf));
    EXPECT_EQ(1u, StateOf(middle));
    EXPECT_EQ(1u, StateOf(top));
    Mark(middle);
    EXPECT_EQ(2u, StateOf(middle));
    EXPECT_EQ(1u, StateOf(top));
    Mark(leaf);
    EXPECT_EQ(2u, StateOf(middle)) << "not lowered";
    scene.Refresh();
    EXPECT_EQ(0u, StateOf(top) + StateOf(middle) + StateOf(leaf));
  }
}

// The parent's index names another entity in the batch of the leaf, which is marked.
TEST_F(EntityPoseWriterTest, AParentInAnotherBatchIsMarkedThere) {
  const uint32_t parents = scene.Add3D(2);
  const uint32_t leaves = scene.Add3D(2);
  scene.AddRoot(parents);
  scene.Link(parents, parents + 1);
  scene.Link(parents + 1, leaves);
  scene.AddRoot(leaves + 1);
  scene.Settle({parents, parents + 1, leaves, leaves + 1});
  Mark(leaves + 1);  // the entity at the parent's index in this batch
  Mark(leaves);
  EXPECT_EQ(1u, StateOf(parents + 1));
  EXPECT_EQ(1u, StateOf(parents));
}

// Kept on purpose: an ancestor that is already marked ends the climb, though those above it may
// have been refreshed since; which entities a frame computes depends on it. An inactive one keeps
// its mark.
TEST_F(EntityPoseWriterTest, AMarkStopsAtAnAncestorMarkedAsDirtyBelow) {
  for (const bool together : {true, false}) {
    const uint32_t top = scene.Add3D(3);
    const uint32_t middle = together ? top + 1 : scene.Add3D();
    const uint32_t leaf = together ? top + 2 : scene.Add3D();
    scene.AddRoot(top);
    scene.Link(top, middle);
    scene.Link(middle, leaf);
    scene.Settle({top, middle, leaf});
    scene.Deactivate(middle);
    scene.Refresh();
    ASSERT_EQ(0u, StateOf(top));
    ASSERT_EQ(0u, StateOf(middle));
    Mark(leaf);
    scene.Refresh();
    ASSERT_EQ(0u, StateOf(top));
    ASSERT_EQ(1u, StateOf(middle)) << "left by the walk, which does not enter it";
    const uint32_t version = scene.At(leaf).worldVersion();
    Mark(leaf);
    EXPECT_EQ(0u, StateOf(top));
    EXPECT_EQ(1u, StateOf(middle));
    scene.Refresh();
    EXPECT_EQ(version, scene.At(leaf).worldVersion());
    scene.Activate(middle);
    scene.Refresh();
    EXPECT_EQ(version + 1, scene.At(leaf).worldVersion()) << "the mark was not lost";
    EXPECT_EQ(0u, StateOf(top) + StateOf(middle) + StateOf(leaf));
  }
}

// Random trees over two batches, with marks and inactive entities that earlier frames left: a run
// is marked as its entities one by one.
TEST_F(EntityPoseWriterTest, ARunIsMarkedAsItsEntitiesAre) {
  std::mt19937 random(5);
  constexpr uint32_t kCount = 24;
  for (int tree = 0; tree < 60; ++tree) {
    const uint32_t batches[2] = {scene.Add3D(kCount), scene.Add3D(kCount)};
    std::vector<uint32_t> all;
    for (uint32_t i = 0; i < 2 * kCount; ++i) {
      all.push_back(batches[i / kCount] + i % kCount);
    }
    std::shuffle(all.begin(), all.end(), random);
    scene.AddRoot(all[0]);
    for (uint32_t i = 1; i < all.size(); ++i) {
      if (random() % 8 != 0) {
        scene.Link(all[random() % i], all[i]);
      }
    }
    for (const uint32_t handle : all) {
      scene.Settle({handle});
    }
    for (int round = 0; round < 8; ++round) {
      const uint32_t begin = static_cast<uint32_t>(random() % kCount);
      const uint32_t count = 1 + static_cast<uint32_t>(random() % (kCount - begin));
      const std::vector<uint32_t> before = StatesOf(all);
      for (uint32_t i = 0; i < count; ++i) {
        Mark(batches[0] + begin + i);
      }
      const std::vector<uint32_t> singly = StatesOf(all);
      for (size_t i = 0; i < all.size(); ++i) {
        scene.SetMark(all[i], static_cast<uint8_t>(before[i]));
      }
      EntityPoseWriter writer(&scene.System()->Tree());
      ASSERT_TRUE(writer.Seek(batches[0] + begin));
      writer.MarkRun(count);
      ASSERT_EQ(singly, StatesOf(all)) << "tree " << tree << ", round " << round;
      const uint32_t toggled = all[random() % all.size()];
      if (random() % 2 == 0) {
        scene.Deactivate(toggled);
      } else {
        scene.Activate(toggled);
      }
      if (random() % 3 != 0) {
        scene.Refresh();
      }
    }
  }
}

// Tasks that share all ancestors: whichever comes first marks them, and none is left out.
TEST_F(EntityPoseWriterTest, MarksOfManyTasksReachSharedAncestors) {
  constexpr uint32_t kDepth = 30;
  constexpr uint32_t kLimbs = 8;
  constexpr uint32_t kBones = 12;
  const uint32_t spine = scene.Add3D(kDepth);
  const uint32_t limbs = scene.Add3D(kLimbs * kBones);
  scene.AddRoot(spine);
  for (uint32_t i = 1; i < kDepth; ++i) {
    scene.Link(spine + i - 1, spine + i);
  }
  for (uint32_t limb = 0; limb < kLimbs; ++limb) {
    for (uint32_t bone = 0; bone < kBones; ++bone) {
      const uint32_t handle = limbs + limb * kBones + bone;
      scene.Link(bone == 0 ? spine + kDepth - 1 : handle - 1, handle);
    }
  }
  scene.Refresh();
  WorkerPool* pool = scene.Runtime()->FirstPool();
  for (int round = 0; round < Rounds(3000); ++round) {
    std::vector<Task> tasks;
    for (uint32_t limb = 0; limb < kLimbs; ++limb) {
      tasks.emplace_back([this, first = limbs + limb * kBones, down = limb % 2 == 0] {
        EntityPoseWriter writer(&scene.System()->Tree());
        // Every other limb from its last bone up.
        for (uint32_t bone = 0; bone < kBones; ++bone) {
          if (writer.Seek(first + (down ? bone : kBones - 1 - bone))) {
            writer.Mark();
          }
        }
      });
    }
    pool->PostAll(tasks.data(), tasks.size());
    pool->WaitIdle();
    for (uint32_t i = 0; i < kDepth; ++i) {
      ASSERT_EQ(1u, StateOf(spine + i)) << "round " << round << ", vertebra " << i;
    }
    for (uint32_t i = 0; i < kLimbs * kBones; ++i) {
      ASSERT_EQ(2u, StateOf(limbs + i)) << "round " << round << ", bone " << i;
    }
    scene.Refresh();
  }
}

}  // namespace
}  // namespace nq::engine
