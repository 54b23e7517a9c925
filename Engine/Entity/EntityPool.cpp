// Construction and end of a batch of entities.
#include "Engine/Entity/EntityPool.h"

#include <cstring>
#include <new>

#include "Common/Def/AlignedAlloc.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

constexpr uint32_t kCacheLineBytes = 64;

// A zeroed array for the entities of a batch.
template <typename T>
T* NewArray(uint32_t count) {
  const uint32_t bytes = count * static_cast<uint32_t>(sizeof(T));
  return static_cast<T*>(std::memset(AlignedAlloc(kCacheLineBytes, bytes), 0, bytes));
}

}  // namespace

void EntityPool::CreateEntities(EntitySystem* owningSystem, bool isThreeD, uint32_t count) {
  system = owningSystem;
  threeD = isThreeD;
  arrays.count = count;
  arrays.isThreeD = isThreeD;
  arrays.sharedStride = threeD ? sizeof(Entity3DRecord) : sizeof(Entity2DRecord);
  arrays.entityStride = threeD ? sizeof(Entity3D) : sizeof(Entity2D);
  arrays.sharedRecords = static_cast<uint8_t*>(Allocate(count * arrays.sharedStride));
  arrays.links = NewArray<TransformLinks>(count);
  // Matrices that nothing has computed yet read as zeros.
  arrays.localMatrices = NewArray<TransformMatrix>(count);
  arrays.worldMatrices = NewArray<TransformMatrix>(count);
  arrays.localVersions = NewArray<LocalVersion>(count);
  arrays.worldVersions = NewArray<uint32_t>(count);
  arrays.entities =
      static_cast<uint8_t*>(AlignedAlloc(alignof(Entity3D), count * arrays.entityStride));
  system->Tree().Enter(handle, arrays);

  for (uint32_t i = 0; i < count; ++i) {
    new (arrays.links + i) TransformLinks();
    uint8_t* record = arrays.entities + static_cast<size_t>(i) * arrays.entityStride;
    if (threeD) {
      new (record) Entity3D(system, handle | i);
    } else {
      new (record) Entity2D(system, handle | i);
    }
  }
}

EntityPool::~EntityPool() {
  if (arrays.count == 0) {
    return;
  }
  system->Versions().Settle();
  bool anyRoot = false;
  for (uint32_t i = 0; i < arrays.count; ++i) {
    table(i)->Clean();
    anyRoot = anyRoot || arrays.links[i].IsRoot();
  }
  if (anyRoot) {
    system->RemoveRootsOfBatch(handle);
  }
  system->Tree().Leave(handle);
  AlignedFree(arrays.entities);
  AlignedFree(arrays.worldVersions);
  AlignedFree(arrays.localVersions);
  AlignedFree(arrays.worldMatrices);
  AlignedFree(arrays.localMatrices);
  AlignedFree(arrays.links);
}

}  // namespace nq::engine
