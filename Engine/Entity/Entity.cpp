// Links, bindings and marks of entities. The passes over matrices are in WorldTransform.cpp.
#include "Engine/Entity/Entity.h"

#include <algorithm>
#include <functional>

#include "Common/Def/Log.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

Entity::Entity(EntitySystem* system, TransformNode* node, uint32_t handle, uint8_t* sharedRecord,
               bool isThreeD)
    : handle(handle), system(system), node(node) {
  node->entity = this;
  node->sharedRecord = sharedRecord;
  node->isThreeD = isThreeD ? 1 : 0;
  node->active = 1;
  node->SetDirtyState(kDirtySelf);
}

Entity::~Entity() {
  __builtin_trap();
}

uint32_t Entity::localVersion() const {
  return system->Versions().Version(node);
}

void Entity::BumpLocalVersion() {
  system->Versions().Bump(node);
}

void Entity::Unlink(Entity* child) {
  system->Versions().Settle();
  Entity* previous = child->previousSibling;
  TransformNode* next = child->node->nextSibling;
  (previous != nullptr ? previous->node->nextSibling : node->firstChild) = next;
  (next != nullptr ? next->entity->previousSibling : lastChild) = previous;
  child->previousSibling = nullptr;
  child->node->nextSibling = nullptr;
  child->node->parent = nullptr;
  --childCount;
}

void Entity::LinkLast(Entity* child) {
  system->Versions().Settle();
  (lastChild != nullptr ? lastChild->node->nextSibling : node->firstChild) = child->node;
  child->previousSibling = lastChild;
  child->node->nextSibling = nullptr;
  child->node->parent = node;
  lastChild = child;
  ++childCount;
}

void Entity::LinkBefore(Entity* child, Entity* next) {
  system->Versions().Settle();
  Entity* previous = next->previousSibling;
  (previous != nullptr ? previous->node->nextSibling : node->firstChild) = child->node;
  child->previousSibling = previous;
  child->node->nextSibling = next->node;
  child->node->parent = node;
  next->previousSibling = child;
  ++childCount;
}

void Entity::AttachChild(Entity* child) {
  if (child->node->parent == node) {
    return;
  }
  child->RemoveFromParent();
  LinkLast(child);
  child->PropagateMarkDirty(true);
}

void Entity::InsertChildAt(Entity* child, uint32_t index) {
  child->RemoveFromParent();
  if (index < childCount) {
    LinkBefore(child, children()[index]);
  } else {
    LinkLast(child);
  }
  child->PropagateMarkDirty(true);
}

void Entity::RemoveFromParent() {
  Entity* current = parent();
  if (current != nullptr) {
    current->Unlink(this);
  }
}

void Entity::Reset() {
  UnbindFromBone();
  while (!boundEntities.empty()) {
    boundEntities.front()->UnbindFromBone();
  }
  RemoveFromParent();
  node->worldVersion = 0;
  node->SetDirtyState(kDirtySelf);
  node->active = 1;
  name.clear();
}

void Entity::ResetSubtree() {
  Reset();
  // By a stack of its own, since trees may be as deep as there are entities, and a reset takes the
  // link by which one could climb back.
  std::vector<Entity*> path = {this};
  while (!path.empty()) {
    Entity* child = path.back()->lastChild;
    if (child == nullptr) {
      path.pop_back();
    } else {
      child->Reset();
      path.push_back(child);
    }
  }
}

void Entity::BindToBone(Entity* bone) {
  if (boundTo == bone) {
    return;
  }
  UnbindFromBone();
  // Kept on purpose: only bindings are followed, so a cycle that closes through a parent link is
  // not seen, and a refused binding leaves the entity without its old one.
  for (const Entity* link = bone; link != nullptr; link = link->boundTo) {
    if (link == this) {
      NQ_LOG("[NQ_WARN][Engine]: ", "Cycle Binding Detected, bind: %d to bone: %d\n",
             static_cast<int>(handle), static_cast<int>(bone->handle));
      return;
    }
  }
  boundTo = bone;
  std::vector<Entity*>& bound = bone->boundEntities;
  bound.insert(std::lower_bound(bound.begin(), bound.end(), this, std::less<>()), this);
  bone->node->hasBoundEntities = 1;
}

void Entity::UnbindFromBone() {
  if (boundTo == nullptr) {
    return;
  }
  std::vector<Entity*>& bound = boundTo->boundEntities;
  bound.erase(std::lower_bound(bound.begin(), bound.end(), this, std::less<>()));
  boundTo->node->hasBoundEntities = bound.empty() ? 0 : 1;
  boundTo = nullptr;
}

void Entity::PropagateMarkDirty(bool deep) {
  node->SetDirtyState(kDirtySelf);
  TransformNode* ancestor = node->parent;
  while (ancestor != nullptr && ancestor->MarkBelow()) {
    ancestor = ancestor->parent;
  }
  if (deep) {
    MarkSubtreeDirty();
  }
}

void Entity::MarkSubtreeDirty() {
  TransformNode* current = node;
  size_t depth = 0;
  TransformNode* next = current->firstChild;
  for (;;) {
    // `next` is the node to look at: a first child one level below `current`, or a sibling.
    while (next == nullptr) {
      if (depth == 0) {
        return;
      }
      next = current->nextSibling;
      current = current->parent;
      --depth;
    }
    if (next->DirtyState() == kDirtySelf) {
      next = next->nextSibling;
      continue;
    }
    next->SetDirtyState(kDirtySelf);
    current = next;
    ++depth;
    next = current->firstChild;
  }
}

void Entity::Clean() {
  Reset();
  while (lastChild != nullptr) {
    Unlink(lastChild);
  }
  std::string().swap(name);
  std::vector<Entity*>().swap(boundEntities);
}

}  // namespace nq::engine
