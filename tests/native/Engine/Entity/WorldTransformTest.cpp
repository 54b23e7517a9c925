// The transform pass of a frame: local matrices, marks, the world pass, bones, and the refresh of
// one entity.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <csignal>
#include <cstring>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "Engine/Entity/EntityWorldAccess.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

using Handles = std::vector<uint32_t>;
using Numbers = std::vector<float>;

constexpr uint8_t kPoison = 0xCD;
constexpr float kQuarterTurn = 1.57079637f;
constexpr char kExtractFailed[] = "[NQ_WARN][Engine]: Entity3D world transform extract failed. \n";

class WorldTransformTest : public WorldTest {
 protected:
  std::vector<uint32_t> WorldVersions(uint32_t batch, uint32_t count) {
    std::vector<uint32_t> versions;
    for (uint32_t i = 0; i < count; ++i) {
      versions.push_back(world.At(batch + i).worldVersion());
    }
    return versions;
  }

  std::vector<uint32_t> Marks(uint32_t batch, uint32_t count) {
    std::vector<uint32_t> marks;
    for (uint32_t i = 0; i < count; ++i) {
      marks.push_back(world.At(batch + i).dirtyState());
    }
    return marks;
  }

  // A chain 0 -> 1 -> ... of a batch, its top a root, each translated by 1 along x, refreshed.
  uint32_t AddChain(uint32_t count) {
    const uint32_t e = world.Add3D(static_cast<int32_t>(count));
    world.AddRoot(e);
    for (uint32_t i = 0; i < count; ++i) {
      world.MoveTo(e + i, 1, 0, 0);
      world.Dirty(e + i);
      if (i != 0) {
        world.Link(e + i - 1, e + i);
      }
    }
    world.Refresh();
    return e;
  }

  // Makes `bone` a root with this scale, and `follower` follow it. Returns what the refresh prints.
  std::string RefreshBone(uint32_t bone, float x, float y, float z) {
    world.ScaleTo(bone, x, y, z);
    world.Dirty(bone);
    OutputRecorder output;
    world.Refresh();
    return output.Text();
  }
};

// Numbers for the bits of local matrices.
float AnyNumber(std::mt19937* random) {
  static const float kSpecial[] = {0.0f,
                                   -0.0f,
                                   1.0f,
                                   -1.0f,
                                   1e-45f,
                                   -1e-45f,
                                   1e-39f,
                                   -1e-39f,
                                   FLT_MIN,
                                   FLT_MAX,
                                   -FLT_MAX,
                                   3.14159274f,
                                   kQuarterTurn,
                                   1e10f,
                                   std::numeric_limits<float>::infinity(),
                                   -std::numeric_limits<float>::infinity(),
                                   std::numeric_limits<float>::quiet_NaN()};
  const uint32_t kind = (*random)() % 10;
  if (kind == 0) {
    return kSpecial[(*random)() % (sizeof(kSpecial) / sizeof(float))];
  }
  if (kind == 1) {
    const uint32_t bits = static_cast<uint32_t>((*random)());
    float number;
    std::memcpy(&number, &bits, 4);
    return number;
  }
  return std::uniform_real_distribution<float>(-7.0f, 7.0f)(*random);
}

}  // namespace

// --- Local matrices

TEST_F(WorldTransformTest, LocalMatricesHaveTheBitsOfThePlainFormulas) {
  constexpr uint32_t kCount = 500;
  const NativeValueInfo solid = world.AddRaw(true, kCount);
  const NativeValueInfo flat = world.AddRaw(false, kCount);
  std::mt19937 random(20240607);
  for (int round = 0; round < Rounds(20); ++round) {
    for (uint32_t i = 0; i < kCount; ++i) {
      for (const uint32_t handle : {solid.handle + i, flat.handle + i}) {
        Entity& entity = world.At(handle);
        float* numbers = reinterpret_cast<float*>(entity.sharedRecord());
        const uint32_t count = entity.isThreeD() ? 11 : 5;
        for (uint32_t n = 0; n < count; ++n) {
          numbers[n] = AnyNumber(&random);
        }
        if (entity.isThreeD()) {
          entity.sharedRecord()[0] = static_cast<uint8_t>(random() % 3);
        }
        float* local = const_cast<float*>(entity.localMatrix());
        std::memset(local, kPoison, 64);
        float expected[16];
        if (entity.isThreeD()) {
          ReferenceLocalMatrix3D(entity.sharedRecord(), expected);
        } else {
          ReferenceLocalMatrix2D(entity.sharedRecord(), expected);
        }
        entity.UpdateLocalMatrix();
        ASSERT_TRUE(SameFloats(expected, local, 16)) << "round " << round << ", element " << i;
      }
    }
  }
}

TEST_F(WorldTransformTest, AnyNonzeroModeIsAQuaternionAndThePaddingIsIgnored) {
  const uint32_t e = world.Add3D();
  Entity3DRecord& record = world.Record3D(e);
  world.AddRoot(e);
  // As a quaternion a half turn about z, as angles another rotation.
  const Numbers rotation = {0, 0, 1, 0};
  std::copy(rotation.begin(), rotation.end(), record.rotation);
  for (const int mode : {1, 2, 127, 128, 255}) {
    record.rotationMode = static_cast<uint8_t>(mode);
    std::memset(record.unused, kPoison, 3);
    world.Settle({e});
    EXPECT_TRUE(SameFloats({-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, record.worldMatrix));
    EXPECT_EQ(mode, record.rotationMode);
    for (const uint8_t byte : record.unused) {
      EXPECT_EQ(kPoison, byte);
    }
  }
  record.rotationMode = 0;
  std::memset(record.unused, 0xFF, 3);
  world.Settle({e});
  EXPECT_EQ(static_cast<float>(std::cos(1.0)), record.worldMatrix[0]);
}

TEST_F(WorldTransformTest, QuaternionsAreNotNormalised) {
  const uint32_t e = world.Add3D();
  Entity3DRecord& record = world.Record3D(e);
  record.rotationMode = 1;
  record.rotation[0] = 2;  // x = 2: only x * x is used, twice
  record.rotation[3] = 3;  // and x * w
  world.AddRoot(e);
  world.Settle({e});
  //  1      0      0        1 - 2xx = -7,  2xw = 12
  EXPECT_TRUE(
      SameFloats({1, 0, 0, 0, 0, -7, 12, 0, 0, -12, -7, 0, 0, 0, 0, 1}, record.worldMatrix));
}

TEST_F(WorldTransformTest, AnglesOf0AndScale1LeaveOnlyTheTranslation) {
  const uint32_t e = world.Add3D();
  world.MoveTo(e, 3, -4, 5);
  world.AddRoot(e);
  world.Settle({e});
  const float* m = world.At(e).localMatrix();
  const Numbers expected = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 3, -4, 5, 1};
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(expected[static_cast<size_t>(i)], m[i]) << i;  // -0 and 0 are equal here
  }
}

// About each axis alone a positive quarter turn maps the next axis to the one after it.
TEST_F(WorldTransformTest, QuarterTurnsMapEachAxisToTheNext) {
  const Numbers quarters[3] = {
      {1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1},  // x: y to z, z to -y
      {0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1},  // y: z to x, x to -z
      {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},  // z: x to y, y to -x
  };
  for (int axis = 0; axis < 3; ++axis) {
    const uint32_t e = world.Add3D(2);
    world.Record3D(e).rotation[axis] = kQuarterTurn;
    world.Record3D(e + 1).rotationMode = 1;
    world.Record3D(e + 1).rotation[axis] = std::sqrt(0.5f);
    world.Record3D(e + 1).rotation[3] = std::sqrt(0.5f);
    world.AddRoot(e);
    world.AddRoot(e + 1);
    world.Settle({e, e + 1});
    for (int i = 0; i < 16; ++i) {
      EXPECT_NEAR(quarters[axis][static_cast<size_t>(i)], world.Record3D(e).worldMatrix[i], 1e-6);
      EXPECT_NEAR(quarters[axis][static_cast<size_t>(i)], world.Record3D(e + 1).worldMatrix[i],
                  1e-6);
    }
  }
}

