// Links, bone bindings and dirty marks of entities. The passes over matrices are in
// WorldTransform.cpp.
#include "Engine/Entity/Entity.h"

#include <algorithm>
#include <functional>

#include "Common/Def/Log.h"
#include "Common/Def/Platform.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

Entity::Entity(EntitySystem* system, uint32_t handle)
    : handle(handle), system(system), tree(&system->Tree()) {}

Entity::~Entity() {
  NQ_TRAP();
}

uint32_t Entity::worldVersion() const {
  return tree->Batch(handle).worldVersions[HandleElement(handle)];
}

uint32_t Entity::localVersion() const {
  return system->Versions().Version(handle);
}

uint8_t* Entity::sharedRecord() const {
  return tree->SharedRecord(handle);
}

void Entity::BumpLocalVersion() {
  system->Versions().Bump(handle);
}

void Entity::Unlink(Entity* child) {
  system->Versions().Settle();
  TransformLinks& childLinks = child->links();
  const uint32_t previous = child->previousSibling;
  const uint32_t next = childLinks.nextSibling;
  (previous != 0 ? tree->Links(previous).nextSibling : links().firstChild) = next;
  (next != 0 ? tree->EntityOf(next)->previousSibling : lastChild) = previous;
  child->previousSibling = 0;
  childLinks.nextSibling = 0;
  childLinks.parent = 0;
  --childCount;
}

void Entity::LinkLast(Entity* child) {
  system->Versions().Settle();
  (lastChild != 0 ? tree->Links(lastChild).nextSibling : links().firstChild) = child->handle;
  child->previousSibling = lastChild;
  child->links().nextSibling = 0;
  child->links().parent = handle;
  lastChild = child->handle;
  ++childCount;
}

void Entity::LinkBefore(Entity* child, Entity* next) {
  system->Versions().Settle();
  const uint32_t previous = next->previousSibling;
  (previous != 0 ? tree->Links(previous).nextSibling : links().firstChild) = child->handle;
  child->previousSibling = previous;
  child->links().nextSibling = next->handle;
  child->links().parent = handle;
  next->previousSibling = child->handle;
  ++childCount;
}

void Entity::AttachChild(Entity* child) {
  if (child->links().parent == handle) {
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
  system->Passes().CountBound(-static_cast<int32_t>(boundEntities.size()));
  // All at once: erasing them one by one would be quadratic.
  for (Entity* bound : boundEntities) {
    bound->boundTo = nullptr;
  }
  boundEntities.clear();
  links().hasBoundEntities = 0;
  RemoveFromParent();
  tree->Batch(handle).worldVersions[HandleElement(handle)] = 0;
  tree->ResetMark(handle);
  name.clear();
}

void Entity::ResetSubtree() {
  Reset();
  // Iterative, with an explicit stack: trees may be as deep as there are entities. Climbing by
  // parent links is not possible, since a reset clears them.
  std::vector<Entity*> path = {this};
  while (!path.empty()) {
    Entity* child = EntityOrNull(path.back()->lastChild);
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
  // not detected, and a rejected binding also removes the old one. Programs rely on which bindings
  // are accepted.
  const Entity* link = bone;
  do {
    if (link == this) {
      NQ_LOG("[NQ_WARN][Engine]: ", "Cycle Binding Detected, bind: %d to bone: %d\n",
             static_cast<int>(handle), static_cast<int>(bone->handle));
      return;
    }
    link = link->boundTo;
  } while (link != nullptr);
  boundTo = bone;
  std::vector<Entity*>& bound = bone->boundEntities;
  bound.insert(std::lower_bound(bound.begin(), bound.end(), this, std::less<>()), this);
  bone->links().hasBoundEntities = 1;
  system->Passes().CountBound(1);
}

void Entity::UnbindFromBone() {
  if (boundTo == nullptr) {
    return;
  }
  std::vector<Entity*>& bound = boundTo->boundEntities;
  bound.erase(std::lower_bound(bound.begin(), bound.end(), this, std::less<>()));
  boundTo->links().hasBoundEntities = bound.empty() ? 0 : 1;
  boundTo = nullptr;
  system->Passes().CountBound(-1);
}

void Entity::SetActive(bool value) {
  tree->SetActive(handle, value);
}

void Entity::Activate(bool deep) {
  tree->Activate(handle, deep);
}

void Entity::PropagateMarkDirty(bool deep) {
  tree->MarkDirty(handle, deep);
}

void Entity::MarkSubtreeDirty() {
  tree->MarkOnlyBelow(handle);
}

void Entity::Clean() {
  Reset();
  while (lastChild != 0) {
    Unlink(tree->EntityOf(lastChild));
  }
  std::string().swap(name);
  std::vector<Entity*>().swap(boundEntities);
}

}  // namespace nq::engine
