// A node of the transform tree: links, bone binding, dirty mark and matrices.
#ifndef NQ_ENGINE_ENTITY_ENTITY_H_
#define NQ_ENGINE_ENTITY_ENTITY_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

class Entity;
class EntitySystem;

// The children of an entity in the order that the script set; a view, invalidated when a link
// changes.
class EntityChildren {
 public:
  class Iterator {
   public:
    Iterator(const TransformTree* tree, uint32_t handle) : tree(tree), handle(handle) {}
    Entity* operator*() const { return tree->EntityOf(handle); }
    Iterator& operator++() {
      handle = tree->Links(handle).nextSibling;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return handle != other.handle; }

   private:
    const TransformTree* tree;
    uint32_t handle;
  };

  EntityChildren(const TransformTree* tree, uint32_t first, uint32_t count)
      : tree(tree), first(first), count(count) {}

  Iterator begin() const { return Iterator(tree, first); }
  Iterator end() const { return Iterator(tree, 0); }
  uint32_t size() const { return count; }
  bool empty() const { return count == 0; }

  // The child at `index`, which is below size(). Walks the list.
  Entity* operator[](uint32_t index) const {
    uint32_t handle = first;
    for (uint32_t i = 0; i < index; ++i) {
      handle = tree->Links(handle).nextSibling;
    }
    return tree->EntityOf(handle);
  }

 private:
  const TransformTree* tree;
  uint32_t first;
  uint32_t count;
};

// Base of both kinds of entity. Records of a batch are contiguous and their addresses stable; the
// batch constructs and cleans them, and none is deleted by itself. The data that per-frame passes
// use is in the batch's arrays (TransformTree), and accessors here read it.
//
// Invariants: an entity is among the children of its parent, exactly once, or has no parent.
// `boundTo` is b exactly if the entity is in `boundEntities` of b. Parent link and bone binding are
// independent. Parent cycles are a caller's error: walks that would loop forever end the process
// with a report that names a handle.
//
// Thread safety: links, bindings and names change on the script thread only. UpdateLocalMatrix,
// PropagateMarkDirty and UpdateTree may run on worker threads for disjoint trees.
class Entity {
 public:
  // The entity's entry in `system`'s TransformTree must exist already, with its kind, marked dirty.
  Entity(EntitySystem* system, uint32_t handle);
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  // Never called; ends the process. A batch calls Clean on its records, and frees their memory as a
  // whole.
  virtual ~Entity();

  // Builds localMatrix from the shared record. Two threads may run it for the same entity
  // concurrently.
  virtual void UpdateLocalMatrix() = 0;

  // Copies worldMatrix to the shared record.
  virtual void PublishWorldMatrix() = 0;

  // Updates the entities that are bound to this one as a bone. Does nothing for 2D entities.
  virtual void UpdateBoundEntities() {}

  const uint32_t handle;               // key of the batch, or-ed with the index in it
  EntitySystem* const system;          // not reference-counted
  Entity* boundTo = nullptr;           // the bone this entity is bound to
  std::vector<Entity*> boundEntities;  // bound to this one; ascending by address, unique
  std::string name;

  bool isThreeD() const { return tree->Batch(handle).isThreeD; }
  Entity* parent() const { return EntityOrNull(links().parent); }
  EntityChildren children() const { return EntityChildren(tree, links().firstChild, childCount); }
  const float* localMatrix() const { return tree->LocalMatrix(handle); }
  const float* worldMatrix() const { return tree->WorldMatrix(handle); }
  uint32_t worldVersion() const;
  uint32_t localVersion() const;
  uint32_t dirtyState() const { return links().DirtyState(); }
  bool active() const { return links().IsActive(); }
  uint8_t* sharedRecord() const;

  // This entity's links in the tree. For the batch and the root list.
  TransformLinks& links() const { return tree->Links(handle); }

  // Makes `child` the last child. If it is this entity's child already, it keeps its position; it
  // is first removed from another parent.
  void AttachChild(Entity* child);

  // Makes `child` the child at `index`, or the last if there are fewer. It is first removed from
  // its parent, even if that is this entity: `index` counts without it.
  void InsertChildAt(Entity* child, uint32_t index);

  // Removes this entity from its parent. Neither marks anything dirty nor changes the root list:
  // matrices stay as they are until something else changes them.
  void RemoveFromParent();

  // Restores links, dirty mark, activity, world version and name to their values at creation.
  // Children, local version, root entries and shared record are unchanged.
  void Reset();

  // Resets this entity and all descendants, children from last to first.
  void ResetSubtree();

  // Binds this entity to `bone`. If `bone` is bound, directly or not, to this entity, prints
  // "[NQ_WARN][Engine]: " and "Cycle Binding Detected, bind: %d to bone: %d\n" and leaves this
  // entity unbound.
  void BindToBone(Entity* bone);
  void UnbindFromBone();

  // Marks this entity for recomputation, its ancestors as kDirtyBelow and, if `deep`, all
  // descendants for recomputation.
  void PropagateMarkDirty(bool deep);

  // Marks nothing: marks set below while this entity was inactive are found when something else
  // makes a walk visit it.
  void SetActive(bool value);

  // Activates like a command: marks this entity too. For an inactive one.
  void Activate(bool deep);

  // Recomputes what is marked at or below this entity. Inactive entities are not entered.
  void UpdateTree();

  // Called by the batch instead of a destructor: removes this entity's links, leaves its children
  // without a parent, and frees the memory of name, bindings and children. The batch removes root
  // entries.
  void Clean();

  // --- For native callers only: no frame runs these, and JavaScript can't reach them.

  // Marks all descendants as kDirtySelf, skipping subtrees whose top is kDirtySelf already.
  void MarkSubtreeDirty();

  // Raises localVersion of this entity and all descendants by 1.
  void BumpLocalVersion();

  // Recomputes this entity and all descendants, except inactive ones and their subtrees.
  void UpdateWorldSubtree();

  // Updates this one entity, with the chain of marked ancestors above it. Does nothing if the
  // entity, one of these ancestors, or the unmarked one that ends the chain is inactive.
  void RefreshChain();

 protected:
  TransformTree* const tree;

 private:
  Entity* EntityOrNull(uint32_t other) const {
    return other == 0 ? nullptr : tree->EntityOf(other);
  }

  // Removes `child` from this entity's list; inserts it after the last child, or before `next`.
  void Unlink(Entity* child);
  void LinkLast(Entity* child);
  void LinkBefore(Entity* child, Entity* next);

  uint32_t childCount = 0;
  uint32_t lastChild = 0;        // handle, 0 for none
  uint32_t previousSibling = 0;  // handle, 0 for none
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY_H_
