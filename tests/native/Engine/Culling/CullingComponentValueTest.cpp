// Batches of culling objects, and an object's cached entity look-up.
#include "Engine/Culling/CullingComponentValue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "tests/native/Engine/Culling/CullingScene.h"

namespace nq::engine {
namespace {

// Commands of the entity stream.
constexpr uint32_t kResetSubtree = 5;
constexpr uint32_t kDeactivate = 11;

class CullingComponentValueTest : public ::testing::Test {
 protected:
  void ExpectSphere(uint32_t object, float x, float y, float z, float radius) {
    const CullingObject seen = scene.Object(object);
    EXPECT_EQ(x, seen.worldCenter().x);
    EXPECT_EQ(y, seen.worldCenter().y);
    EXPECT_EQ(z, seen.worldCenter().z);
    EXPECT_EQ(radius, seen.worldRadius());
  }

  CullingScene scene;
};

typedef std::vector<uint32_t> Handles;

TEST_F(CullingComponentValueTest, ABatchIsABlockOfZeroedRecords) {
  for (const int32_t count : {1, 2, 3, 4, 5, 4095}) {
    const NativeValueInfo info = scene.Core()->CreateCullingComponent(count);
    EXPECT_EQ(static_cast<uint32_t>(count) * 28, info.size);
    EXPECT_NE(0u, info.handle);
    const uint8_t* bytes = static_cast<const uint8_t*>(info.pointer);
    EXPECT_EQ(0, std::count_if(bytes, bytes + info.size, [](uint8_t byte) { return byte != 0; }));
    std::memset(info.pointer, 0xFF, info.size);  // the next batch must still be zeroed
    scene.Core()->ReleaseCullingComponent(info.handle);
  }
}

// A batch of 12 is stored in 384 bytes: another record would fit behind it.
TEST_F(CullingComponentValueTest, WhatFollowsTheRecordsOfABatchIsNoObject) {
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 0, 0, -10);
  const uint32_t key = scene.AddObjects(12);
  for (uint32_t i = 0; i < 12; ++i) {
    scene.Put(key + i, entity, 0, 0, 0, 1);
  }
  CullingRecord* const last = &scene.Record(key + 11);
  std::memcpy(last + 1, last, sizeof(CullingRecord));
  EXPECT_EQ(12u, scene.Look().objects.size());
  EXPECT_EQ(Handles{}, scene.Look(Handles{key + 12}).objects);
}

TEST_F(CullingComponentValueTest, CountsOutsideOneTo4095AreRefused) {
  for (const int32_t count : {0, -1, 4096, 0x7FFFFFFF, static_cast<int32_t>(0x80000000)}) {
    const NativeValueInfo info = scene.Core()->CreateCullingComponent(count);
    EXPECT_EQ(0u, info.handle) << count;
    EXPECT_EQ(0u, info.size) << count;
    EXPECT_EQ(0u, info.memoryID) << count;
    EXPECT_EQ(nullptr, info.pointer) << count;
  }
  EXPECT_EQ(0u, scene.Core()->Components()->CreateCullingComponent(0).handle);
  // No handle was consumed.
  EXPECT_EQ(0x1000u, scene.AddObjects());
}

TEST_F(CullingComponentValueTest, HandlesAreIssuedByASeparateTable) {
  EXPECT_EQ(0x1000u, scene.Add3D());
  EXPECT_EQ(0x1000u, scene.AddObjects());
  EXPECT_EQ(0x2000u, scene.AddObjects(7));
  EXPECT_EQ(0x2000u, scene.Add3D());
}

TEST_F(CullingComponentValueTest, AReleasedHandleIsTheNextToBeIssued) {
  scene.AddObjects();
  const uint32_t second = scene.AddObjects(3);
  scene.AddObjects();
  scene.ReleaseObjects(second + 2);  // any handle of the batch
  EXPECT_FALSE(scene.Object(second));
  EXPECT_EQ(second, scene.AddObjects());
  EXPECT_TRUE(scene.Object(second));
  EXPECT_FALSE(scene.Object(second + 1));
}

TEST_F(CullingComponentValueTest, ReleasingUnknownHandlesHasNoEffect) {
  scene.Core()->ReleaseCullingComponent(0);
  scene.Core()->ReleaseCullingComponent(0x1000);
  scene.Core()->ReleaseCullingComponent(0xFFFFFFFFu);
  EXPECT_EQ(0x1000u, scene.AddObjects());
}

TEST_F(CullingComponentValueTest, ObjectsAreFoundByPosition) {
  const uint32_t key = scene.AddObjects(4095);
  for (const uint32_t position : {0u, 1u, 4094u}) {
    const CullingObject object = scene.Object(key + position);
    ASSERT_TRUE(object);
    EXPECT_EQ(key | position, object.handle());
    EXPECT_EQ(&scene.Record(key + position), object.record());
    EXPECT_EQ(scene.Core(), object.core());
  }
  EXPECT_FALSE(scene.Object(key + 4095));
  EXPECT_FALSE(scene.Object(key + 0x1000));
  EXPECT_FALSE(scene.Object(0));
  EXPECT_FALSE(scene.Object(5));
  EXPECT_FALSE(scene.Object(0xFFFFF000u));
}

TEST_F(CullingComponentValueTest, AnObjectStartsWithoutAnEntityAndWithASphereOfZeros) {
  const uint32_t object = scene.AddObjects();
  EXPECT_EQ(nullptr, scene.Object(object).entity());
  EXPECT_EQ(0u, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, 0, 0);
}

TEST_F(CullingComponentValueTest, TheWorldSphereIsTheRecordsSphereInWorldSpace) {
  const uint32_t entity = scene.Add3D();
  scene.ScaleTo(entity, 2, 3, 0.5f);
  scene.MoveTo(entity, 10, 20, -30);
  const uint32_t object = scene.AddObjects();
  scene.Put(object, entity, 1, -1, 4, 1.5f);
  scene.Look();
  ExpectSphere(object, 12, 17, -28, 4.5f);
  EXPECT_EQ(entity, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(scene.WorldVersion(entity), scene.Object(object).seenWorldVersion());
  EXPECT_EQ(2u, scene.WorldVersion(entity));
  ASSERT_NE(nullptr, scene.Object(object).entity());
  EXPECT_EQ(entity, scene.Object(object).entity()->handle);
}

TEST_F(CullingComponentValueTest, EachVisibleObjectHoldsItsDepthOfTheLastCall) {
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 0, 0, 0);
  const uint32_t key = scene.AddObjects(13);
  Handles all;
  for (uint32_t i = 0; i < 13; ++i) {
    scene.Put(key + i, entity, 0, 0, -10.0f - static_cast<float>(i), 1);
    all.push_back(key + i);
  }
  scene.Look();
  for (uint32_t i = 0; i < 13; ++i) {
    EXPECT_EQ(10.0f + static_cast<float>(i), scene.Object(key + i).depth()) << i;
  }
  scene.MoveTo(entity, 0, 0, -5);
  scene.Look(all);
  for (uint32_t i = 0; i < 13; ++i) {
    EXPECT_EQ(15.0f + static_cast<float>(i), scene.Object(key + i).depth()) << i;
  }
}

// Columns of 3, 5 and 7 by their first three elements; by all four, the first is 13 long.
TEST_F(CullingComponentValueTest, TheRadiusScalesWithTheLongestOfThreeColumnsOverFourElements) {
  const uint32_t entity = scene.Add3D();
  scene.Refresh(entity);
  const uint32_t object = scene.AddObjects();
  scene.Put(object, entity, 1, 1, 1, 2);
  const float columns[3][4] = {{3, 0, 4, 12}, {0, -5, 0, 0}, {0, 0, 7, 0}};
  for (int first = 0; first < 3; ++first) {
    float* m = scene.WorldMatrix(entity);
    for (int column = 0; column < 3; ++column) {
      std::memcpy(m + 4 * column, columns[(column + first) % 3], sizeof(columns[0]));
    }
    // The fourth column affects only the position, not the radius.
    const float place[4] = {100, 200, 300, 400};
    std::memcpy(m + 12, place, sizeof(place));
    ++*scene.Entities()->Tree().Batch(entity).worldVersions;
    scene.Look();
    ExpectSphere(object, 103, 195, 311, 26);
  }
}

TEST_F(CullingComponentValueTest, OnlyTheEntitysVersionMovesTheSphere) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  ExpectSphere(object, 0, 0, -10, 1);

