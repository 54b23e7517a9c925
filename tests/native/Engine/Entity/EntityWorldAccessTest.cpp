// World-space access to single entities.
#include "Engine/Entity/EntityWorldAccess.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "tests/native/Engine/Entity/ReferenceScene.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

constexpr float kHalfTurn = 3.14159265f;

class EntityWorldAccessTest : public WorldTest {
 protected:
  EntityWorldAccessTest() : access(world.Core()), entities(access) {}

  void Turn(uint32_t handle, float x, float y, float z, float w) {
    Entity3DRecord& record = world.Record3D(handle);
    record.rotationMode = 1;
    record.rotation[0] = x;
    record.rotation[1] = y;
    record.rotation[2] = z;
    record.rotation[3] = w;
  }

  // Half an angle's sine about one axis, for an `angle` in radians.
  void TurnAbout(uint32_t handle, int axis, float angle) {
    float q[4] = {0, 0, 0, std::cos(angle / 2)};
    q[axis] = std::sin(angle / 2);
    Turn(handle, q[0], q[1], q[2], q[3]);
  }

  EntityWorldAccess access;
  IEntity& entities;
};

void ExpectVector(const Vector3& actual, float x, float y, float z) {
  EXPECT_EQ(x, actual.x);
  EXPECT_EQ(y, actual.y);
  EXPECT_EQ(z, actual.z);
}

// Up to the sign: both represent one rotation.
void ExpectRotation(const Quaternion& actual, float x, float y, float z, float w) {
  const float dot = actual.x * x + actual.y * y + actual.z * z + actual.w * w;
  const float sign = dot < 0 ? -1.0f : 1.0f;
  EXPECT_NEAR(sign * x, actual.x, 1e-5);
  EXPECT_NEAR(sign * y, actual.y, 1e-5);
  EXPECT_NEAR(sign * z, actual.z, 1e-5);
  EXPECT_NEAR(sign * w, actual.w, 1e-5);
}

}  // namespace

TEST_F(EntityWorldAccessTest, ReadsOfOtherThan3DEntitiesReturnDefaults) {
  const uint32_t solid = world.Add3D(2);
  const uint32_t flat = world.Add2D(2);
  world.Record2D(flat).position[0] = 7;
  world.Core()->SetEntityName(flat, "flat");
  world.AddRoot(flat);
  world.Settle({flat, flat, flat + 1});
  EXPECT_EQ(2u, world.At(flat).localVersion());
  for (const uint32_t handle : {flat, flat + 1, solid + 2, 0u, 0xFFFFFFFFu, 0x9000u}) {
    SCOPED_TRACE(handle);
    EXPECT_EQ(0u, entities.getEntityVersion(handle));
    EXPECT_EQ(nullptr, entities.getEntityName(handle));
    ExpectVector(entities.getWorldPosition(handle), 0, 0, 0);
    ExpectVector(entities.getWorldScale(handle), 0, 0, 0);
    const Quaternion rotation = entities.getWorldRotation(handle);
    EXPECT_EQ(0.0f, rotation.x);
    EXPECT_EQ(0.0f, rotation.y);
    EXPECT_EQ(0.0f, rotation.z);
    EXPECT_EQ(1.0f, rotation.w);
  }
}

TEST_F(EntityWorldAccessTest, SettersIgnoreOtherThan3DEntities) {
  const uint32_t flat = world.Add2D(2);
  world.AddRoot(flat);
  world.Settle({flat, flat + 1});
  std::vector<Entity2DRecord> before(2);
  std::memcpy(before.data(), &world.Record2D(flat), 112);
  for (const uint32_t handle : {flat, flat + 1, flat + 2, 0u, 0x9000u}) {
    for (const bool immediately : {false, true}) {
      entities.setWorldPosition(1, 2, 3, handle, immediately);
      entities.setWorldRotation(1, 0, 0, 0, handle, immediately);
    }
  }
  EXPECT_EQ(0, std::memcmp(before.data(), &world.Record2D(flat), 112));
  EXPECT_EQ(0u, world.At(flat).dirtyState());
}

