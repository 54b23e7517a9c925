// The entity data that the per-frame passes use, kept compact and apart from the rest.
#ifndef NQ_ENGINE_ENTITY_TRANSFORMTREE_H_
#define NQ_ENGINE_ENTITY_TRANSFORMTREE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Common/Def/Handle.h"

namespace nq::engine {

class Entity;

// The dirty state of an entity's world matrix.
enum DirtyState : uint8_t {
  kDirtyClean = 0,  // this entity and all descendants are up to date
  kDirtyBelow = 1,  // this entity is up to date, some descendant is not
  kDirtySelf = 2,   // this entity and all descendants must be recomputed
};

// The links of an entity in the tree, by handles; 0 for none. Children form a linked list in the
// order that the script set. Sixteen bytes, four to a cache line: walks and marks visit many more
// entities than they compute. A new entity is active, marked, and not a root.
//
// The fields that decide which entities a world pass computes are private: only TransformTree
// writes them, and records which marks do not come from the dirty list of a frame (see there).
//
// Thread safety: links and flags change on the script thread only. Worker tasks mark `dirtyState`
// too, on ancestors that several tasks share, hence atomic; it publishes no other data, so relaxed
// order is enough.
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
  bool IsRoot() const { return isRoot != 0; }  // at least once in the root list

  uint32_t parent;
  uint32_t firstChild;
  uint32_t nextSibling;
  uint8_t recentBumps;  // see LocalVersions
  uint8_t climbed : 2;  // visit mark, see LocalVersions.cpp
  uint8_t hasBoundEntities : 1;

 private:
  friend class TransformTree;
  friend struct MarksForTests;  // sets any state, for tests

  void SetDirtyState(uint8_t state) { dirtyState.store(state, std::memory_order_relaxed); }

  // Marks a clean entity as kDirtyBelow. False if it was already marked, as kDirtyBelow or
  // kDirtySelf. Never overwrites a kDirtySelf that another task sets meanwhile.
  bool MarkBelow() {
    uint8_t expected = kDirtyClean;
    return DirtyState() == kDirtyClean &&
           dirtyState.compare_exchange_strong(expected, kDirtyBelow, std::memory_order_relaxed);
  }

  // The same but faster, while no other thread marks.
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
// Local and world matrices are in separate arrays to avoid false sharing: workers write the local
// ones, the script thread the world ones, and CPUs prefetch cache lines in pairs.
struct alignas(64) TransformMatrix {
  float m[16];
};

// The local version of an entity; see LocalVersions.
struct LocalVersion {
  uint32_t settled;  // without pending bumps
  uint32_t pending;  // bumps yet to be added to this entity and all descendants
};

// The arrays of one batch, indexed by the position in it. All null and `count` 0 if a slot holds no
// batch.
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

// Which entity a report of a parent cycle names: the one at which a walk started, or the one that
// it had reached when it gave up.
enum class CycleReport { kStart, kReached };

// Ends the process with a report that names the entity of `handle`, which is on or below a parent
// cycle. Defined in WorldTransform.cpp, the file that the failed assertion names.
[[noreturn]] void FailOnParentCycle(uint32_t handle);

// The batches of an engine by slot. Owns nothing: batches register and unregister their arrays.
//
// Only this class writes marks. A frame with a short dirty list computes from the listed entities
// only, provided that all marks below the roots come from that list; otherwise it walks from the
// roots. So the tree tracks whether there may be other marks. Each operation that marks between
// frames, or that makes marked entities reachable by a walk, records that itself: callers need not.
// Linking is outside this class: whoever links an entity must mark it (Entity::AttachChild).
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

  // Number of batches released so far. Holders of pointers into batches compare it before using
  // them.
  uint32_t LeaveCount() const { return leaveCount; }

  // Starts at 1 and is incremented when the batch of the handle's slot leaves. For handles of slots
  // that have held a batch.
  uint32_t Generation(uint32_t handle) const { return generations[HandleSlot(handle)]; }

  // True if `handle` names an entity.
  bool Contains(uint32_t handle) const {
    const uint32_t slot = HandleSlot(handle);
    return slot < batches.size() && HandleElement(handle) < batches[slot].count;
  }

  // The batches by slot. Valid until a batch is added.
  const TransformBatch* Table() const { return batches.data(); }

  // Contains and Batch for loops over many handles, in which stores would otherwise make the
  // compiler reload the table's address. Valid until a batch is added.
  class Lookup {
   public:
    explicit Lookup(const TransformTree& tree)
        : batches(tree.batches.data()), slots(tree.batches.size()) {}

    // The batch of the entity that `handle` names; null if it names none.
    const TransformBatch* BatchOf(uint32_t handle) const {
      const uint32_t slot = HandleSlot(handle);
      return slot < slots && HandleElement(handle) < batches[slot].count ? batches + slot : nullptr;
    }

   private:
    const TransformBatch* const batches;
    const size_t slots;
  };

  // The batch of a handle's slot; an empty one if there is none.
  TransformBatch BatchOrEmpty(uint32_t handle) const {
    const uint32_t slot = HandleSlot(handle);
    return slot < batches.size() ? batches[slot] : TransformBatch();
  }

  // The functions below require a handle that names an entity.
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
  // longer than the number of entities is on a parent cycle, and ends the process.
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

  // --- Marks made between the walks of frames, recorded as other marks.