  scene.Record(object).center[2] = 50;
  scene.Record(object).radius = 9;
  EXPECT_EQ(Handles{object}, scene.Seen());
  ExpectSphere(object, 0, 0, -10, 1);

  // Changing a matrix without a new version has no effect either.
  scene.WorldMatrix(entity)[12] = 70;
  scene.Look();
  ExpectSphere(object, 0, 0, -10, 1);

  scene.MoveTo(entity, 0, 0, -20);
  EXPECT_EQ(Handles{}, scene.Seen());
  ExpectSphere(object, 0, 0, 30, 9);
}

TEST_F(CullingComponentValueTest, AnEntityNeverComputedHasASphereOfZerosAtTheOrigin) {
  const uint32_t entity = scene.Add3D();
  const uint32_t object = scene.AddObjects();
  scene.Put(object, entity, 1, 2, 3, 100);
  EXPECT_EQ(Handles{}, scene.Seen()) << "in front of the near plane";
  ExpectSphere(object, 0, 0, 0, 0);

  ReferenceCamera camera = CullingScene::Straight();
  camera.pose.eye = Vector3{0, 0, 5};
  const CullResult result = scene.Cull(camera, 1, nullptr, 0);
  EXPECT_TRUE(HoldsExactly(result, {{object, 5.0f}}));
}

