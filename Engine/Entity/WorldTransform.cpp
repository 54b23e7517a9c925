// The passes that turn what script wrote into matrices.
//
// Trees may be as deep as there are entities, so every walk goes by links and a count of levels,
// never by recursion. Children are visited in list order, ahead of their parents' siblings: that
// order is the order in which bound entities enter the dirty list.
#include <cstring>
#include <vector>

#include "Common/Def/Assert.h"
#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

void BuildLocalMatrix(TransformNode* node) {
  if (node->isThreeD != 0) {
    Entity3D::BuildLocalMatrix(node);
  } else {
    Entity2D::BuildLocalMatrix(node);
  }
}

void ComputeWorldMatrix(TransformNode* node) {
  if (node->parent != nullptr) {
    multiplyMatrix4(node->parent->worldMatrix, node->localMatrix, node->worldMatrix);
  } else {
    std::memcpy(node->worldMatrix, node->localMatrix, sizeof(node->worldMatrix));
  }
  ++node->worldVersion;
  if (node->isThreeD != 0) {
    Entity3D::PublishWorldMatrix(node);
  } else {
    Entity2D::PublishWorldMatrix(node);
  }
  if (node->hasBoundEntities != 0) {
    node->entity->UpdateBoundEntities();
  }
}

// Walks `top` and all below it in preorder. `visit` returns whether to go on to the node's
// children. A walk deeper than there are entities runs around a parent cycle.
template <typename Visit>
void WalkSubtree(TransformNode* top, const EntitySystem* system, Visit visit) {
  const size_t maxDepth = system->LiveEntityCount();
  size_t depth = 0;
  TransformNode* node = top;
  for (;;) {
    if (visit(node) && node->firstChild != nullptr) {
      node = node->firstChild;
      if (++depth > maxDepth) {
        EntitySystem::FailOnParentCycle(node->entity);
      }
      continue;
    }
    while (depth != 0 && node->nextSibling == nullptr) {
      node = node->parent;
      --depth;
    }
    if (depth == 0) {
      return;
    }
    node = node->nextSibling;
  }
}

void UpdateWorldSubtreeOf(TransformNode* top, const EntitySystem* system) {
  WalkSubtree(top, system, [](TransformNode* node) {
    if (node->active == 0) {
      return false;
    }
    node->SetDirtyState(kDirtyClean);
    ComputeWorldMatrix(node);
    return true;
  });
}

void UpdateTreeOf(TransformNode* top, const EntitySystem* system) {
  WalkSubtree(top, system, [system](TransformNode* node) {
    const uint32_t state = node->DirtyState();
    if (state == kDirtyClean || node->active == 0) {
      return false;
    }
    if (state == kDirtySelf) {
      UpdateWorldSubtreeOf(node, system);
      return false;
    }
    node->SetDirtyState(kDirtyClean);
    return true;
  });
}

}  // namespace

void EntitySystem::FailOnParentCycle(const Entity* entity) {
  NQ_LOG("[NQ_FATAL][Engine]: ", "Parent cycle detected, entity: %d\n",
         static_cast<int>(entity->handle));
  FailAssertion("0", "Engine/Entity/EntitySystem", __LINE__);
}

void Entity::UpdateTree() {
  UpdateTreeOf(node, system);
}

void Entity::UpdateWorldSubtree() {
  UpdateWorldSubtreeOf(node, system);
}

void Entity::RefreshChain() {
  if (node->active == 0 || node->DirtyState() != kDirtySelf) {
    return;
  }
  std::vector<TransformNode*> chain = {node};
  for (TransformNode* ancestor = node->parent; ancestor != nullptr; ancestor = ancestor->parent) {
    if (ancestor->active == 0) {
      return;
    }
    if (ancestor->DirtyState() != kDirtySelf) {
      break;
    }
    chain.push_back(ancestor);
    if (chain.size() > system->LiveEntityCount()) {
      EntitySystem::FailOnParentCycle(this);
    }
  }
  while (!chain.empty()) {
    TransformNode* next = chain.back();
    chain.pop_back();
    BuildLocalMatrix(next);
    // Children are not touched here and are still to be visited by the next world pass.
    next->SetDirtyState(kDirtyBelow);
    ComputeWorldMatrix(next);
  }
}

void EntitySystem::RefreshWorldTransform() {
  RunEntityCommands(false);
  SyncLocalTransform();
  MarkDirtyEntities(false);
  dirtyEntities.Clear();
  for (Entity* root : roots) {
    root->UpdateTree();
  }
}

void EntitySystem::RefreshEntity(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity == nullptr) {
    return;
  }
  RunEntityCommands(true);
  SyncLocalTransform();
  MarkDirtyEntities(true);
  dirtyEntities.Clear();
  entity->RefreshChain();
}

void EntitySystem::SyncLocalTransform() {
  const uint32_t n = dirtyEntities.Count();
  if (n == 0) {
    return;
  }
  if (n >= workerCount * kMinDirtyEntriesPerWorker) {
    const uint32_t chunk = n / workerCount;
    Task tasks[kFirstPoolThreads];
    for (uint32_t i = 0; i < workerCount; ++i) {
      const uint32_t start = i * chunk;
      const uint32_t count = i + 1 < workerCount ? chunk : n - start;
      tasks[i] = Task([this, start, count] { SyncDirtyRange(start, count); });
    }
    workerPool->PostAll(tasks, workerCount);
    workerPool->WaitIdle();
  } else {
    SyncDirtyRange(0, n);
  }
  for (uint32_t i = 1; i <= n; ++i) {
    TransformNode* node = FindNode(dirtyEntities.Entry(i));
    if (node != nullptr) {
      versions.Bump(node);
    }
  }
}

void EntitySystem::SyncDirtyRange(uint32_t start, uint32_t count) {
  for (uint32_t i = start + 1; i <= start + count; ++i) {
    TransformNode* node = FindNode(dirtyEntities.Entry(i));
    if (node != nullptr) {
      BuildLocalMatrix(node);
    }
  }
}

void EntitySystem::MarkDirtyEntities(bool deep) {
  const uint32_t n = dirtyEntities.Count();
  for (uint32_t i = 1; i <= n; ++i) {
    TransformNode* node = FindNode(dirtyEntities.Entry(i));
    if (node != nullptr) {
      node->entity->PropagateMarkDirty(deep);
    }
  }
}

}  // namespace nq::engine
