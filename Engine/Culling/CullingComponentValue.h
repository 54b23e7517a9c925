// A batch of culling objects under one handle.
#ifndef NQ_ENGINE_CULLING_CULLINGCOMPONENTVALUE_H_
#define NQ_ENGINE_CULLING_CULLINGCOMPONENTVALUE_H_

#include <cstdint>

#include "Common/Def/AlignedArray.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/Vector3.h"
#include "Engine/Culling/CullingRecord.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

class EngineCore;

// An object's cached entity look-up.
struct CullingEntityCache {
  uint32_t seenEntityHandle;  // the record's handle at the last look-up; 0 at first
  uint32_t seenWorldVersion;  // the entity's world version for which the world sphere was computed
  const uint32_t* worldVersion;  // the entity's; null unless a 3D one was found and lives
};

// The world spheres of a batch as a structure of arrays, so that a group is tested at a time. Zeros
// until first computed.
struct WorldSpheres {
  AlignedArray<float> x;
  AlignedArray<float> y;
  AlignedArray<float> z;
  AlignedArray<float> radius;
};

// 1 to 4095 culling objects. The script sees their records; the native data is in arrays by
// position. Script thread only.
//
// The entity of an object is looked up at the first use after the record's handle has changed, or
// after the entity's batch was released, and not again: an entity created later under the same
// handle is not found.
class CullingComponentValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;

  // Allocates a zeroed block for `count` records, so that all objects start disabled. Called once.
  // `count` is not 0.
  void* Allocate(uint32_t count) override;

  uint32_t Count() const { return count; }
  const CullingRecord& Record(uint32_t index) const {
    return static_cast<const CullingRecord*>(block.pointer)[index];
  }

  // True if the object takes part in a call with `mask`: it is enabled, its entity is alive and 3D,
  // and the masks overlap. Tested in this order: the entity of a disabled object is not looked up.
  bool IsCandidate(uint32_t index, uint32_t mask, const TransformTree& tree) {
    const CullingRecord& record = Record(index);
    if (record.enabled == 0) {
      return false;
    }
    const CullingEntityCache& cache = caches[index];
    if ((cache.worldVersion == nullptr || record.entity != cache.seenEntityHandle) &&
        !ResolveEntity(index, tree)) {
      return false;
    }
    return (record.mask & mask) != 0;
  }

  // Recomputes the world sphere if the entity's world version has changed. For candidates.
  void UpdateWorldSphere(uint32_t index, const TransformTree& tree) {
    const CullingEntityCache& cache = caches[index];
    if (*cache.worldVersion != cache.seenWorldVersion) {
      ComputeWorldSphere(index, tree);
    }
  }

  // Drops cached entities whose batch has left the tree: they are looked up again at the next use.
  void DropReleasedEntities(const TransformTree& tree);

  AlignedArray<CullingEntityCache> caches;
  WorldSpheres spheres;
  AlignedArray<float> depths;  // of the current call, where an object is visible

  // Whether `caches` holds an entity: the generation of its batch, or one of these two values.
  static constexpr uint32_t kNoEntity = 0;
  static constexpr uint32_t kReleasedEntity = 0xFFFFFFFFu;
  AlignedArray<uint32_t> generations;

 private:
  // Looks the entity up if necessary. True if there is a living 3D one.
  bool ResolveEntity(uint32_t index, const TransformTree& tree);
  void ComputeWorldSphere(uint32_t index, const TransformTree& tree);

  uint32_t count = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLINGCOMPONENTVALUE_H_
