// What the per-frame passes touch of entities, kept compact and apart from the rest.
#ifndef NQ_ENGINE_ENTITY_TRANSFORMTREE_H_
#define NQ_ENGINE_ENTITY_TRANSFORMTREE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Def/Handle.h"

namespace nq::engine {

class Entity;

// What a frame's passes know of an entity's world matrix.
enum DirtyState : uint8_t {
  kDirtyClean = 0,  // this entity and all below are up to date
  kDirtyBelow = 1,  // this entity is up to date, something below is not
  kDirtySelf = 2,   // this entity's world matrix and all below must be computed anew
};

// Place of an entity in the tree, by handles; 0 for none. Children form a list in the order that
// script set. Sixteen bytes, four to a cache line: walks and marks pass over many more entities
// than they compute.
//
// Thread safety: links and flags change on the script thread only. `dirtyState` is marked by worker
// tasks too, on ancestors that several tasks share, hence atomic; no other data is published by it,
// so relaxed order is enough.
struct TransformLinks {
  uint32_t parent;
  uint32_t firstChild;
  uint32_t nextSibling;
  std::atomic<uint8_t> dirtyState;
  uint8_t active;
  uint8_t hasBoundEntities : 1;
  uint8_t isRoot : 1;   // stands in the root list at least once
  uint8_t climbed : 2;  // mark of the climb that spreads versions
  uint8_t recentBumps;  // see LocalVersions

  uint8_t DirtyState() const { return dirtyState.load(std::memory_order_relaxed); }
  void SetDirtyState(uint8_t state) { dirtyState.store(state, std::memory_order_relaxed); }

  // Marks a clean entity as having work below. False if it was marked already, as 1 or as 2: a mark
  // of 2 that another task sets meanwhile is not lost.
  bool MarkBelow() {
    uint8_t expected = kDirtyClean;
    return DirtyState() == kDirtyClean &&
           dirtyState.compare_exchange_strong(expected, kDirtyBelow, std::memory_order_relaxed);
  }

  // The same in less time, while no other thread marks.
  bool MarkBelowAlone() {
    if (DirtyState() != kDirtyClean) {
      return false;
    }
    SetDirtyState(kDirtyBelow);
    return true;
  }
};
static_assert(sizeof(TransformLinks) == 16, "four to a cache line");

// Column-major; zeros until first computed. Written by one task at a time.
//
// Local and world matrices are kept in arrays of their own: workers write the local ones, the
// script thread the world ones, and processors fetch cache lines in pairs, so side by side each
// write would take the other's line away.
struct alignas(64) TransformMatrix {
  float m[16];
};

// Raised for an entity in the dirty list and all below it; see LocalVersions.
struct LocalVersion {
  uint32_t settled;  // without the bumps that are not spread yet
  uint32_t pending;  // bumps of this entity and all below it that are not spread yet
};

// The arrays of one batch, indexed by the position in it. All null and `count` 0 where a slot holds
// no batch.
struct TransformBatch {
  TransformLinks* links = nullptr;
  TransformMatrix* localMatrices = nullptr;
  TransformMatrix* worldMatrices = nullptr;
  LocalVersion* localVersions = nullptr;
  uint32_t* worldVersions = nullptr;  // raised by 1 on every computation of the world matrix
  uint8_t* sharedRecords = nullptr;   // the batch's shared block
  uint8_t* entities = nullptr;        // the batch's Entity records
  uint32_t count = 0;
  uint16_t entityStride = 0;
  uint8_t sharedStride = 0;
  bool isThreeD = false;

  uint8_t* SharedRecord(uint32_t index) const {
    return sharedRecords + static_cast<size_t>(index) * sharedStride;
  }
  Entity* EntityAt(uint32_t index) const {
    return reinterpret_cast<Entity*>(entities + static_cast<size_t>(index) * entityStride);
  }
};

// The batches of an engine by slot. Owns nothing: batches enter and leave their arrays.
class TransformTree {
 public:
  void Enter(uint32_t key, const TransformBatch& batch) {
    const uint32_t slot = HandleSlot(key);
    if (slot >= batches.size()) {
      batches.resize(slot + 1);
      generations.resize(slot + 1, 1);
    }
    batches[slot] = batch;
    entityCount += batch.count;
  }