TEST_F(WorldTransformTest, AnglesApplyZFirstThenYThenX) {
  const uint32_t e = world.Add3D(4);
  // The same three rotations, once in one entity and once as a chain of three entities.
  const float angles[3] = {0.3f, -0.7f, 1.1f};
  for (int axis = 0; axis < 3; ++axis) {
    world.Record3D(e).rotation[axis] = angles[axis];
    world.Record3D(e + 1 + static_cast<uint32_t>(axis)).rotation[axis] = angles[axis];
  }
  world.AddRoot(e);
  world.AddRoot(e + 1);
  world.Link(e + 1, e + 2);
  world.Link(e + 2, e + 3);
  world.Settle({e, e + 1, e + 2, e + 3});
  for (int i = 0; i < 16; ++i) {
    EXPECT_NEAR(world.Record3D(e + 3).worldMatrix[i], world.Record3D(e).worldMatrix[i], 1e-6);
  }
}

TEST_F(WorldTransformTest, ScalesMultiplyTheColumns) {
  const uint32_t e = world.Add3D();
  world.ScaleTo(e, -2, 0, 3);
  world.AddRoot(e);
  world.Settle({e});
  const float* m = world.Record3D(e).worldMatrix;
  EXPECT_EQ(-2.0f, m[0]);
  EXPECT_EQ(0.0f, m[5]);
  EXPECT_EQ(3.0f, m[10]);
  EXPECT_EQ(1.0f, m[15]);
}

TEST_F(WorldTransformTest, A2DRotationTurnsFromYTowardsX) {
  const uint32_t e = world.Add2D();
  Entity2DRecord& record = world.Record2D(e);
  record.rotation = kQuarterTurn;
  record.scale[0] = 2;
  record.scale[1] = 3;
  record.position[0] = 5;
  record.position[1] = 7;
  world.AddRoot(e);
  world.Settle({e});
  const float* m = world.At(e).localMatrix();
  EXPECT_NEAR(0, m[0], 1e-6);
  EXPECT_NEAR(-2, m[1], 1e-6);
  EXPECT_NEAR(3, m[4], 1e-6);
  EXPECT_NEAR(0, m[5], 1e-6);
  EXPECT_TRUE(SameFloats({0, 0}, m + 2));
  EXPECT_TRUE(SameFloats({0, 0, 0, 0, 1, 0, 5, 7, 0, 1}, m + 6));
}

TEST_F(WorldTransformTest, A2DMatrixIsPublishedAsNineElements) {
  // Below a 3D entity with a translation along z and a turn about y, all elements differ.
  const uint32_t solid = world.Add3D();
  const uint32_t flat = world.Add2D();
  world.MoveTo(solid, 3, 4, 5);
  world.Record3D(solid).rotation[1] = 0.5f;
  world.Record3D(solid).rotation[0] = 0.25f;
  world.Record2D(flat).rotation = 0.4f;
  world.Record2D(flat).position[0] = 6;
  world.Record2D(flat).position[1] = 8;
  world.AddRoot(solid);
  world.Insert(solid, flat, 0);
  std::memset(world.Record2D(flat).worldMatrix, kPoison, 36);
  world.Settle({solid, flat});
  const float* m = world.At(flat).worldMatrix();
  const float* published = world.Record2D(flat).worldMatrix;
  EXPECT_TRUE(SameFloats({m[0], m[1], m[3], m[4], m[5], m[7], m[12], m[13], m[15]}, published));
  float product[16];
  ReferenceProduct(world.At(solid).worldMatrix(), world.At(flat).localMatrix(), product);
  EXPECT_TRUE(SameFloats(product, m, 16));
  EXPECT_NE(0.0f, m[2]);
  // The entity's own operation does the same.
  std::memset(world.Record2D(flat).worldMatrix, kPoison, 36);
  world.At(flat).PublishWorldMatrix();
  EXPECT_TRUE(SameFloats({m[0], m[1], m[3], m[4], m[5], m[7], m[12], m[13], m[15]}, published));
}

// --- The dirty list

TEST_F(WorldTransformTest, AnUnlistedEntityKeepsItsLocalMatrix) {
  const uint32_t e = world.Add3D(3);
  world.MoveTo(e, 1, 2, 3);
  world.MoveTo(e + 1, 4, 5, 6);
  world.AddRoot(e);
  world.Link(e, e + 1);
  std::memset(world.Record3D(e + 1).worldMatrix, kPoison, 64);
  world.Settle({e});
  // Marked by the link, and with a matrix that is not yet computed.
  EXPECT_TRUE(SameFloats(Numbers(16, 0.0f), world.Record3D(e + 1).worldMatrix));
  EXPECT_EQ(1u, world.At(e + 1).worldVersion());
  world.Settle({e + 1});
  EXPECT_EQ((Numbers{5, 7, 9}), world.WorldPosition(e + 1));
  // The new position in the record takes effect with the next entry.
  world.MoveTo(e + 1, 0, 0, 0);
  world.Settle({e});
  EXPECT_EQ((Numbers{5, 7, 9}), world.WorldPosition(e + 1));
  EXPECT_EQ(3u, world.At(e + 1).worldVersion());
}

TEST_F(WorldTransformTest, SyncDirtyRangeBuildsItsEntriesAndNoOthers) {
  const uint32_t e = world.Add3D(40);
  for (uint32_t i = 0; i < 40; ++i) {
    world.Dirty(e + i);
  }
  const auto built = [this, e] {
    std::vector<uint32_t> elements;
    for (uint32_t i = 0; i < 40; ++i) {
      if (world.At(e + i).localMatrix()[15] == 1.0f) {
        elements.push_back(i);
      }
      std::memset(const_cast<float*>(world.At(e + i).localMatrix()), 0, 64);
    }
    return elements;
  };
  world.System()->SyncDirtyRange(0, 0);
  EXPECT_EQ(Handles{}, built());
  world.System()->SyncDirtyRange(0, 1);
  EXPECT_EQ(Handles{0}, built());
  world.System()->SyncDirtyRange(8, 3);
  EXPECT_EQ((Handles{8, 9, 10}), built());
  world.System()->SyncDirtyRange(24, 11);
  EXPECT_EQ((Handles{24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34}), built());
  EXPECT_EQ(40u, world.DirtyWords()[0]);
  EXPECT_EQ(0u, world.At(e).localVersion());
}

TEST_F(WorldTransformTest, EveryEntryIsBuiltWhateverTheLengthOfTheList) {
  const uint32_t e = world.Add3D(200);
  for (uint32_t i = 0; i < 200; ++i) {
    world.AddRoot(e + i);
  }
  float step = 0;
  for (const uint32_t n : {1u, 7u, 8u, 31u, 32u, 33u, 34u, 35u, 36u, 63u, 64u, 127u, 199u, 200u}) {
    step += 1;
    for (uint32_t i = 0; i < 200; ++i) {
      world.MoveTo(e + i, step, static_cast<float>(i), -step);
    }
    for (uint32_t i = 0; i < n; ++i) {
      // From both ends, so that the last entries are of different entities each time.
      world.Dirty(e + (i % 2 == 0 ? i : 199 - i));
    }
    const std::vector<uint32_t> listed = world.DirtyList();
    const std::vector<uint32_t> before = WorldVersions(e, 200);
    world.Refresh();
    for (uint32_t i = 0; i < 200; ++i) {
      const bool wasListed = std::count(listed.begin(), listed.end(), e + i) != 0;
      const float* position = world.Record3D(e + i).worldMatrix + 12;
      if (wasListed) {
        ASSERT_TRUE(SameFloats({step, static_cast<float>(i), -step, 1}, position)) << n;
      }
      ASSERT_EQ(before[i] + (wasListed || step == 1 ? 1 : 0), world.At(e + i).worldVersion()) << n;
    }
  }
}

