// A batch: initial records, their addresses, and destruction.
#include "Engine/Entity/EntityPool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

class EntityPoolTest : public WorldTest {};

}  // namespace

TEST_F(EntityPoolTest, FreshEntitiesAreUnlinkedAndMarked) {
  for (const bool isThreeD : {false, true}) {
    const uint32_t batch = world.AddRaw(isThreeD, 5).handle;
    for (uint32_t i = 0; i < 5; ++i) {
      const Entity& entity = world.At(batch + i);
      EXPECT_EQ(batch + i, entity.handle);
      EXPECT_EQ(isThreeD, entity.isThreeD());
      EXPECT_EQ(world.System(), entity.system);
      EXPECT_EQ(nullptr, entity.parent());
      EXPECT_EQ(nullptr, entity.boundTo);
      EXPECT_TRUE(entity.children().empty());
      EXPECT_TRUE(entity.boundEntities.empty());
      EXPECT_EQ(0u, entity.worldVersion());
      EXPECT_EQ(0u, entity.localVersion());
      EXPECT_EQ(2u, entity.dirtyState());
      EXPECT_TRUE(entity.active());
      EXPECT_EQ("", entity.name);
      EXPECT_FALSE(world.System()->IsRoot(&entity));
    }
  }
}

TEST_F(EntityPoolTest, FreshSharedRecordsReadAsZeros) {
  // A small block in memory that an earlier batch has used.
  const NativeValueInfo dirty = world.AddRaw(true, 5);
  std::memset(dirty.pointer, 0xA5, dirty.size);
  world.Release(dirty.handle);
  const NativeValueInfo info = world.AddRaw(true, 5);
  const std::vector<uint8_t> zeros(info.size, 0);
  EXPECT_EQ(0, std::memcmp(zeros.data(), info.pointer, info.size));
}

TEST_F(EntityPoolTest, SharedRecordsAreContiguous) {
  const NativeValueInfo solid = world.AddRaw(true, 40);
  const NativeValueInfo flat = world.AddRaw(false, 40);
  for (uint32_t i = 0; i < 40; ++i) {
    EXPECT_EQ(static_cast<uint8_t*>(solid.pointer) + 108 * i,
              world.At(solid.handle + i).sharedRecord());
    EXPECT_EQ(static_cast<uint8_t*>(flat.pointer) + 56 * i,
              world.At(flat.handle + i).sharedRecord());
  }
}

TEST_F(EntityPoolTest, EntitiesAreContiguousInTheOrderOfTheirHandles) {
  const uint32_t solid = world.Add3D(40);
  const uint32_t flat = world.Add2D(40);
  for (uint32_t i = 1; i < 40; ++i) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&world.At(solid + i - 1)) + sizeof(Entity3D),
              reinterpret_cast<uintptr_t>(&world.At(solid + i)));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&world.At(flat + i - 1)) + sizeof(Entity2D),
              reinterpret_cast<uintptr_t>(&world.At(flat + i)));
  }
}

TEST_F(EntityPoolTest, AddressesAreStableWhileOtherBatchesAreCreatedAndReleased) {
  const uint32_t batch = world.Add3D(3);
  Entity* const entity = &world.At(batch + 1);
  float* const position = world.Record3D(batch + 1).position;
  std::vector<uint32_t> others;
  for (int i = 0; i < 50; ++i) {
    others.push_back(world.Add3D(10));
  }
  for (const uint32_t other : others) {
    world.Release(other);
  }
  EXPECT_EQ(entity, &world.At(batch + 1));
  EXPECT_EQ(position, world.Record3D(batch + 1).position);
}

TEST_F(EntityPoolTest, DestroyingABatchReleasesItsBlock) {
  const NativeValueInfo small = world.AddRaw(true, 1);
  const NativeValueInfo large = world.AddRaw(true, 100);
  world.Release(large.handle);
  EXPECT_EQ(nullptr, world.Runtime()->FindBlock(large.memoryID).pointer);
  EXPECT_EQ(small.pointer, world.Runtime()->FindBlock(small.memoryID).pointer);
  world.Release(small.handle);
  EXPECT_EQ(nullptr, world.Runtime()->FindBlock(small.memoryID).pointer);
}

TEST_F(EntityPoolTest, APoolKnowsItsKindItsCountAndItsElements) {
  // A pool outside any table, under a key that no batch has.
  EntityPool* pool = new EntityPool(world.Core(), 0x5000);
  EXPECT_EQ(0u, pool->Count());
  pool->CreateEntities(world.System(), true, 6);
  EXPECT_EQ(6u, pool->Count());
  EXPECT_TRUE(pool->isThreeD());
  EXPECT_EQ(&world.At(0x5004), pool->table(4));
  EXPECT_EQ(6u * 108u, pool->Info().size);
  EXPECT_EQ(0x5000u, pool->Info().handle);
  delete pool;
  EXPECT_EQ(nullptr, world.System()->FindEntity(0x5004));
}

TEST_F(EntityPoolTest, APoolWithoutEntitiesCanBeDestroyed) {
  EntityPool* pool = new EntityPool(world.Core(), 0x5000);
  EXPECT_EQ(2u, world.Core()->ReferenceCount());
  delete pool;
  EXPECT_EQ(1u, world.Core()->ReferenceCount());
}

}  // namespace nq::engine