// Versions are compared for equality only, and ResetSubtree resets them.
TEST_F(CullingComponentValueTest, AVersionThatReturnsToTheCachedOneKeepsTheOldSphere) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  EXPECT_EQ(1u, scene.Object(object).seenWorldVersion());

  scene.Command(kResetSubtree, entity);
  EXPECT_EQ(0u, scene.WorldVersion(entity));
  scene.MoveTo(entity, 0, 0, -40);
  EXPECT_EQ(1u, scene.WorldVersion(entity));
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 10.0f}}));

  scene.MoveTo(entity, 0, 0, -41);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 41.0f}}));

  // A lower version is a change like any other.
  scene.Command(kResetSubtree, entity);
  scene.MoveTo(entity, 0, 0, -60);
  EXPECT_EQ(1u, scene.WorldVersion(entity));
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 60.0f}}));
}

TEST_F(CullingComponentValueTest, AVersionOfZeroIsAChangeToo) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  scene.Command(kResetSubtree, entity);
  scene.Record(object).radius = 3;
  scene.Look();
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, -10, 3);
}

TEST_F(CullingComponentValueTest, ANewHandleResetsTheVersionAndKeepsTheSphere) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Look();
  const uint32_t fresh = scene.Add3D();
  scene.Record(object).entity = fresh;
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 10.0f}}));
  EXPECT_EQ(fresh, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, -10, 1);

  scene.MoveTo(fresh, 0, 0, -30);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 30.0f}}));
}

TEST_F(CullingComponentValueTest, AnotherEntityOfTheSameVersionIsRecomputed) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Look();
  const uint32_t other = scene.Add3D();
  scene.MoveTo(other, 0, 0, -30);
  EXPECT_EQ(scene.WorldVersion(scene.Record(object).entity), scene.WorldVersion(other));
  scene.Record(object).entity = other;
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 30.0f}}));
}

TEST_F(CullingComponentValueTest, ADisabledObjectDoesNotLookItsEntityUp) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Record(object).enabled = 0;
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(0u, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(nullptr, scene.Object(object).entity());
}

TEST_F(CullingComponentValueTest, AMaskedOutObjectLooksItsEntityUpButKeepsItsSphere) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Record(object).mask = 2;
  EXPECT_EQ(Handles{}, scene.Look(5).objects);
  EXPECT_EQ(scene.Record(object).entity, scene.Object(object).seenEntityHandle());
  EXPECT_NE(nullptr, scene.Object(object).entity());
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, 0, 0);
}

TEST_F(CullingComponentValueTest, AnObjectThatNoListNamesIsNotTouched) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t listed = scene.AddSphere(0, 0, -20, 1);
  EXPECT_EQ(Handles{listed}, scene.Look(Handles{listed}).objects);
  EXPECT_EQ(0u, scene.Object(object).seenEntityHandle());
}

TEST_F(CullingComponentValueTest, A2DEntityIsFoundButNotCulled) {
  const uint32_t flat = scene.Add2D();
  scene.Refresh(flat);
  const uint32_t object = scene.AddObjects();
  scene.Put(object, flat, 0, 0, -10, 1000);
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(flat, scene.Object(object).seenEntityHandle());
  ASSERT_NE(nullptr, scene.Object(object).entity());
  EXPECT_FALSE(scene.Object(object).entity()->isThreeD());
  ExpectSphere(object, 0, 0, 0, 0);
}