// A stopped pool runs nothing, so what is left to it shows.
TEST_F(WorldTransformTest, ListsOf32EntriesAndMoreRunOnTheWorkers) {
  const uint32_t e = world.Add3D(35);
  world.System();
  world.Runtime()->StopPools();
  for (const uint32_t n : {31u, 32u, 35u}) {
    for (uint32_t i = 0; i < 35; ++i) {
      std::memset(const_cast<float*>(world.At(e + i).localMatrix()), 0, 64);
    }
    for (uint32_t i = 0; i < n; ++i) {
      world.Dirty(e + i);
    }
    const uint32_t version = world.At(e).localVersion();
    world.System()->SyncLocalTransform();
    for (uint32_t i = 0; i < n; ++i) {
      EXPECT_EQ(n < 32 ? 1.0f : 0.0f, world.At(e + i).localMatrix()[15]) << n << ", " << i;
    }
    EXPECT_EQ(version + 1, world.At(e).localVersion());
    world.System()->ClearDirtyEntities();
  }
}

TEST_F(WorldTransformTest, UnknownHandlesInTheListAreSkipped) {
  const uint32_t e = world.Add3D(2);
  world.AddRoot(e);
  world.MoveTo(e, 1, 1, 1);
  for (const uint32_t padding : {0u, 40u}) {
    world.DirtyAll({0, e + 2, 0xFFFFFFFFu, 3, e, 0x7000});
    for (uint32_t i = 0; i < padding; ++i) {
      world.Dirty(i * 0x1111);
    }
    world.Refresh();
    EXPECT_EQ((Numbers{1, 1, 1}), world.WorldPosition(e));
    EXPECT_EQ(Handles{}, world.DirtyList());
  }
  EXPECT_EQ(2u, world.At(e).localVersion());
}

TEST_F(WorldTransformTest, AllEntriesOfAFullListAreProcessed) {
  const uint32_t first = world.Add3D(4095);
  const uint32_t second = world.Add3D(4095);
  const uint32_t third = world.Add2D(4095);
  const uint32_t fourth = world.Add3D(2);
  for (const uint32_t batch : {first, second, third}) {
    for (uint32_t i = 0; i < 4095; ++i) {
      world.Dirty(batch + i);
    }
  }
  world.Dirty(fourth);
  world.Dirty(fourth + 1);
  ASSERT_EQ(12287u, world.DirtyWords()[0]);
  world.Refresh();
  EXPECT_EQ(0u, world.DirtyWords()[0]);
  for (const uint32_t batch : {first, second, third}) {
    for (uint32_t i = 0; i < 4095; ++i) {
      ASSERT_EQ(1.0f, world.At(batch + i).localMatrix()[15]);
      ASSERT_EQ(1u, world.At(batch + i).localVersion());
    }
  }
  EXPECT_EQ(1.0f, world.At(fourth + 1).localMatrix()[15]);
}

// The same entities in all four ranges of a long list, repeatedly: all tasks write the same memory.
TEST_F(WorldTransformTest, AnEntityListedInSeveralRangesMayBeBuiltConcurrently) {
  constexpr uint32_t kEntities = 3000;
  const uint32_t e = world.Add3D(kEntities / 2);
  const uint32_t f = world.Add2D(kEntities / 2);
  const auto handleOf = [e, f](uint32_t i) { return i % 2 == 0 ? e + i / 2 : f + i / 2; };
  for (int frame = 0; frame < Rounds(500); ++frame) {
    for (uint32_t i = 0; i < kEntities; ++i) {
      const float number = static_cast<float>(frame + static_cast<int>(i));
      if (i % 2 == 0) {
        world.MoveTo(handleOf(i), number, 0, 0);
        world.Record3D(handleOf(i)).rotationMode = 1;
      } else {
        world.Record2D(handleOf(i)).position[0] = number;
      }
    }
    for (uint32_t range = 0; range < 4; ++range) {
      for (uint32_t i = 0; i < kEntities; ++i) {
        world.Dirty(handleOf(i));
      }
    }
    world.Refresh();
    for (uint32_t i = 0; i < kEntities; i += 97) {
      const float number = static_cast<float>(frame + static_cast<int>(i));
      ASSERT_EQ(number, world.At(handleOf(i)).localMatrix()[12]);
    }
  }
  EXPECT_EQ(4u * static_cast<uint32_t>(Rounds(500)), world.At(e).localVersion());
}

// --- The world pass

TEST_F(WorldTransformTest, OnlyMarkedEntitiesAreComputed) {
  //   0
  //   |- 1 - 2        2 is listed
  //   `- 3 - 4
  const uint32_t e = world.Add3D(5);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.Link(e, e + 3);
  world.Link(e + 3, e + 4);
  world.Settle({e, e + 1, e + 2, e + 3, e + 4});
  EXPECT_EQ((Handles{1, 1, 1, 1, 1}), WorldVersions(e, 5));
  EXPECT_EQ((Handles{0, 0, 0, 0, 0}), Marks(e, 5));
  world.Settle({e + 2});
  EXPECT_EQ((Handles{1, 1, 2, 1, 1}), WorldVersions(e, 5));
  EXPECT_EQ((Handles{0, 0, 0, 0, 0}), Marks(e, 5));
  world.Settle({e + 3});
  EXPECT_EQ((Handles{1, 1, 2, 2, 2}), WorldVersions(e, 5));
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 2, 2, 2}), WorldVersions(e, 5));
}

TEST_F(WorldTransformTest, MovingAParentMovesAllDescendants) {
  const uint32_t e = AddChain(4);
  EXPECT_EQ((Numbers{4, 0, 0}), world.WorldPosition(e + 3));
  world.MoveTo(e + 1, 1, 5, 0);
  world.ScaleTo(e + 1, 2, 2, 2);
  world.Settle({e + 1});
  EXPECT_EQ((Numbers{1, 0, 0}), world.WorldPosition(e));
  EXPECT_EQ((Numbers{2, 5, 0}), world.WorldPosition(e + 1));
  EXPECT_EQ((Numbers{4, 5, 0}), world.WorldPosition(e + 2));
  EXPECT_EQ((Numbers{6, 5, 0}), world.WorldPosition(e + 3));
}

TEST_F(WorldTransformTest, EntitiesUnderNoRootAreNotReached) {
  const uint32_t e = world.Add3D(2);
  world.Link(e, e + 1);
  world.MoveTo(e, 1, 0, 0);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{0, 0}), WorldVersions(e, 2));
  EXPECT_EQ((Handles{2, 2}), Marks(e, 2));
  EXPECT_EQ(1.0f, world.At(e).localMatrix()[12]);
  world.AddRoot(e);
  world.Refresh();
  EXPECT_EQ((Handles{1, 1}), WorldVersions(e, 2));
}

TEST_F(WorldTransformTest, ARemovedChildIsNoLongerReached) {
  const uint32_t e = AddChain(2);
  world.Unlink(e + 1);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{2, 1}), WorldVersions(e, 2));
  EXPECT_EQ((Numbers{2, 0, 0}), world.WorldPosition(e + 1));
  world.AddRoot(e + 1);
  world.Refresh();
  EXPECT_EQ((Numbers{1, 0, 0}), world.WorldPosition(e + 1));
}

