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

void EntityPool::CreateEntities(EntitySystem* owningSystem, bool isThreeD, uint32_t entityCount) {
  system = owningSystem;
  count = entityCount;
  threeD = isThreeD;
  const size_t sharedStride = threeD ? sizeof(Entity3DRecord) : sizeof(Entity2DRecord);
  uint8_t* shared = static_cast<uint8_t*>(Allocate(static_cast<uint32_t>(count * sharedStride)));

  recordStride = threeD ? sizeof(Entity3D) : sizeof(Entity2D);
  records = static_cast<uint8_t*>(AlignedAlloc(alignof(Entity3D), count * recordStride));
  const uint32_t nodeBytes = count * static_cast<uint32_t>(sizeof(TransformNode));
  void* nodeMemory = AlignedAlloc(alignof(TransformNode), nodeBytes);
  // Matrices that nothing has computed yet read as zeros.
  nodes = static_cast<TransformNode*>(std::memset(nodeMemory, 0, nodeBytes));

  for (uint32_t i = 0; i < count; ++i) {
    TransformNode* node = new (nodes + i) TransformNode();
    uint8_t* record = records + static_cast<size_t>(i) * recordStride;
    uint8_t* sharedRecord = shared + i * sharedStride;
    if (threeD) {
      new (record) Entity3D(system, node, handle | i, sharedRecord);
    } else {
      new (record) Entity2D(system, node, handle | i, sharedRecord);
    }
  }
}

EntityPool::~EntityPool() {
  if (count == 0) {
    return;
  }
  system->Versions().Settle();
  bool anyRoot = false;
  for (uint32_t i = 0; i < count; ++i) {
    table(i)->Clean();
    anyRoot = anyRoot || nodes[i].isRoot != 0;
  }
  if (anyRoot) {
    system->RemoveRootsOfBatch(handle);
  }
  AlignedFree(records);
  AlignedFree(nodes);
}

}  // namespace nq::engine