TEST_F(EntityWorldAccessTest, TheVersionIsTheLocalOne) {
  const uint32_t e = world.Add3D(2);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e, e + 1});
  EXPECT_EQ(2u, entities.getEntityVersion(e));
  EXPECT_EQ(3u, entities.getEntityVersion(e + 1));
  EXPECT_EQ(1u, world.At(e + 1).worldVersion());
}

TEST_F(EntityWorldAccessTest, TheNameBelongsToTheEntity) {
  const uint32_t e = world.Add3D(2);
  EXPECT_STREQ("", entities.getEntityName(e));
  world.Core()->SetEntityName(e + 1, "hand");
  EXPECT_STREQ("hand", entities.getEntityName(e + 1));
  EXPECT_EQ(world.At(e + 1).name.c_str(), entities.getEntityName(e + 1));
}

TEST_F(EntityWorldAccessTest, PositionAndScaleAreElementsOfTheWorldMatrix) {
  const uint32_t e = world.Add3D(2);
  world.MoveTo(e, 1, 2, 3);
  world.ScaleTo(e, 2, 3, 4);
  world.MoveTo(e + 1, 10, 10, 10);
  // A quarter about z: the columns keep their lengths, the diagonal does not.
  TurnAbout(e + 1, 2, kHalfTurn / 2);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  ExpectVector(entities.getWorldPosition(e), 1, 2, 3);
  ExpectVector(entities.getWorldScale(e), 2, 3, 4);
  ExpectVector(entities.getWorldPosition(e + 1), 21, 32, 43);
  const Vector3 scale = entities.getWorldScale(e + 1);
  EXPECT_NEAR(0, scale.x, 1e-5);
  EXPECT_NEAR(0, scale.y, 1e-5);
  EXPECT_NEAR(4, scale.z, 1e-5);
  // What the script has written since then takes effect after the next refresh.
  world.MoveTo(e, 5, 5, 5);
  ExpectVector(entities.getWorldPosition(e), 1, 2, 3);
}

TEST_F(EntityWorldAccessTest, RotationIsThatOfTheWorldMatrixWithoutScale) {
  const uint32_t e = world.Add3D(2);
  TurnAbout(e, 0, kHalfTurn / 2);
  TurnAbout(e + 1, 0, kHalfTurn / 3);
  world.ScaleTo(e, 2, 2, 2);
  world.ScaleTo(e + 1, 0.5f, 3, 7);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  const float quarter = std::sqrt(0.5f);
  ExpectRotation(entities.getWorldRotation(e), quarter, 0, 0, quarter);
  const float angle = kHalfTurn / 2 + kHalfTurn / 3;
  ExpectRotation(entities.getWorldRotation(e + 1), std::sin(angle / 2), 0, 0, std::cos(angle / 2));
}

TEST_F(EntityWorldAccessTest, RotationIsReturnedAsXYZW) {
  const uint32_t e = world.Add3D();
  // No axis-aligned rotation, and different in all four.
  Turn(e, 0.1f, 0.3f, 0.5f, std::sqrt(1 - 0.01f - 0.09f - 0.25f));
  world.AddRoot(e);
  world.Settle({e});
  ExpectRotation(entities.getWorldRotation(e), 0.1f, 0.3f, 0.5f, std::sqrt(0.65f));
}

TEST_F(EntityWorldAccessTest, RotationDividesByTheScalesInTheRecordsNow) {
  const uint32_t e = world.Add3D(2);
  TurnAbout(e + 1, 2, kHalfTurn / 2);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  // Nothing was refreshed since. The world matrix is that of a quarter about z,
  //   0 -1  0         with its columns divided by 2 * 1, 1 * 2 and 1 * 4:    0  -0.5  0
  //   1  0  0                                                               0.5  0    0
  //   0  0  1                                                                0   0    0.25
  world.ScaleTo(e, 2, 1, 1);
  world.ScaleTo(e + 1, 1, 2, 4);
  // Its trace is 0.25: w = sqrt(1.25) / 2, z = (0.5 + 0.5) / (2 sqrt(1.25)), no x and y.
  const Quaternion rotation = entities.getWorldRotation(e + 1);
  EXPECT_NEAR(0, rotation.x, 1e-6);
  EXPECT_NEAR(0, rotation.y, 1e-6);
  EXPECT_NEAR(1 / (2 * std::sqrt(1.25)), rotation.z, 1e-6);
  EXPECT_NEAR(std::sqrt(1.25) / 2, rotation.w, 1e-6);
}