TEST_F(WorldTransformTest, TheSecondEntryOfARootFindsItClean) {
  const uint32_t e = world.Add3D(2);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.AddRoot(e);
  EXPECT_EQ(Handles{}, world.Roots());
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{e, e}), world.Roots());
  EXPECT_EQ((Handles{1, 1}), WorldVersions(e, 2));
}

// An entity can be in the root list and have a parent, if it became a root first.
TEST_F(WorldTransformTest, ARootBelowALaterRootIsComputedTwice) {
  const uint32_t e = world.Add3D(3);
  world.AddRoot(e + 1);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.MoveTo(e, 1, 0, 0);
  world.MoveTo(e + 1, 0, 1, 0);
  world.MoveTo(e + 2, 0, 0, 1);
  world.Settle({e, e + 1, e + 2});
  EXPECT_EQ((Handles{1, 2, 2}), WorldVersions(e, 3));
  EXPECT_EQ((Numbers{1, 1, 1}), world.WorldPosition(e + 2));
  // Its own mark, under a clean parent, is computed once.
  world.Settle({e + 1});
  EXPECT_EQ((Handles{1, 3, 3}), WorldVersions(e, 3));
  world.Settle({e});
  EXPECT_EQ((Handles{2, 4, 4}), WorldVersions(e, 3));
}

TEST_F(WorldTransformTest, ARootBelowAnEarlierRootIsComputedOnce) {
  const uint32_t e = world.Add3D(2);
  world.AddRoot(e);
  world.AddRoot(e + 1);
  world.Link(e, e + 1);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{1, 1}), WorldVersions(e, 2));
}

// The first visit uses the parent's matrix of the last frame.
TEST_F(WorldTransformTest, ARootBelowAnInactiveLaterRootIsComputedWithItsOldMatrix) {
  const uint32_t e = world.Add3D(2);
  world.AddRoot(e + 1);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.MoveTo(e, 1, 0, 0);
  world.MoveTo(e + 1, 0, 1, 0);
  world.Settle({e, e + 1});
  world.MoveTo(e, 100, 0, 0);
  world.Deactivate(e);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{1, 3}), WorldVersions(e, 2));
  EXPECT_EQ((Numbers{1, 1, 0}), world.WorldPosition(e + 1));
}

TEST_F(WorldTransformTest, ResetKeepsRootEntriesAndResetsTheWorldVersion) {
  const uint32_t e = AddChain(3);
  world.Settle({e, e + 1, e + 2});
  EXPECT_EQ((Handles{2, 2, 2}), WorldVersions(e, 3));
  world.ResetSubtree(e);
  world.Refresh();
  // The top is still a root; the others are unlinked.
  EXPECT_EQ(Handles{e}, world.Roots());
  EXPECT_EQ((Handles{1, 0, 0}), WorldVersions(e, 3));
  EXPECT_EQ((Handles{0, 2, 2}), Marks(e, 3));
  // Linked under a later root, it is walked twice when its parent is marked, too.
  world.AddRoot(e + 1);
  world.Link(e + 1, e);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{3, 1, 0}), WorldVersions(e, 3));
}

TEST_F(WorldTransformTest, ADirtyEntityBelowAnInactiveOneStaysMarked) {
  const uint32_t e = AddChain(4);
  world.Deactivate(e + 1);
  world.MoveTo(e + 2, 9, 0, 0);
  world.Settle({e + 2});
  EXPECT_EQ(9.0f, world.At(e + 2).localMatrix()[12]);
  EXPECT_EQ((Numbers{3, 0, 0}), world.WorldPosition(e + 2));
  EXPECT_EQ((Handles{0, 1, 2, 0}), Marks(e, 4));
  EXPECT_EQ((Handles{1, 1, 1, 1}), WorldVersions(e, 4));
  // A marked ancestor is computed, and the walk stops above the inactive one, whose mark stays.
  world.MoveTo(e, 2, 0, 0);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{0, 2, 2, 0}), Marks(e, 4));
  EXPECT_EQ((Handles{2, 1, 1, 1}), WorldVersions(e, 4));
  // Activated, it is computed with all descendants.
  world.Activate(e + 1);
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 0, 0}), Marks(e, 4));
  EXPECT_EQ((Handles{2, 2, 2, 2}), WorldVersions(e, 4));
  EXPECT_EQ((Numbers{13, 0, 0}), world.WorldPosition(e + 3));
}

TEST_F(WorldTransformTest, ActivateMarksOneEntityAndComputesAllDescendants) {
  const uint32_t e = AddChain(4);
  world.Deactivate(e + 1);
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 0, 0}), Marks(e, 4));
  world.Activate(e + 1);
  world.Refresh();
  EXPECT_EQ((Handles{1, 2, 2, 2}), WorldVersions(e, 4));
}

TEST_F(WorldTransformTest, AnInactiveRootIsNotEntered) {
  const uint32_t e = AddChain(2);
  world.Deactivate(e);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{1, 1}), WorldVersions(e, 2));
  EXPECT_EQ((Handles{2, 2}), Marks(e, 2));
}

TEST_F(WorldTransformTest, AChildBelowAMarkedInactiveSiblingIsSkippedAndTheOthersAreNot) {
  //   0
  //   |- 1 (inactive) - 2
  //   `- 3
  const uint32_t e = world.Add3D(4);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.Link(e, e + 3);
  world.Deactivate(e + 1);
  world.Settle({e, e + 1, e + 2, e + 3});
  EXPECT_EQ((Handles{1, 0, 0, 1}), WorldVersions(e, 4));
  EXPECT_EQ((Handles{0, 2, 2, 0}), Marks(e, 4));
}

TEST_F(WorldTransformTest, UpdateWorldSubtreeIgnoresMarks) {
  const uint32_t e = AddChain(3);
  world.At(e + 1).UpdateWorldSubtree();
  EXPECT_EQ((Handles{1, 2, 2}), WorldVersions(e, 3));
  world.At(e + 1).UpdateTree();
  EXPECT_EQ((Handles{1, 2, 2}), WorldVersions(e, 3));
}

TEST_F(WorldTransformTest, PublishCopiesOnlyTheWorldMatrix) {
  const uint32_t e = AddChain(2);
  Entity3DRecord before = world.Record3D(e + 1);
  std::memset(world.Record3D(e + 1).worldMatrix, kPoison, 64);
  world.At(e + 1).PublishWorldMatrix();
  EXPECT_EQ(0, std::memcmp(&before, &world.Record3D(e + 1), sizeof(before)));
}

