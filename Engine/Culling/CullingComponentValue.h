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

// What an object remembers of its entity.
struct CullingEntityCache {
  uint32_t seenEntityHandle;  // the record's handle when the entity was last looked up; 0 at first
  uint32_t seenWorldVersion;  // the entity's world version at which the world sphere was computed
  const uint32_t* worldVersion;  // the entity's; null unless a 3D entity was found and still lives
};

// The world spheres of a batch, an array for each number, so that four are tested at a time. Zeros
// until first computed.
struct WorldSpheres {
  AlignedArray<float> x;
  AlignedArray<float> y;
  AlignedArray<float> z;
  AlignedArray<float> radius;
};

// 1 to 4095 culling objects. Script sees their records; the native side of each lies in arrays by
// position. Script thread only.
//
// The entity of an object is looked up at the first use after the record's handle has changed, or
// after the batch of the entity was released, and not again: an entity that comes into being later
// under the same handle is not found.
class CullingComponentValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;

  // Takes a block for `count` records, zeroed, so that all objects start disabled. Once. `count` is
  // not 0.
  void* Allocate(uint32_t count) override;

  uint32_t Count() const { return count; }
  const CullingRecord& Record(uint32_t index) const {
    return static_cast<const CullingRecord*>(block.pointer)[index];
  }

  // True if the object takes part in a call with `mask`: it is enabled, its entity is a living 3D
  // one, and the masks meet. Tested in this order: the entity of a disabled object is not looked
  // up.
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

  // Computes the world sphere anew if the entity's world version is not the one last seen. For
  // candidates.
  void UpdateWorldSphere(uint32_t index, const TransformTree& tree) {
    const CullingEntityCache& cache = caches[index];
    if (*cache.worldVersion != cache.seenWorldVersion) {
      ComputeWorldSphere(index, tree);
    }
  }

  // Lets go of entities whose batch has left the tree: they are looked up anew at the next use.
  void DropReleasedEntities(const TransformTree& tree);

  AlignedArray<CullingEntityCache> caches;
  WorldSpheres spheres;
  AlignedArray<float> depths;  // of the current call, where an object is visible

  // What `caches` says of whether an entity was found: the generation of its batch, or one of the
  // two.
  static constexpr uint32_t kNoEntity = 0;
  static constexpr uint32_t kReleasedEntity = 0xFFFFFFFFu;
  AlignedArray<uint32_t> generations;

 private:
  // Looks the entity up where that is due. True if there is a living 3D one.
  bool ResolveEntity(uint32_t index, const TransformTree& tree);
  void ComputeWorldSphere(uint32_t index, const TransformTree& tree);

  uint32_t count = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLINGCOMPONENTVALUE_H_
