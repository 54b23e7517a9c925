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
// than they compute. A new entity is active, marked, and not a root.
//
// What decides which entities a world pass computes is private: TransformTree alone writes it, and
// keeps its notes of marks (see there) with every write.
//
// Thread safety: links and flags change on the script thread only. `dirtyState` is marked by worker
// tasks too, on ancestors that several tasks share, hence atomic; no other data is published by it,
// so relaxed order is enough.
struct TransformLinks {
  TransformLinks()
      : parent(0),
        firstChild(0),
        nextSibling(0),
        recentBumps(0),
        climbed(0),
        hasBoundEntities(0),
        isRoot(0),
        active(1),
        dirtyState(kDirtySelf) {}

  uint8_t DirtyState() const { return dirtyState.load(std::memory_order_relaxed); }
  bool IsActive() const { return active != 0; }
  bool IsRoot() const { return isRoot != 0; }  // in the root list at least once

  uint32_t parent;
  uint32_t firstChild;
  uint32_t nextSibling;
  uint8_t recentBumps;  // see LocalVersions
  uint8_t climbed : 2;  // mark of the climb that spreads versions
  uint8_t hasBoundEntities : 1;

 private:
  friend class TransformTree;
  friend struct MarksForTests;  // puts entities into any state, for tests

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

  uint8_t isRoot : 1;
  uint8_t active;
  std::atomic<uint8_t> dirtyState;
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

// Which entity a report of a parent cycle names: the one that a walk started from, or the one that
// it had reached when it gave up.
enum class CycleReport { kStart, kReached };

// Ends the process with a report that names the entity of `handle`, which hangs on a parent cycle.
// Defined in WorldTransform.cpp, the file that the failed assertion names.
[[noreturn]] void FailOnParentCycle(uint32_t handle);

// The batches of an engine by slot. Owns nothing: batches enter and leave their arrays.
//
// It alone writes marks. A frame with a short dirty list computes from the listed entities only, if
// below the roots nothing is marked but by that list; otherwise it walks from the roots. So the
// tree notes whether there may be other marks. Each operation that marks, or that brings marked
// entities within reach of a walk, notes that itself: there is nothing that its caller has to add.
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
  uint8_t* SharedRecord(uint32_t handle) const {
    return Batch(handle).SharedRecord(HandleElement(handle));
  }
  LocalVersion& Version(uint32_t handle) const {
    return Batch(handle).localVersions[HandleElement(handle)];
  }
  Entity* EntityOf(uint32_t handle) const { return Batch(handle).EntityAt(HandleElement(handle)); }

  // Calls `visit` for the ancestors of `handle`'s entity, from its parent upwards, until `visit`
  // returns false. Returns the last for which it returned true; `handle` if there is none. A walk
  // higher than there are entities runs around a parent cycle, and ends the process.
  template <typename Visit>
  uint32_t WalkUp(uint32_t handle, CycleReport report, Visit visit) const {
    uint32_t reached = handle;
    size_t height = 0;
    for (uint32_t parent = Links(handle).parent; parent != 0 && visit(parent);
         parent = Links(parent).parent) {
      reached = parent;
      if (++height > entityCount) {
        FailOnParentCycle(report == CycleReport::kStart ? handle : reached);
      }
    }
    return reached;
  }

  // --- Marks that are made between the walks of frames, noted as other marks.

  // Marks an entity for recomputation and its ancestors as having work below, up to the first that
  // is marked already. Any thread.
  void MarkDirty(uint32_t handle) {
    NoteOtherMarks();
    MarkAndClimb(
        &Links(handle), [this](uint32_t parent) { return &Links(parent); },
        [](TransformLinks* links, uint32_t) { return links->MarkBelow(); });
  }

  // The same and, if `deep`, marks all descendants for recomputation.
  void MarkDirty(uint32_t handle, bool deep) {
    MarkDirty(handle);
    if (deep) {
      MarkDescendants(handle);
    }
  }

  // Marks all descendants for recomputation, passing over what is marked already with all below it,
  // and nothing above them. Below a clean entity a walk does not find such marks, until something
  // else leads it there: from now on there may always be other marks. Script thread.
  void MarkOnlyBelow(uint32_t handle) {
    NoteLooseMarks();
    MarkDescendants(handle);
  }

  // Back to marked and active, as a new entity is; ancestors are not marked. Script thread.
  void ResetMark(uint32_t handle) {
    NoteOtherMarks();
    TransformLinks& links = Links(handle);
    links.SetDirtyState(kDirtySelf);
    links.active = 1;
  }

  // Lets walks enter an inactive entity again, and marks it as MarkDirty does. Script thread.
  void Activate(uint32_t handle, bool deep) {
    Links(handle).active = 1;
    MarkDirty(handle, deep);
  }