// Marks on ancestors that several threads share: no kDirtySelf is lost, and every ancestor is
// marked.
TEST_F(WorldTransformTest, SeveralThreadsMarkBelowSharedAncestors) {
  //   0 - 1 - 2 - 3 - 4 - 5 above, and below 5 the entities 6 to 9
  const uint32_t e = AddChain(6);
  const uint32_t leaves = world.Add3D(4);
  for (uint32_t i = 0; i < 4; ++i) {
    world.Link(e + 5, leaves + i);
    world.Dirty(leaves + i);
  }
  world.Refresh();
  for (int round = 0; round < Rounds(1000); ++round) {
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < 4; ++i) {
      threads.emplace_back([this, e, leaves, i] {
        Entity& entity = i == 0 ? world.At(e + 2) : world.At(leaves + i);
        entity.PropagateMarkDirty(false);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    ASSERT_EQ((Handles{1, 1, 2, 1, 1, 1}), Marks(e, 6)) << "round " << round;
    ASSERT_EQ((Handles{0, 2, 2, 2}), Marks(leaves, 4));
    world.Refresh();
    ASSERT_EQ((Handles{0, 0, 0, 0, 0, 0}), Marks(e, 6));
  }
}

// One thread marks entities, the other marks their descendants, concurrently.
TEST_F(WorldTransformTest, AConcurrentDirtyBelowDoesNotOverwriteDirtySelf) {
  constexpr uint32_t kPairs = 4000;
  const uint32_t parents = world.Add3D(kPairs);
  const uint32_t children = world.Add3D(kPairs);
  for (uint32_t i = 0; i < kPairs; ++i) {
    world.System()->AddChild(parents + i, children + i);
  }
  std::atomic<int> started{0};
  const auto markAll = [this, &started](uint32_t batch) {
    ++started;
    while (started < 2) {
      std::this_thread::yield();
    }
    for (uint32_t i = 0; i < kPairs; ++i) {
      world.At(batch + i).PropagateMarkDirty(false);
    }
  };
  for (int round = 0; round < Rounds(100); ++round) {
    for (uint32_t i = 0; i < kPairs; ++i) {
      world.SetMark(parents + i, kDirtyClean);
      world.SetMark(children + i, kDirtyClean);
    }
    started = 0;
    std::thread other([&markAll, parents] { markAll(parents); });
    markAll(children);
    other.join();
    for (uint32_t i = 0; i < kPairs; ++i) {
      ASSERT_EQ(2u, world.At(parents + i).dirtyState()) << "round " << round << ", pair " << i;
      ASSERT_EQ(2u, world.At(children + i).dirtyState()) << "round " << round << ", pair " << i;
    }
  }
}

// --- Bones

TEST_F(WorldTransformTest, ABoundEntityGetsTheBonesWorldTransformAndIsListed) {
  const uint32_t e = AddChain(2);
  const uint32_t bound = world.Add3D(2);
  // The bound entity's own parent is ignored.
  world.MoveTo(bound, 50, 60, 70);
  world.AddRoot(bound);
  world.Link(bound, bound + 1);
  world.Settle({bound, bound + 1});
  world.ScaleTo(e + 1, 2, 3, 4);
  world.Record3D(e + 1).rotation[2] = kQuarterTurn;
  std::memset(world.Record3D(bound + 1).unused, kPoison, 3);
  world.Bind(bound + 1, e + 1);
  world.Refresh();
  // A binding alone moves nothing.
  EXPECT_EQ(Handles{}, world.DirtyList());
  EXPECT_EQ(0, world.Record3D(bound + 1).rotationMode);

  world.Settle({e + 1});
  const Entity3DRecord& record = world.Record3D(bound + 1);
  EXPECT_EQ(Handles{bound + 1}, world.DirtyList());
  EXPECT_EQ(1, record.rotationMode);
  EXPECT_EQ(kPoison, record.unused[0]);
  EXPECT_EQ(kPoison, record.unused[2]);
  EXPECT_TRUE(SameFloats({2, 0, 0}, record.position));
  EXPECT_NEAR(2, record.scale[0], 1e-6);
  EXPECT_NEAR(3, record.scale[1], 1e-6);
  EXPECT_NEAR(4, record.scale[2], 1e-6);
  EXPECT_NEAR(0, record.rotation[0], 1e-6);
  EXPECT_NEAR(0, record.rotation[1], 1e-6);
  EXPECT_NEAR(std::sqrt(0.5), record.rotation[2], 1e-6);
  EXPECT_NEAR(std::sqrt(0.5), record.rotation[3], 1e-6);
  // Its matrices follow a frame later, and the script appends after the entry.
  EXPECT_EQ((Numbers{50, 60, 70}), world.WorldPosition(bound + 1));
  EXPECT_EQ(1u, world.At(bound + 1).worldVersion());
  world.Refresh();
  EXPECT_EQ((Numbers{52, 60, 70}), world.WorldPosition(bound + 1));
  // Listed by the script, below a parent that the script listed, and by the engine.
  EXPECT_EQ(3u, world.At(bound + 1).localVersion());
  EXPECT_EQ(Handles{}, world.DirtyList());
}

TEST_F(WorldTransformTest, BoundEntitiesAreListedInTheOrderOfBonesAndAddresses) {
  const uint32_t e = AddChain(3);
  const uint32_t bound = world.Add3D(6);
  for (const auto& binding :
       {std::pair<uint32_t, uint32_t>{5, 0}, {0, 2}, {3, 0}, {4, 1}, {1, 2}, {2, 2}}) {
    world.Bind(bound + binding.first, e + binding.second);
  }
  world.Dirty(e);
  world.Dirty(e + 1);
  world.Refresh();
  EXPECT_EQ((Handles{bound + 3, bound + 5, bound + 4, bound, bound + 1, bound + 2}),
            world.DirtyList());
}

// A path of 100 entities, each with a second child beside the path: on the way down all of these
// are passed, and the lowest is the next after the path. Every entity is a bone.
TEST_F(WorldTransformTest, SiblingsOfALongPathAreComputedFromTheLowestToTheHighest) {
  constexpr uint32_t kLevels = 100;
  const uint32_t path = world.Add3D(kLevels);
  const uint32_t beside = world.Add3D(kLevels);
  const uint32_t bound = world.Add3D(2 * kLevels);
  world.AddRoot(path);
  Handles expected;
  for (uint32_t i = 0; i < kLevels; ++i) {
    world.MoveTo(path + i, 1, 0, 0);
    world.MoveTo(beside + i, 0, static_cast<float>(i), 0);
    world.DirtyAll({path + i, beside + i});
    if (i + 1 < kLevels) {
      world.Link(path + i, path + i + 1);
      world.Link(path + i, beside + i);
    }
    world.Bind(bound + i, path + i);
    world.Bind(bound + kLevels + i, beside + i);
    expected.push_back(bound + i);
  }
  for (uint32_t i = kLevels - 1; i-- != 0;) {
    expected.push_back(bound + kLevels + i);
  }
  world.Refresh();
  EXPECT_EQ(expected, world.DirtyList());
  EXPECT_EQ((Numbers{kLevels, 0, 0}), world.WorldPosition(path + kLevels - 1));
  for (uint32_t i = 0; i + 1 < kLevels; ++i) {
    EXPECT_EQ((Numbers{i + 1.0f, static_cast<float>(i), 0}), world.WorldPosition(beside + i));
    EXPECT_EQ(1u, world.At(beside + i).worldVersion());
  }
}

TEST_F(WorldTransformTest, ABoneThatIsComputedTwiceListsItsBoundEntitiesTwice) {
  const uint32_t e = world.Add3D(3);
  world.AddRoot(e + 1);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.Bind(e + 2, e + 1);
  world.Settle({e, e + 1});
  EXPECT_EQ((Handles{e + 2, e + 2}), world.DirtyList());
}

TEST_F(WorldTransformTest, OnlyActive3DEntitiesFollow) {
  const uint32_t e = AddChain(1);
  const uint32_t solid = world.Add3D(3);
  const uint32_t flat = world.Add2D();
  for (const uint32_t bound : {solid, solid + 1, solid + 2, flat}) {
    world.Bind(bound, e);
  }
  world.Deactivate(solid + 1);
  const Entity3DRecord inactive = world.Record3D(solid + 1);
  const Entity2DRecord plane = world.Record2D(flat);
  world.Settle({e});
  EXPECT_EQ((Handles{solid, solid + 2}), world.DirtyList());
  EXPECT_EQ(0, std::memcmp(&inactive, &world.Record3D(solid + 1), sizeof(inactive)));
  EXPECT_EQ(0, std::memcmp(&plane, &world.Record2D(flat), sizeof(plane)));
  EXPECT_EQ(1.0f, world.Record3D(solid).position[0]);
}

TEST_F(WorldTransformTest, A2DBoneIsNotFollowed) {
  const uint32_t flat = world.Add2D();
  const uint32_t solid = world.Add3D();
  world.AddRoot(flat);
  world.Bind(solid, flat);
  world.Record2D(flat).position[0] = 5;
  world.Settle({flat});
  EXPECT_EQ(Handles{}, world.DirtyList());
  EXPECT_EQ(0.0f, world.Record3D(solid).position[0]);
}

TEST_F(WorldTransformTest, AnUnboundEntityNoLongerFollows) {
  const uint32_t e = AddChain(1);
  const uint32_t bound = world.Add3D();
  world.Bind(bound, e);
  world.Settle({e});
  EXPECT_EQ(Handles{bound}, world.DirtyList());
  world.Unbind(bound);
  world.Settle({e});
  EXPECT_EQ(Handles{}, world.DirtyList());
}

TEST_F(WorldTransformTest, AChainOfBindingsLagsOneFramePerLink) {
  //   bone <- 0 <- 1, all roots
  const uint32_t bone = AddChain(1);
  const uint32_t e = world.Add3D(2);
  world.AddRoot(e);
  world.AddRoot(e + 1);
  world.Settle({e, e + 1});
  world.Bind(e, bone);
  world.Bind(e + 1, e);
  world.MoveTo(bone, 8, 0, 0);
  world.Settle({bone});
  EXPECT_EQ((Numbers{0, 0, 0}), world.WorldPosition(e));
  world.Refresh();
  EXPECT_EQ((Numbers{8, 0, 0}), world.WorldPosition(e));
  EXPECT_EQ((Numbers{0, 0, 0}), world.WorldPosition(e + 1));
  world.Refresh();
  EXPECT_EQ((Numbers{8, 0, 0}), world.WorldPosition(e + 1));
}

TEST_F(WorldTransformTest, ABoneOfScale0WarnsOnceAndGivesTheIdentity) {
  const uint32_t bone = AddChain(1);
  const uint32_t bound = world.Add3D(3);
  for (uint32_t i = 0; i < 3; ++i) {
    world.Bind(bound + i, bone);
    world.MoveTo(bound + i, 4, 5, 6);
    world.ScaleTo(bound + i, 7, 8, 9);
  }
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 1, 0, 1));
  EXPECT_EQ((Handles{bound, bound + 1, bound + 2}), world.DirtyList());
  for (uint32_t i = 0; i < 3; ++i) {
    const Entity3DRecord& record = world.Record3D(bound + i);
    EXPECT_EQ(1, record.rotationMode);
    EXPECT_TRUE(SameFloats({0, 0, 0}, record.position));
    EXPECT_TRUE(SameFloats({1, 1, 1}, record.scale));
    EXPECT_TRUE(SameFloats({0, 0, 0, 1}, record.rotation));
  }
  // Once for each computation, never without one.
  {
    OutputRecorder output;
    world.Refresh();
    EXPECT_EQ("", output.Text());
  }
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 0, 1, 1));
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 1, 1, 0));
  EXPECT_EQ("", RefreshBone(bone, 1, -1, 1));
}