TEST_F(EntityWorldAccessTest, AScaleOf0IsNotGuarded) {
  const uint32_t e = world.Add3D();
  world.AddRoot(e);
  world.Settle({e});
  world.ScaleTo(e, 0, 1, 1);
  const Quaternion rotation = entities.getWorldRotation(e);
  EXPECT_FALSE(std::isfinite(rotation.x + rotation.y + rotation.z + rotation.w));
}

TEST_F(EntityWorldAccessTest, SetPositionWithoutAParentStoresItUnchanged) {
  const uint32_t e = world.Add3D();
  world.AddRoot(e);
  world.Settle({e});
  entities.setWorldPosition(1.5f, -2, 3, e, false);
  EXPECT_TRUE(SameFloats({1.5f, -2, 3}, world.Record3D(e).position));
  // The script must list the entity.
  EXPECT_EQ(0u, world.At(e).dirtyState());
  EXPECT_EQ(0.0f, world.At(e).localMatrix()[12]);
  EXPECT_EQ(std::vector<uint32_t>{}, world.DirtyList());
}

TEST_F(EntityWorldAccessTest, SetPositionSubtractsOnlyTheParentsTranslation) {
  const uint32_t e = world.Add3D(3);
  world.MoveTo(e, 10, 20, 30);
  world.ScaleTo(e, 2, 2, 2);
  TurnAbout(e, 1, kHalfTurn / 2);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  // The parent's new position is not in its matrix yet.
  world.MoveTo(e, 0, 0, 0);
  entities.setWorldPosition(11, 22, 33.5f, e + 1, false);
  EXPECT_TRUE(SameFloats({1, 2, 3.5f}, world.Record3D(e + 1).position));
}

TEST_F(EntityWorldAccessTest, SetPositionImmediatelyMarksAndBuildsTheLocalMatrix) {
  const uint32_t e = world.Add3D(3);
  world.MoveTo(e, 10, 20, 30);
  world.Link(e, e + 1);
  world.Link(e + 1, e + 2);
  world.AddRoot(e);
  world.Settle({e, e + 1, e + 2});
  const uint32_t version = world.At(e + 1).localVersion();
  entities.setWorldPosition(11, 22, 33, e + 1, true);
  EXPECT_EQ(1u, world.At(e).dirtyState());
  EXPECT_EQ(2u, world.At(e + 1).dirtyState());
  EXPECT_EQ(0u, world.At(e + 2).dirtyState());
  EXPECT_TRUE(SameFloats({1, 2, 3, 1}, world.At(e + 1).localMatrix() + 12));
  EXPECT_EQ(version, world.At(e + 1).localVersion());
  EXPECT_EQ(std::vector<uint32_t>{}, world.DirtyList());
  // The next frame computes it without any list entry.
  world.Refresh();
  EXPECT_EQ((std::vector<float>{11, 22, 33}), world.WorldPosition(e + 1));
  EXPECT_EQ((std::vector<float>{11, 22, 33}), world.WorldPosition(e + 2));
}

TEST_F(EntityWorldAccessTest, SetRotationWithoutAParentStoresItInQuaternionMode) {
  const uint32_t e = world.Add3D();
  world.AddRoot(e);
  world.Settle({e});
  world.Record3D(e).unused[0] = 0xAB;
  entities.setWorldRotation(0.1f, 0.2f, 0.3f, 0.4f, e, false);
  const Entity3DRecord& record = world.Record3D(e);
  EXPECT_EQ(1, record.rotationMode);
  EXPECT_EQ(0xAB, record.unused[0]);
  EXPECT_TRUE(SameFloats({0.1f, 0.2f, 0.3f, 0.4f}, record.rotation));
  EXPECT_EQ(0u, world.At(e).dirtyState());
  EXPECT_EQ(1.0f, world.At(e).localMatrix()[0]);
}

