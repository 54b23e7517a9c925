// A node of the scene's transform tree: links, bone binding, marks and matrices.
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

// The children of an entity in the order that script set; a view, valid until a link changes.
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

// Base of both kinds of entity. Records of a batch lie one behind the other at stable addresses;
// the batch constructs and cleans them, nobody deletes one. What the per-frame passes touch lives
// in the batch's arrays (TransformTree), and is reached here by accessors.
//
// Invariants: an entity is among the children of its parent, once, or has no parent. `boundTo` is b
// exactly when the entity is in `boundEntities` of b. Parent link and bone binding are independent.
// A parent cycle is the caller's fault: walks that would never end because of one end the process
// with a report that names a handle.
//
// Thread safety: links, bindings and names change on the script thread only. UpdateLocalMatrix,
// PropagateMarkDirty and UpdateTree may run on worker threads for disjoint trees.
class Entity {
 public:
  // The entity's place in `system`'s TransformTree exists already, with its kind, marked dirty.
  Entity(EntitySystem* system, uint32_t handle);
  Entity(const Entity&) = delete;
  Entity& operator=(const Entity&) = delete;

  // Traps: a batch cleans its records by Clean, and frees their memory as a whole.
  virtual ~Entity();

  // Builds localMatrix from the shared record. Safe to run for the same entity on two threads at
  // once.
  virtual void UpdateLocalMatrix() = 0;

  // Copies worldMatrix to the shared record.
  virtual void PublishWorldMatrix() = 0;

  // Makes bound entities follow this one, as a bone. Nothing for 2D entities.
  virtual void UpdateBoundEntities() {}

  const uint32_t handle;               // key of the batch, or-ed with the position in it
  EntitySystem* const system;          // not counted
  Entity* boundTo = nullptr;           // the bone this entity is bound to
  std::vector<Entity*> boundEntities;  // bound to this one; ascending by address, each once
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

  // This entity's place in the tree. For the batch and the root list.
  TransformLinks& links() const { return tree->Links(handle); }

  // Makes `child` the last child. A child of this entity keeps its place; a child of another is
  // taken from there first.
  void AttachChild(Entity* child);

  // Makes `child` the child at `index`, or the last if there are fewer. It is first taken from its
  // parent, even if that is this entity: `index` counts without it.
  void InsertChildAt(Entity* child, uint32_t index);

  // Leaves the parent. Marks nothing dirty and leaves the root list alone: matrices stay as they
  // are until something else changes them.
  void RemoveFromParent();

  // Back to the state at creation, as far as links, mark, activity, world version and name go.
  // Children, local version, root entries and shared record stay.
  void Reset();

  // Reset of this entity and all below, children from last to first.
  void ResetSubtree();

  // Binds this entity to `bone`. If `bone` is bound, directly or not, to this entity, prints
  // "[NQ_WARN][Engine]: " and "Cycle Binding Detected, bind: %d to bone: %d\n" and leaves this
  // entity unbound.
  void BindToBone(Entity* bone);
  void UnbindFromBone();

  // Marks this entity for recomputation, its ancestors as having work below and, if `deep`, all
  // descendants for recomputation.
  void PropagateMarkDirty(bool deep);

  // Marks all descendants, passing over what is marked already with all below it.
  void MarkSubtreeDirty();

  // Marks nothing: what was marked below while this entity was inactive is reached again when
  // something else leads a walk here.
  void SetActive(bool value);

  // As a command does it: marks this entity too. For an inactive one.
  void Activate(bool deep);

  // Raises localVersion of this entity and all descendants by 1.
  void BumpLocalVersion();

  // Recomputes what is marked at or below this entity. Inactive entities are not entered.
  void UpdateTree();

  // Recomputes this entity and all below, but for inactive ones and what hangs below them.
  void UpdateWorldSubtree();

  // Brings this one entity up to date, with the chain of marked ancestors above it. Nothing happens
  // if the entity, one of these ancestors, or the unmarked one that ends the chain is inactive.
  void RefreshChain();

  // What the batch runs instead of a destructor: links of this entity end, children are left
  // without a parent, memory of name, bindings and children is freed. Root entries are the batch's
  // to remove.
  void Clean();

 protected:
  TransformTree* const tree;

 private:
  Entity* EntityOrNull(uint32_t other) const {
    return other == 0 ? nullptr : tree->EntityOf(other);
  }

  // Takes `child` out of this entity's list; puts it behind the last child, or ahead of `next`.
  void Unlink(Entity* child);
  void LinkLast(Entity* child);
  void LinkBefore(Entity* child, Entity* next);

  uint32_t childCount = 0;
  uint32_t lastChild = 0;        // handle, 0 for none
  uint32_t previousSibling = 0;  // handle, 0 for none
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY_H_