TEST_F(WorldTransformTest, ScalesUpTo1eMinus7CountAsZero) {
  const uint32_t bone = AddChain(1);
  const uint32_t bound = world.Add3D();
  world.Bind(bound, bone);
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 1e-7f, 1, 1));
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 1, -1e-7f, 1));
  EXPECT_EQ("", RefreshBone(bone, 1, 1, 1.0001e-7f));
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 1, 1, 0.9999e-7f));
  // NaN is not small.
  EXPECT_EQ("", RefreshBone(bone, 1, std::numeric_limits<float>::quiet_NaN(), 1));
  EXPECT_TRUE(std::isnan(world.Record3D(bound).scale[1]));
}

TEST_F(WorldTransformTest, ABoneOfScale0IsSilentWithoutBoundEntities) {
  const uint32_t bone = AddChain(1);
  const uint32_t solid = world.Add3D();
  const uint32_t flat = world.Add2D();
  world.Bind(solid, bone);
  world.Bind(flat, bone);
  world.Deactivate(solid);
  EXPECT_EQ("", RefreshBone(bone, 0, 0, 0));
  world.Activate(solid);
  EXPECT_EQ(kExtractFailed, RefreshBone(bone, 0, 0, 0));
  world.Unbind(solid);
  EXPECT_EQ("", RefreshBone(bone, 0, 0, 0));
}

// More bound entities than the list holds: the rest is dropped, in address order.
TEST_F(WorldTransformTest, AFullListDropsBoundEntities) {
  const uint32_t bone = AddChain(1);
  Handles followers;
  for (int batch = 0; batch < 4; ++batch) {
    const int32_t count = batch < 3 ? 4095 : 10;
    const uint32_t key = world.Add3D(count);
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i) {
      followers.push_back(key + i);
    }
  }
  std::sort(followers.begin(), followers.end(),
            [this](uint32_t a, uint32_t b) { return &world.At(a) < &world.At(b); });
  // The lowest are bound last.
  for (size_t i = 0; i < followers.size(); ++i) {
    world.System()->BindToBone(followers[(i + 20) % followers.size()], bone);
  }
  world.MoveTo(bone, 3, 0, 0);
  world.Settle({bone});
  EXPECT_EQ(12287u, world.DirtyWords()[0]);
  EXPECT_EQ(Handles(followers.begin(), followers.begin() + 12287), world.DirtyList());
  // All have the bone's numbers, listed or not.
  for (const uint32_t follower : followers) {
    ASSERT_EQ(3.0f, world.Record3D(follower).position[0]);
  }
  // The script finds the list full, and the next frame processes all of it.
  world.Refresh();
  EXPECT_EQ(Handles{}, world.DirtyList());
  EXPECT_EQ(3.0f, world.At(followers[0]).localMatrix()[12]);
  EXPECT_EQ(3.0f, world.At(followers[12286]).localMatrix()[12]);
  EXPECT_EQ(0.0f, world.At(followers[12287]).localMatrix()[12]);
}

TEST_F(WorldTransformTest, TheScriptAppendsAfterTheEntriesOfTheWorldPass) {
  const uint32_t bone = AddChain(1);
  const uint32_t bound = world.Add3D(2);
  world.AddRoot(bound);
  world.AddRoot(bound + 1);
  world.Bind(bound, bone);
  world.Settle({bone});
  EXPECT_EQ(Handles{bound}, world.DirtyList());
  world.MoveTo(bound + 1, 0, 6, 0);
  world.Dirty(bound + 1);
  EXPECT_EQ((Handles{bound, bound + 1}), world.DirtyList());
  world.Refresh();
  EXPECT_EQ((Numbers{1, 0, 0}), world.WorldPosition(bound));
  EXPECT_EQ((Numbers{0, 6, 0}), world.WorldPosition(bound + 1));
}

// --- One entity at once

TEST_F(WorldTransformTest, RefreshEntityRunsAllCommandsAndTheWholeList) {
  const uint32_t e = world.Add3D(4);
  world.MoveTo(e, 1, 0, 0);
  world.MoveTo(e + 1, 0, 2, 0);
  world.MoveTo(e + 3, 5, 5, 5);
  world.AddRoot(e);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.DirtyAll({e, e + 1, e + 2, e + 3});
  world.Core()->RefreshEntity(e + 1);
  EXPECT_EQ(0u, world.CommandWords()[0]);
  EXPECT_EQ(Handles{}, world.DirtyList());
  EXPECT_EQ((Numbers{1, 2, 0}), world.WorldPosition(e + 1));
  // Neither children nor others are changed.
  EXPECT_EQ((Handles{1, 1, 0, 0}), WorldVersions(e, 4));
  EXPECT_EQ((Handles{1, 1, 2, 2}), Marks(e, 4));
  EXPECT_EQ(5.0f, world.At(e + 3).localMatrix()[12]);
  EXPECT_EQ(1u, world.At(e + 3).localVersion());
  // The world pass continues from there.
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1, 0}), WorldVersions(e, 4));
  EXPECT_EQ((Numbers{1, 2, 0}), world.WorldPosition(e + 2));
}