TEST_F(CullingComponentValueTest, TheActivityOfEntitiesIsIgnored) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Command(kDeactivate, scene.Record(object).entity);
  EXPECT_EQ(Handles{object}, scene.Seen());
}

TEST_F(CullingComponentValueTest, AHandleThatNamesNothingIsNotLookedUpAgain) {
  const uint32_t object = scene.AddObjects();
  scene.Put(object, 0x1000, 0, 0, 0, 1000);
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(0x1000u, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(nullptr, scene.Object(object).entity());

  ASSERT_EQ(0x1000u, scene.Add3D());
  EXPECT_EQ(Handles{}, scene.Seen()) << "came into being later";
  EXPECT_EQ(nullptr, scene.Object(object).entity());

  // Any other handle, and back.
  scene.Record(object).entity = 0x1001;
  EXPECT_EQ(Handles{}, scene.Seen());
  scene.Record(object).entity = 0x1000;
  scene.Refresh(0x1000);
  EXPECT_EQ(Handles{object}, scene.Seen());
}

TEST_F(CullingComponentValueTest, AHandleOfZeroIsNeverAnEntity) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  scene.Look();
  scene.Record(object).entity = 0;
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(0u, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(nullptr, scene.Object(object).entity());
}

TEST_F(CullingComponentValueTest, AReleasedEntityIsDroppedAtOnce) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  EXPECT_EQ(Handles{object}, scene.Seen());
  scene.ReleaseEntities(entity);
  EXPECT_EQ(nullptr, scene.Object(object).entity());
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(Handles{}, scene.Look(Handles{object}).objects);
  EXPECT_EQ(entity, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, -10, 1);

  // Looked up, and not found: an entity created later under that handle is not found.
  EXPECT_EQ(entity, scene.Add3D());
  scene.MoveTo(entity, 0, 0, -20);
  EXPECT_EQ(Handles{}, scene.Seen());
}

TEST_F(CullingComponentValueTest, AReusedHandleIsFoundIfNoCallCameInBetween) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  scene.ReleaseEntities(entity);
  EXPECT_EQ(entity, scene.Add3D());
  EXPECT_EQ(nullptr, scene.Object(object).entity()) << "not the entity that was found";
  // Version 0, so that the old sphere stays valid.
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 10.0f}}));
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  EXPECT_EQ(scene.Entities()->FindEntity(entity), scene.Object(object).entity());
  scene.MoveTo(entity, 0, 0, -20);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 20.0f}}));
}

// The new entity has the same world version as the old one had.
TEST_F(CullingComponentValueTest, AReusedHandleOfTheSameVersionIsRecomputed) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  scene.ReleaseEntities(entity);
  EXPECT_EQ(entity, scene.Add3D());
  scene.MoveTo(entity, 0, 0, -20);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 20.0f}}));
}

TEST_F(CullingComponentValueTest, AReusedHandleMayNameA2DEntityOrASmallerBatch) {
  const uint32_t entities = scene.Add3D(2);
  scene.MoveTo(entities, 0, 0, -10);
  scene.MoveTo(entities + 1, 0, 0, -11);
  const uint32_t objects = scene.AddObjects(2);
  scene.Put(objects, entities, 0, 0, 0, 1);
  scene.Put(objects + 1, entities + 1, 0, 0, 0, 1);
  EXPECT_EQ((Handles{objects, objects + 1}), scene.Seen());
  scene.ReleaseEntities(entities);
  EXPECT_EQ(entities, scene.Add3D(1));
  EXPECT_EQ(Handles{objects}, scene.Seen());
  EXPECT_EQ(nullptr, scene.Object(objects + 1).entity());
  scene.ReleaseEntities(entities);
  EXPECT_EQ(entities, scene.Add2D(2));
  EXPECT_EQ(Handles{}, scene.Seen());
}

TEST_F(CullingComponentValueTest, AFailedLookUpIsNotRepeatedWhenTheSlotIsReused) {
  const uint32_t entity = scene.Add3D();
  const uint32_t object = scene.AddObjects();
  scene.Put(object, entity + 1, 0, 0, -10, 1);
  scene.Look();
  scene.ReleaseEntities(entity);
  EXPECT_EQ(entity, scene.Add3D(2));
  scene.Refresh(entity + 1);
  EXPECT_EQ(Handles{}, scene.Seen());
}