  // Marks an entity as kDirtySelf and its ancestors as kDirtyBelow, up to the first that is already
  // marked. Any thread.
  void MarkDirty(uint32_t handle) {
    NoteOtherMarks();
    MarkAndClimb(
        &Links(handle), [this](uint32_t parent) { return &Links(parent); },
        [](TransformLinks* links, uint32_t) { return links->MarkBelow(); });
  }

  // The same and, if `deep`, marks all descendants as kDirtySelf.
  void MarkDirty(uint32_t handle, bool deep) {
    MarkDirty(handle);
    if (deep) {
      MarkDescendants(handle);
    }
  }

  // Marks all descendants as kDirtySelf, skipping subtrees whose top is kDirtySelf, and no
  // ancestor. Below a clean entity a walk does not find such marks until something else makes it
  // visit them: from now on there may always be other marks. Script thread.
  void MarkOnlyBelow(uint32_t handle) {
    NoteLooseMarks();
    MarkDescendants(handle);
  }

  // Restores the state of a new entity: marked and active; ancestors are not marked. Script thread.
  void ResetMark(uint32_t handle) {
    NoteOtherMarks();
    TransformLinks& links = Links(handle);
    links.SetDirtyState(kDirtySelf);
    links.active = 1;
  }

  // Activates an inactive entity, so that walks enter it, and marks it like MarkDirty. Script
  // thread.
  void Activate(uint32_t handle, bool deep) {
    Links(handle).active = 1;
    MarkDirty(handle, deep);
  }

  // Sets activity without a mark. Marks set below while the entity was inactive are found when
  // something else makes a walk visit it. Walks do not enter an inactive entity. Script thread.
  void SetActive(uint32_t handle, bool value) {
    TransformLinks& links = Links(handle);
    if (value && !links.IsActive()) {
      NoteLooseMarks();
    }
    links.active = value ? 1 : 0;
  }

  // Records that walks start from the entity from now on. Script thread.
  void MakeRoot(uint32_t handle) {
    NoteOtherMarks();
    Links(handle).isRoot = 1;
  }

  // Marks the entities of a character one by one, recording other marks once for all. Any thread.
  class Marker {
   public:
    explicit Marker(TransformTree* tree) : tree(tree) { tree->NoteOtherMarks(); }

    // Like MarkDirty. `batch` is the one at `slot`, which holds the entity at `index`. If entities
    // are marked from top to bottom, each finds its parent already marked, mostly in the same
    // batch.
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

    // Marks `count` entities from `index` up, with the same result. Where the parent is one of
    // them, it is marked too, and its own climb reaches the ancestors.
    void MarkRun(const TransformBatch& batch, uint32_t slot, uint32_t index, uint32_t count) const {
      TransformLinks* const links = batch.links + index;
      const uint32_t first = slot << kHandleElementBits | index;
      for (uint32_t i = 0; i < count; ++i) {
        links[i].SetDirtyState(kDirtySelf);
        const uint32_t parent = links[i].parent;
        if (parent - first >= count && parent != 0) {
          Mark(batch, slot, index + i);
        }
      }
    }

   private:
    TransformTree* tree;
  };

  // --- Marks of a frame's own passes, on the script thread while no other thread marks.

  // Like MarkDirty, for an entity of the dirty list by its links, but not recorded as another mark.
  // Calls `onMarked` for the ancestors that it marks, from the lowest to the highest.
  template <typename OnMarked>
  void MarkListed(TransformLinks* entityLinks, OnMarked onMarked) {
    MarkAndClimb(
        entityLinks, [this](uint32_t parent) { return &Links(parent); },
        [onMarked](TransformLinks* links, uint32_t parent) {
          const bool marked = links->MarkBelowAlone();
          if (marked) {
            onMarked(parent);
          }
          return marked;
        });
  }

  // For an entity that a walk passes through, or whose world matrix is computed together with those
  // of its descendants.
  static void Clean(TransformLinks* links) { links->SetDirtyState(kDirtyClean); }

  // For a marked entity that has been computed while a walk has yet to visit its children.
  static void LeaveMarkBelow(TransformLinks* links) { links->SetDirtyState(kDirtyBelow); }

  // True if below the roots there may be marks other than those of MarkListed.
  bool HasOtherMarks() const { return otherMarks.load(std::memory_order_relaxed); }

  // Call after a walk over all that is marked below the roots. Script thread, while no tasks run.
  void ForgetOtherMarks() { otherMarks.store(looseMarks, std::memory_order_relaxed); }

  // Entities in all batches. No path in the tree is longer, unless parents form a cycle.
  size_t EntityCount() const { return entityCount; }

 private:
  // Marks `links`' entity as kDirtySelf and raises the marks of its ancestors, upwards until
  // `raise(ancestor's links, ancestor)` returns false because that one is already marked. `linksOf`
  // finds the links of an ancestor.
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

  // Iterative, by links: trees may be as deep as there are entities.
  void MarkDescendants(uint32_t handle) {
    uint32_t current = handle;
    uint32_t depth = 0;
    uint32_t next = Links(handle).firstChild;
    for (;;) {
      // `next` is the entity to visit: a first child one level below `current`, or a sibling.
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
    // Load first, to avoid contention: workers call this concurrently, mostly when it is set
    // already.
    if (!otherMarks.load(std::memory_order_relaxed)) {
      otherMarks.store(true, std::memory_order_relaxed);
    }
  }

  // For marks below an entity that is itself clean: they persist until something makes a walk visit
  // them.
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