TEST_F(WorldTransformTest, RefreshEntityOfAnUnknownHandleDoesNothing) {
  const uint32_t e = world.Add3D(1);
  world.AddRoot(e);
  world.Dirty(e);
  const uint32_t bytes = world.CommandWords()[0];
  world.Core()->RefreshEntity(e + 1);
  EXPECT_EQ(bytes, world.CommandWords()[0]);
  EXPECT_EQ(Handles{e}, world.DirtyList());
  EXPECT_EQ(Handles{}, world.Roots());
  EXPECT_EQ(0u, world.At(e).localVersion());
}

TEST_F(WorldTransformTest, RefreshEntityMarksDeep) {
  const uint32_t e = AddChain(4);
  world.Dirty(e + 1);
  world.Core()->RefreshEntity(e);
  EXPECT_EQ((Handles{1, 2, 2, 2}), Marks(e, 4));
  world.Deactivate(e + 2);
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 2, 2}), Marks(e, 4));
  const uint32_t f = AddChain(3);
  world.Deactivate(f + 1);
  world.Activate(f + 1);
  world.Core()->RefreshEntity(f);
  EXPECT_EQ((Handles{1, 2, 2}), Marks(f, 3));
}

TEST_F(WorldTransformTest, RefreshChainBuildsLocalMatricesOfTheWholeMarkedChain) {
  const uint32_t e = AddChain(4);
  // These are not listed: RefreshChain builds what it finds marked.
  world.MoveTo(e + 1, 0, 7, 0);
  world.MoveTo(e + 2, 0, 0, 9);
  world.At(e + 1).PropagateMarkDirty(true);
  world.At(e + 3).RefreshChain();
  EXPECT_EQ((Handles{1, 1, 1, 1}), Marks(e, 4));
  EXPECT_EQ((Handles{1, 2, 2, 2}), WorldVersions(e, 4));
  EXPECT_EQ((Numbers{1, 7, 0}), world.WorldPosition(e + 1));
  EXPECT_EQ((Numbers{1, 7, 9}), world.WorldPosition(e + 2));
  EXPECT_EQ((Numbers{2, 7, 9}), world.WorldPosition(e + 3));
}

TEST_F(WorldTransformTest, RefreshChainStopsBelowTheFirstUnmarkedAncestor) {
  const uint32_t e = AddChain(4);
  world.MoveTo(e, 50, 0, 0);
  world.MoveTo(e + 3, 0, 0, 9);
  world.SetMark(e, kDirtySelf);
  world.SetMark(e + 3, kDirtySelf);
  for (const DirtyState between : {kDirtyClean, kDirtyBelow}) {
    world.SetMark(e + 2, between);
    world.SetMark(e + 3, kDirtySelf);
    world.At(e + 3).RefreshChain();
    EXPECT_EQ((Handles{2, 0, between, 1}), Marks(e, 4));
    EXPECT_EQ((Numbers{3, 0, 9}), world.WorldPosition(e + 3));
  }
  EXPECT_EQ((Handles{1, 1, 1, 3}), WorldVersions(e, 4));
}

TEST_F(WorldTransformTest, RefreshChainSkipsInactiveAndCleanEntities) {
  const uint32_t e = AddChain(3);
  world.At(e + 2).RefreshChain();
  EXPECT_EQ((Handles{1, 1, 1}), WorldVersions(e, 3));
  world.SetMark(e + 2, kDirtyBelow);
  world.At(e + 2).RefreshChain();
  EXPECT_EQ((Handles{0, 0, 1}), Marks(e, 3));
  world.SetMark(e + 2, kDirtySelf);
  world.At(e + 2).SetActive(false);
  world.At(e + 2).RefreshChain();
  EXPECT_EQ((Handles{0, 0, 2}), Marks(e, 3));
  EXPECT_EQ((Handles{1, 1, 1}), WorldVersions(e, 3));
}

TEST_F(WorldTransformTest, RefreshChainBelowAnInactiveAncestorDoesNothing) {
  // The inactive one is a marked ancestor further up, or the unmarked one that would end the chain.
  for (const uint32_t inactive : {0u, 1u}) {
    for (const DirtyState mark : {kDirtySelf, kDirtyBelow}) {
      const uint32_t e = AddChain(3);
      for (uint32_t i = inactive + 1; i < 3; ++i) {
        world.SetMark(e + i, kDirtySelf);
      }
      world.SetMark(e + inactive, mark);
      world.At(e + inactive).SetActive(false);
      world.At(e + 2).RefreshChain();
      EXPECT_EQ((Handles{1, 1, 1}), WorldVersions(e, 3));
      EXPECT_EQ(2u, world.At(e + 2).dirtyState());
    }
  }
  // Above the end of the chain it has no effect.
  const uint32_t e = AddChain(3);
  world.SetMark(e + 2, kDirtySelf);
  world.At(e).SetActive(false);
  world.At(e + 2).RefreshChain();
  EXPECT_EQ((Handles{1, 1, 2}), WorldVersions(e, 3));
}

TEST_F(WorldTransformTest, RefreshChainUpdatesBoundEntities) {
  const uint32_t e = AddChain(2);
  const uint32_t bound = world.Add3D(2);
  world.Bind(bound, e);
  world.Bind(bound + 1, e + 1);
  world.DirtyAll({e, e + 1});
  world.Core()->RefreshEntity(e + 1);
  EXPECT_EQ((Handles{bound, bound + 1}), world.DirtyList());
  EXPECT_EQ(2.0f, world.Record3D(bound + 1).position[0]);
}

TEST_F(WorldTransformTest, RefreshChainBuildsAnEntityFromWhatTheBoneAboveItWrote) {
  const uint32_t e = AddChain(2);
  world.Bind(e + 1, e);
  world.RunCommands();
  world.MoveTo(e, 10, 0, 0);
  world.DirtyAll({e, e + 1});
  world.Core()->RefreshEntity(e + 1);
  // The child takes over the world position of its parent, 10, as its own, before it is built.
  EXPECT_EQ(10.0f, world.At(e + 1).localMatrix()[12]);
  EXPECT_EQ((Numbers{20, 0, 0}), world.WorldPosition(e + 1));
}

// --- Depth

// All walks of a tree, over 100000 levels, on a stack that holds a small part of that.
TEST(WorldTransformDepthTest, AChainOf100000EntitiesIsWalkedWithoutRecursion) {
  RunOnSmallStack([] {
    constexpr uint32_t kLevels = 100000;
    constexpr uint32_t kPerBatch = 4000;
    World world;
    std::vector<uint32_t> keys;
    Handles chain;
    for (uint32_t i = 0; i < kLevels / kPerBatch; ++i) {
      keys.push_back(world.Add3D(kPerBatch));
      for (uint32_t element = 0; element < kPerBatch; ++element) {
        chain.push_back(keys.back() + element);
        world.MoveTo(chain.back(), 1, 0, 0);
        world.At(chain.back()).UpdateLocalMatrix();
      }
    }
    ASSERT_EQ(kLevels, chain.size());
    for (uint32_t i = 1; i < kLevels; ++i) {
      world.System()->AddChild(chain[i - 1], chain[i]);
    }
    Entity& top = world.At(chain.front());
    Entity& bottom = world.At(chain.back());
    Entity& middle = world.At(chain[kLevels / 2]);
    world.AddRoot(chain.front());
    world.Refresh();
    EXPECT_EQ((Numbers{100000, 0, 0}), world.WorldPosition(chain.back()));
    EXPECT_EQ(1u, bottom.worldVersion());
    EXPECT_EQ(0u, bottom.localVersion());

    top.BumpLocalVersion();
    middle.BumpLocalVersion();
    EXPECT_EQ(1u, world.At(chain[1]).localVersion());
    EXPECT_EQ(2u, bottom.localVersion());

    // The pass walks down to the one marked entity.
    world.MoveTo(chain.back(), 1, 1, 0);
    world.Settle({chain.back()});
    EXPECT_EQ((Numbers{100000, 1, 0}), world.WorldPosition(chain.back()));
    EXPECT_EQ(1u, middle.worldVersion());

    top.PropagateMarkDirty(true);
    EXPECT_EQ(2u, bottom.dirtyState());
    bottom.RefreshChain();
    EXPECT_EQ(1u, bottom.dirtyState());
    EXPECT_EQ(1u, top.dirtyState());
    EXPECT_EQ(3u, bottom.worldVersion());
    EntityWorldAccess access(world.Core());
    EXPECT_EQ(1.0f, access.getWorldRotation(chain.back()).w);

    middle.ResetSubtree();
    EXPECT_EQ(nullptr, bottom.parent());
    EXPECT_EQ(0u, bottom.worldVersion());
    EXPECT_EQ(nullptr, middle.parent());
    for (const uint32_t key : keys) {
      world.Release(key);
    }
    EXPECT_EQ(Handles{}, world.Roots());
  });
}

