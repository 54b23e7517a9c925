// The world matrices that a walk has reached, computed a few dozen at a time.
#ifndef NQ_ENGINE_ENTITY_WORLDMATRIXQUEUE_H_
#define NQ_ENGINE_ENTITY_WORLDMATRIXQUEUE_H_

#include <cstdint>

#include "Common/Def/Platform.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// A walk adds the entities whose world matrices must be computed, parents before children. Adding
// prefetches what the computation needs, so that in a scene larger than the caches the misses of
// many entities overlap, whatever their numbering is. Entities are computed in the order in which
// they were added, the last ones by Flush.
//
// One queue per walk; walks over disjoint trees may run on several threads. Links may change only
// while the queue is empty.
class WorldMatrixQueue {
 public:
  explicit WorldMatrixQueue(const TransformTree& tree) : batches(tree.Table()) {}
  WorldMatrixQueue(const WorldMatrixQueue&) = delete;
  WorldMatrixQueue& operator=(const WorldMatrixQueue&) = delete;
  ~WorldMatrixQueue() { Flush(); }

  // `links` are those of the entity of `handle`.
  void Add(uint32_t handle, const TransformLinks& links) {
    if (count == kCapacity) {
      Flush();
    }
    const TransformBatch& batch = batches[HandleSlot(handle)];
    const uint32_t index = HandleElement(handle);
    Entry& entry = entries[count++];
    entry.batch = &batch;
    entry.index = index;
    entry.hasBoundEntities = links.hasBoundEntities != 0;
    entry.parentWorld = nullptr;
    if (links.parent != 0) {
      const TransformBatch& parentBatch = batches[HandleSlot(links.parent)];
      entry.parentWorld = parentBatch.worldMatrices[HandleElement(links.parent)].m;
      NQ_PREFETCH(entry.parentWorld);
    }
    NQ_PREFETCH(batch.localMatrices[index].m);
    NQ_PREFETCH_FOR_WRITE(batch.worldMatrices[index].m);
    NQ_PREFETCH_FOR_WRITE(batch.worldVersions + index);
    // Approximately both ends of the published matrix, which is the second half of a record.
    const uint8_t* record = batch.SharedRecord(index);
    NQ_PREFETCH_FOR_WRITE(record + batch.sharedStride / 2);
    NQ_PREFETCH_FOR_WRITE(record + batch.sharedStride - 1);
  }

  // Computes all that was added: world matrices, their versions, the published copies, and the
  // entities that are bound to one as a bone.
  void Flush();

 private:
  // Enough misses under way at once; the entries stay in the first-level cache.
  static constexpr uint32_t kCapacity = 32;

  struct Entry {
    const TransformBatch* batch;
    const float* parentWorld;  // null for an entity without a parent
    uint32_t index;            // in the batch
    bool hasBoundEntities;
  };

  void Compute();
  void ComputeByTwoColumns();  // only if HasWideVectors
  static void Finish(const Entry& entry);

  const TransformBatch* const batches;
  uint32_t count = 0;
  Entry entries[kCapacity];
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_WORLDMATRIXQUEUE_H_