  // The same without a mark: what was marked below while the entity was inactive is reached when
  // something else leads a walk there. Or keeps walks from entering. Script thread.
  void SetActive(uint32_t handle, bool value) {
    TransformLinks& links = Links(handle);
    if (value && !links.IsActive()) {
      NoteLooseMarks();
    }
    links.active = value ? 1 : 0;
  }

  // Says that a walk starts from the entity from now on. Script thread.
  void MakeRoot(uint32_t handle) {
    NoteOtherMarks();
    Links(handle).isRoot = 1;
  }

  // Marks the entities of a character one after the other, with one note for all. Any thread.
  class Marker {
   public:
    explicit Marker(TransformTree* tree) : tree(tree) { tree->NoteOtherMarks(); }

    // As MarkDirty. `batch` is the one at `slot`, which holds the entity at `index`. Of entities
    // that go from top to bottom, each finds its parent marked, mostly in the same batch.
    void Mark(const TransformBatch& batch, uint32_t slot, uint32_t index) const {
      TransformLinks* const links = batch.links;
      MarkAndClimb(
          links + index,
          [this, links, slot](uint32_t parent) {
            return HandleSlot(parent) == slot ? links + HandleElement(parent)
                                              : &tree->Links(parent);
          },
          [](TransformLinks* ancestor, uint32_t) { return ancestor->MarkBelow(); });
    }

   private:
    TransformTree* tree;
  };

  // --- Marks of a frame's own passes, on the script thread while no other thread marks.

  // As MarkDirty for an entity of the dirty list, but not noted as another mark. Appends the
  // ancestors that it marks to `path`, from the lowest to the highest.
  void MarkListed(uint32_t handle, std::vector<uint32_t>* path) {
    MarkAndClimb(
        &Links(handle), [this](uint32_t parent) { return &Links(parent); },
        [path](TransformLinks* links, uint32_t parent) {
          const bool marked = links->MarkBelowAlone();
          if (marked) {
            path->push_back(parent);
          }
          return marked;
        });
  }

  // A walk passes here and goes on, or a world matrix is computed and those of the children follow.
  static void Clean(TransformLinks* links) { links->SetDirtyState(kDirtyClean); }

  // A marked entity has been computed, while its children are still to be visited by a walk.
  static void LeaveMarkBelow(TransformLinks* links) { links->SetDirtyState(kDirtyBelow); }

  // True if below the roots there may be other marks than those of MarkListed.
  bool HasOtherMarks() const { return otherMarks.load(std::memory_order_relaxed); }

  // After a walk over all that is marked below the roots. Script thread, while no tasks run.
  void ForgetOtherMarks() { otherMarks.store(looseMarks, std::memory_order_relaxed); }

  // Entities in all batches: no path through the tree is longer, unless parents form a cycle.
  size_t EntityCount() const { return entityCount; }

 private:
  // Marks `links`' entity for recomputation and raises the marks of its ancestors, upwards until
  // `raise(ancestor's links, ancestor)` returns false: that one is marked already. `linksOf` finds
  // the links of an ancestor.
  template <typename LinksOf, typename Raise>
  static void MarkAndClimb(TransformLinks* links, LinksOf linksOf, Raise raise) {
    links->SetDirtyState(kDirtySelf);
    for (uint32_t parent = links->parent; parent != 0; parent = links->parent) {
      links = linksOf(parent);
      if (!raise(links, parent)) {
        return;
      }
    }
  }

  // Walks by the links alone: trees may be as deep as there are entities.
  void MarkDescendants(uint32_t handle) {
    uint32_t current = handle;
    uint32_t depth = 0;
    uint32_t next = Links(handle).firstChild;
    for (;;) {
      // `next` is what to look at: a first child one level below `current`, or a sibling.
      while (next == 0) {
        if (depth == 0) {
          return;
        }
        next = Links(current).nextSibling;
        current = Links(current).parent;
        --depth;
      }
      TransformLinks& nextLinks = Links(next);
      if (nextLinks.DirtyState() == kDirtySelf) {
        next = nextLinks.nextSibling;
        continue;
      }
      nextLinks.SetDirtyState(kDirtySelf);
      current = next;
      ++depth;
      next = nextLinks.firstChild;
    }
  }

  void NoteOtherMarks() {
    // Workers do so all at once, mostly after another has.
    if (!otherMarks.load(std::memory_order_relaxed)) {
      otherMarks.store(true, std::memory_order_relaxed);
    }
  }

  // For marks below an entity that is clean itself: they stay until something leads a walk there.
  void NoteLooseMarks() {
    looseMarks = true;
    NoteOtherMarks();
  }

  std::vector<TransformBatch> batches;
  std::vector<uint32_t> generations;  // by slot
  uint32_t leaveCount = 0;
  size_t entityCount = 0;
  std::atomic<bool> otherMarks{true};
  bool looseMarks = false;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_TRANSFORMTREE_H_