TEST_F(CullingComponentValueTest, ADisabledObjectDropsAReleasedEntityToo) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  scene.Record(object).enabled = 0;
  scene.ReleaseEntities(entity);
  EXPECT_EQ(entity, scene.Add3D());
  scene.MoveTo(entity, 0, 0, -30);
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(1u, scene.Object(object).seenWorldVersion()) << "not used meanwhile";
  scene.Record(object).enabled = 1;
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 30.0f}}));
}

TEST_F(CullingComponentValueTest, AReleaseDoesNotAffectOtherObjects) {
  const uint32_t bystander = scene.AddSphere(0, 0, -10, 1);
  const uint32_t loser = scene.AddSphere(0, 0, -20, 1);
  const uint32_t lost = scene.AddObjects();
  scene.Put(lost, 0x7000, 0, 0, 0, 1);
  EXPECT_EQ((Handles{bystander, loser}), scene.Seen());

  // The version is unchanged, so only a recomputed sphere would show this.
  scene.Record(bystander).center[0] = 3;
  scene.Record(bystander).radius = 2;
  scene.ReleaseEntities(scene.Record(loser).entity);
  scene.Add3D();
  EXPECT_EQ(Handles({bystander, loser}), scene.Seen());
  ExpectSphere(bystander, 0, 0, -10, 1);
  EXPECT_EQ(1u, scene.Object(bystander).seenWorldVersion());
  EXPECT_EQ(0u, scene.Object(loser).seenWorldVersion());
  EXPECT_EQ(0x7000u, scene.Object(lost).seenEntityHandle());
  EXPECT_EQ(nullptr, scene.Object(lost).entity());
}

TEST_F(CullingComponentValueTest, ALargeBatchOfEntitiesCanBeReleasedBetweenCalls) {
  const uint32_t entities = scene.Add3D(4095);
  const uint32_t objects = scene.AddObjects(4095);
  for (uint32_t i = 0; i < 4095; ++i) {
    scene.Put(objects + i, entities + i, 0, 0, 0, 1);
    scene.EntityRecord(entities + i).position[2] = -10;
  }
  for (uint32_t i = 0; i < 4095; i += 400) {
    scene.Refresh(entities + i);
  }
  EXPECT_EQ(11u, scene.Seen().size()) << "the others are points at the origin";
  scene.ReleaseEntities(entities + 17);
  EXPECT_EQ(Handles{}, scene.Seen());
  scene.Add2D(4000);
  EXPECT_EQ(Handles{}, scene.Seen());
}

TEST_F(CullingComponentValueTest, ABatchOfObjectsCanBeReleasedBeforeOrAfterItsEntities) {
  const uint32_t first = scene.AddSphere(0, 0, -10, 1);
  const uint32_t second = scene.AddSphere(0, 0, -20, 1);
  EXPECT_EQ((Handles{first, second}), scene.Seen());
  const uint32_t entity = scene.Record(first).entity;
  scene.ReleaseObjects(first);
  EXPECT_EQ(Handles{second}, scene.Seen());
  scene.ReleaseEntities(entity);
  scene.ReleaseEntities(scene.Record(second).entity);
  scene.ReleaseObjects(second);
  EXPECT_EQ(Handles{}, scene.Seen());
}

// Objects of a batch that reuses a released handle start without state.
TEST_F(CullingComponentValueTest, AReusedHandleOfObjectsStartsFresh) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t entity = scene.Record(object).entity;
  scene.Look();
  scene.ReleaseObjects(object);
  EXPECT_EQ(object, scene.AddObjects());
  EXPECT_EQ(0u, scene.Object(object).seenEntityHandle());
  EXPECT_EQ(0u, scene.Object(object).seenWorldVersion());
  ExpectSphere(object, 0, 0, 0, 0);
  scene.Put(object, entity, 0, 0, -5, 1);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 15.0f}}));
}

// Invalid input gives a meaningless result, but no failure.
TEST_F(CullingComponentValueTest, ASphereOfNaNRadiusIsNeverRejected) {
  const uint32_t object = scene.AddSphere(0, 0, 999, std::numeric_limits<float>::quiet_NaN());
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, -999.0f}}));
}

}  // namespace
}  // namespace nq::engine