TEST(WorldTransformDepthTest, ReleaseInTheMiddleOfADeepChain) {
  RunOnSmallStack([] {
    World world;
    Handles chain;
    uint32_t middle = 0;
    for (uint32_t i = 0; i < 25; ++i) {
      const uint32_t key = world.Add3D(4000);
      middle = i == 12 ? key : middle;
      for (uint32_t element = 0; element < 4000; ++element) {
        chain.push_back(key + element);
      }
    }
    for (uint32_t i = 1; i < chain.size(); ++i) {
      world.System()->AddChild(chain[i - 1], chain[i]);
    }
    world.System()->AddRoot(chain[0]);
    world.At(chain[0]).BumpLocalVersion();
    world.Release(middle);
    EXPECT_EQ(1u, world.At(chain.back()).localVersion());
    EXPECT_EQ(nullptr, world.At(chain[13 * 4000]).parent());
    EXPECT_TRUE(world.At(chain[12 * 4000 - 1]).children().empty());
  });
}

TEST(WorldTransformDepthTest, ACycleOf100000EntitiesIsWalkedWithoutRecursion) {
  RunOnSmallStack([] {
    World world;
    Handles ring;
    for (uint32_t i = 0; i < 25; ++i) {
      const uint32_t key = world.Add3D(4000);
      for (uint32_t element = 0; element < 4000; ++element) {
        ring.push_back(key + element);
      }
    }
    for (uint32_t i = 0; i < ring.size(); ++i) {
      world.System()->AddChild(ring[i], ring[(i + 1) % ring.size()]);
    }
    world.At(ring[5]).BumpLocalVersion();
    world.At(ring[50000]).BumpLocalVersion();
    for (uint32_t i = 0; i < ring.size(); i += 997) {
      ASSERT_EQ(2u, world.At(ring[i]).localVersion());
    }
    for (const uint32_t handle : ring) {
      world.SetMark(handle, kDirtyClean);
    }
    world.At(ring[7]).PropagateMarkDirty(false);
    EXPECT_EQ(1u, world.At(ring[6]).dirtyState());
    EXPECT_EQ(1u, world.At(ring[8]).dirtyState());
    world.At(ring[7]).MarkSubtreeDirty();
    EXPECT_EQ(2u, world.At(ring[6]).dirtyState());
    world.At(ring[7]).ResetSubtree();
    EXPECT_EQ(nullptr, world.At(ring[6]).parent());
  });
}

// --- Parent cycles

// A root that is its own ancestor: 0 -> 1 -> 2 -> 0, where 0 was a root before the cycle closed.
class WorldTransformDeathTest : public WorldTransformTest {
 protected:
  WorldTransformDeathTest() {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    e = AddChain(3);
    world.Link(e + 2, e);
    world.RunCommands();
  }

  void SetMarks(uint8_t first, uint8_t second, uint8_t third) {
    world.SetMark(e, first);
    world.SetMark(e + 1, second);
    world.SetMark(e + 2, third);
  }

  uint32_t e = 0;
};

// The last line is added by an emulator, if one runs this.
#define EXPECT_PARENT_CYCLE(statement)                                         \
  EXPECT_EXIT(                                                                 \
      {                                                                        \
        SendLogToStandardError();                                              \
        statement;                                                             \
      },                                                                       \
      testing::KilledBySignal(SIGABRT),                                        \
      "^\\[NQ_FATAL\\]\\[Engine\\]: Parent cycle detected, entity: 409[678]\n" \
      "Assertion failed: 0, file Engine/Entity/WorldTransform, line [0-9]+\n"  \
      "(qemu: [^\n]*\n)?$")

TEST_F(WorldTransformDeathTest, AMarkedCycleUnderARootIsFatal) {
  EXPECT_PARENT_CYCLE(world.Refresh());
}

// The walk gives up 5 levels below the root, one more than there are entities: by then it has
// passed the bone, which is the root, twice.
TEST_F(WorldTransformDeathTest, WhatAWalkHasReachedOnACycleIsComputedBeforeTheReport) {
  const uint32_t bound = world.Add3D(1);
  world.Bind(bound, e);
  world.RunCommands();
  world.ScaleTo(e, 0, 1, 1);
  world.Dirty(e);
  EXPECT_EXIT(
      {
        SendLogToStandardError();
        world.Refresh();
      },
      testing::KilledBySignal(SIGABRT),
      "^(\\[NQ_WARN\\]\\[Engine\\]: Entity3D world transform extract failed. \n){2}"
      "\\[NQ_FATAL\\]\\[Engine\\]: Parent cycle detected, entity: 4098\n");
}

TEST_F(WorldTransformDeathTest, AMarkedEntityOnACycleIsFatalForTheWorldPass) {
  SetMarks(1, 1, 2);
  EXPECT_PARENT_CYCLE(world.At(e).UpdateTree());
  EXPECT_PARENT_CYCLE(world.At(e + 1).UpdateWorldSubtree());
}

TEST_F(WorldTransformDeathTest, AMarkedCycleIsFatalForTheRefreshOfOneEntity) {
  SetMarks(2, 2, 2);
  EXPECT_PARENT_CYCLE(world.At(e + 1).RefreshChain());
}

TEST_F(WorldTransformDeathTest, ACycleMarkedAsDirtyBelowIsWalkedOnce) {
  SetMarks(1, 1, 1);
  world.At(e).UpdateTree();
  EXPECT_EQ((Handles{0, 0, 0}), Marks(e, 3));
  EXPECT_EQ((Handles{1, 1, 1}), WorldVersions(e, 3));
  world.Refresh();
  EXPECT_EQ((Handles{1, 1, 1}), WorldVersions(e, 3));
}

TEST_F(WorldTransformDeathTest, AnInactiveEntityEndsTheWalkAroundACycle) {
  SetMarks(2, 2, 2);
  world.Deactivate(e + 2);
  world.Refresh();
  EXPECT_EQ((Handles{0, 0, 2}), Marks(e, 3));
  EXPECT_EQ((Handles{2, 2, 1}), WorldVersions(e, 3));
}

TEST_F(WorldTransformDeathTest, RefreshChainOnACycleEndsAtAnUnmarkedEntity) {
  SetMarks(2, 1, 2);
  world.At(e).RefreshChain();
  EXPECT_EQ((Handles{1, 1, 1}), Marks(e, 3));
  EXPECT_EQ((Handles{2, 1, 2}), WorldVersions(e, 3));
}

}  // namespace nq::engine