TEST_F(EntityWorldAccessTest, SetRotationWithAParentGivesThatRotationInTheWorld) {
  const uint32_t e = world.Add3D(2);
  const float w = std::sqrt(1 - 0.04f - 0.16f - 0.09f);
  Turn(e, 0.2f, -0.4f, 0.3f, w);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  entities.setWorldRotation(0.5f, -0.5f, 0.5f, 0.5f, e + 1, true);
  EXPECT_EQ(1, world.Record3D(e + 1).rotationMode);
  EXPECT_EQ(1u, world.At(e).dirtyState());
  EXPECT_EQ(2u, world.At(e + 1).dirtyState());
  float local[16];
  ReferenceLocalMatrix3D(world.At(e + 1).sharedRecord(), local);
  EXPECT_TRUE(SameFloats(local, world.At(e + 1).localMatrix(), 16));
  world.Refresh();
  ExpectRotation(entities.getWorldRotation(e + 1), 0.5f, -0.5f, 0.5f, 0.5f);
}

TEST_F(EntityWorldAccessTest, SetRotationUsesTheParentsMatrixIncludingScale) {
  const uint32_t e = world.Add3D(2);
  world.ScaleTo(e, 4, 4, 4);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  // The matrix 4 I has trace 12, so its "rotation" is w = sqrt(13) / 2 and nothing else.
  entities.setWorldRotation(0.5f, 0.25f, -0.5f, 1, e + 1, false);
  const float factor = std::sqrt(13.0f) / 2;
  const float* rotation = world.Record3D(e + 1).rotation;
  EXPECT_NEAR(0.5f * factor, rotation[0], 1e-6);
  EXPECT_NEAR(0.25f * factor, rotation[1], 1e-6);
  EXPECT_NEAR(-0.5f * factor, rotation[2], 1e-6);
  EXPECT_NEAR(factor, rotation[3], 1e-6);
  EXPECT_EQ(0u, world.At(e + 1).dirtyState());
}

// conj(Q) * q by hand, Q = (0, 0, s, s) with s = sqrt(1/2), q = (1, 2, 3, 4):
//   conj(Q) = s (-k + 1);  (1 - k)(4 + i + 2j + 3k) = 4 + i + 2j + 3k - 4k - ki - 2kj - 3kk
//   = 4 + i + 2j - k - j + 2i + 3 = 7 + 3i + j - k
TEST_F(EntityWorldAccessTest, SetRotationMultipliesFromTheLeft) {
  const uint32_t e = world.Add3D(2);
  const float s = std::sqrt(0.5f);
  Turn(e, 0, 0, s, s);
  world.Link(e, e + 1);
  world.AddRoot(e);
  world.Settle({e, e + 1});
  entities.setWorldRotation(1, 2, 3, 4, e + 1, false);
  const float* rotation = world.Record3D(e + 1).rotation;
  EXPECT_NEAR(3 * s, rotation[0], 1e-5);
  EXPECT_NEAR(1 * s, rotation[1], 1e-5);
  EXPECT_NEAR(-1 * s, rotation[2], 1e-5);
  EXPECT_NEAR(7 * s, rotation[3], 1e-5);
}

using EntityWorldAccessDeathTest = EntityWorldAccessTest;

TEST_F(EntityWorldAccessDeathTest, RotationOfAnEntityOnAParentCycleIsFatal) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const uint32_t e = world.Add3D(2);
  world.At(e).AttachChild(&world.At(e + 1));
  world.At(e + 1).AttachChild(&world.At(e));
  EXPECT_DEATH(
      {
        SendLogToStandardError();
        entities.getWorldRotation(e + 1);
      },
      "^\\[NQ_FATAL\\]\\[Engine\\]: Parent cycle detected, entity: 4097\n"
      "Assertion failed: 0, file Engine/Entity/WorldTransform, line [0-9]+\n");
}

}  // namespace nq::engine
