// Construction and destruction of a batch of entities.
#include "Engine/Entity/EntityPool.h"

#include <new>

#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

void EntityPool::CreateEntities(EntitySystem* owningSystem, bool isThreeD, uint32_t count) {
  system = owningSystem;
  arrays.count = count;
  arrays.isThreeD = isThreeD;
  arrays.sharedStride = isThreeD ? sizeof(Entity3DRecord) : sizeof(Entity2DRecord);
  arrays.entityStride = isThreeD ? sizeof(Entity3D) : sizeof(Entity2D);
  arrays.sharedRecords = static_cast<uint8_t*>(Allocate(count * arrays.sharedStride));
  arrays.links = links.Allocate(count);
  // Matrices that are not yet computed read as zeros.
  arrays.localMatrices = localMatrices.Allocate(count);
  arrays.worldMatrices = worldMatrices.Allocate(count);
  arrays.localVersions = localVersions.Allocate(count);
  arrays.worldVersions = worldVersions.Allocate(count);
  arrays.entities = entities.AllocateRaw(count * arrays.entityStride, alignof(Entity3D));
  system->Tree().Enter(handle, arrays);

  for (uint32_t i = 0; i < count; ++i) {
    new (arrays.links + i) TransformLinks();
    uint8_t* record = arrays.entities + static_cast<size_t>(i) * arrays.entityStride;
    if (isThreeD) {
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
    system->Passes().RemoveRootsOfBatch(handle);
  }
  system->Tree().Leave(handle);
}

}  // namespace nq::engine