  void Leave(uint32_t key) {
    TransformBatch& batch = batches[HandleSlot(key)];
    entityCount -= batch.count;
    batch = TransformBatch();
    ++generations[HandleSlot(key)];
    ++leaveCount;
  }

  // Batches that have left so far. Who keeps pointers into batches looks at it before using them.
  uint32_t LeaveCount() const { return leaveCount; }

  // Starts at 1 and rises when the batch of the handle's slot leaves. For handles of slots that
  // have held a batch.
  uint32_t Generation(uint32_t handle) const { return generations[HandleSlot(handle)]; }

  // True if `handle` names an entity.
  bool Contains(uint32_t handle) const {
    const uint32_t slot = HandleSlot(handle);
    return slot < batches.size() && HandleElement(handle) < batches[slot].count;
  }

  // The batches by slot. Valid until a batch enters.
  const TransformBatch* Table() const { return batches.data(); }

  // The batch of a handle's slot; an empty one if there is none.
  TransformBatch BatchOrEmpty(uint32_t handle) const {
    const uint32_t slot = HandleSlot(handle);
    return slot < batches.size() ? batches[slot] : TransformBatch();
  }

  // The rest is for handles that name an entity.
  const TransformBatch& Batch(uint32_t handle) const { return batches[HandleSlot(handle)]; }
  TransformLinks& Links(uint32_t handle) const {
    return Batch(handle).links[HandleElement(handle)];
  }
  float* LocalMatrix(uint32_t handle) const {
    return Batch(handle).localMatrices[HandleElement(handle)].m;
  }
  float* WorldMatrix(uint32_t handle) const {
    return Batch(handle).worldMatrices[HandleElement(handle)].m;
  }
  LocalVersion& Version(uint32_t handle) const {
    return Batch(handle).localVersions[HandleElement(handle)];
  }
  Entity* EntityOf(uint32_t handle) const { return Batch(handle).EntityAt(HandleElement(handle)); }

  // Marks an entity for recomputation and its ancestors as having work below, up to the first that
  // is marked already. Any thread.
  void MarkDirty(uint32_t handle) const {
    NoteOtherMarks();
    TransformLinks& links = Links(handle);
    links.SetDirtyState(kDirtySelf);
    MarkAncestors(links.parent);
  }

  // The part of it above the entity: from its parent, which may be 0, upwards.
  void MarkAncestors(uint32_t parent) const {
    while (parent != 0) {
      TransformLinks& links = Links(parent);
      if (!links.MarkBelow()) {
        return;
      }
      parent = links.parent;
    }
  }

  // A world pass can keep to what the dirty list has marked, if below the roots there are no other
  // marks. Who sets marks, or brings marked entities below a root, tells so here. Any thread.
  void NoteOtherMarks() const {
    // Workers do so all at once, mostly after somebody else.
    if (!otherMarks.load(std::memory_order_relaxed)) {
      otherMarks.store(true, std::memory_order_relaxed);
    }
  }
  bool HasOtherMarks() const { return otherMarks.load(std::memory_order_relaxed); }

  // After a walk over all that is marked below the roots. Script thread, while no tasks run.
  void ForgetOtherMarks() const { otherMarks.store(looseMarks, std::memory_order_relaxed); }

  // The same for marks below an entity that is clean itself. A walk does not find them, until
  // something else leads it there: from now on there may always be other marks. Script thread.
  void NoteLooseMarks() const {
    looseMarks = true;
    NoteOtherMarks();
  }

  // Entities in all batches: no path through the tree is longer, unless parents form a cycle.
  size_t EntityCount() const { return entityCount; }

 private:
  std::vector<TransformBatch> batches;
  std::vector<uint32_t> generations;  // by slot
  uint32_t leaveCount = 0;
  size_t entityCount = 0;
  mutable std::atomic<bool> otherMarks{true};
  mutable bool looseMarks = false;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_TRANSFORMTREE_H_
