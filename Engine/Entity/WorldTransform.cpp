// Walks over the tree, and the passes of a frame over the dirty list.
//
// Trees may be as deep as there are entities, so every walk follows links and counts levels, never
// by recursion. Children are visited in list order, before their parents' siblings (preorder):
// bound entities are appended to the dirty list in that order.
#include "Engine/Entity/WorldTransform.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "Common/Def/Assert.h"
#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Common/Def/Platform.h"
#include "Common/Def/WorkerPool.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"

namespace nq::engine {

namespace {

// Prefetch distance in entries of the dirty list: the records, links and matrices of a large scene
// are not in any cache, and a list names them in any order.
constexpr uint32_t kPrefetchEntries = 24;

// The same for world matrices, of which each entry takes more memory.
constexpr uint32_t kPrefetchPaths = 8;

// If there are fewer entities than this per listed one, a frame walks from the roots.
constexpr uint32_t kEntitiesPerListed = 8;

void BuildLocalMatrix(const TransformBatch& batch, uint32_t index) {
  float* local = batch.localMatrices[index].m;
  if (batch.isThreeD) {
    Entity3D::BuildLocalMatrix(batch.SharedRecord(index), local);
  } else {
    Entity2D::BuildLocalMatrix(batch.SharedRecord(index), local);
  }
}

// Computes one world matrix, raises its version, publishes it, and updates the entities that are
// bound to the entity as a bone. `batches` is the tree's table.
inline void ComputeWorldMatrix(const TransformBatch* batches, uint32_t handle) {
  const TransformBatch& batch = batches[HandleSlot(handle)];
  const uint32_t index = HandleElement(handle);
  const TransformLinks& links = batch.links[index];
  const float* local = batch.localMatrices[index].m;
  float* world = batch.worldMatrices[index].m;
  if (links.parent != 0) {
    const TransformBatch& parentBatch = batches[HandleSlot(links.parent)];
    multiplyMatrix4(parentBatch.worldMatrices[HandleElement(links.parent)].m, local, world);
  } else {
    std::memcpy(world, local, sizeof(TransformMatrix));
  }
  ++batch.worldVersions[index];
  uint8_t* record = batch.SharedRecord(index);
  if (batch.isThreeD) {
    Entity3D::PublishWorldMatrix(world, record);
  } else {
    Entity2D::PublishWorldMatrix(world, record);
  }
  if (links.hasBoundEntities != 0) {
    batch.EntityAt(index)->UpdateBoundEntities();
  }
}

// Prefetches the memory that ComputeWorldMatrix uses.
void PrefetchWorldMatrix(const TransformTree& tree, uint32_t handle) {
  const TransformBatch& batch = tree.Batch(handle);
  const uint32_t index = HandleElement(handle);
  const uint32_t parent = batch.links[index].parent;
  if (parent != 0) {
    NQ_PREFETCH(tree.WorldMatrix(parent));
  }
  NQ_PREFETCH(batch.localMatrices[index].m);
  NQ_PREFETCH_FOR_WRITE(batch.worldMatrices[index].m);
  NQ_PREFETCH_FOR_WRITE(batch.worldVersions + index);
  // Approximately both ends of the published matrix, which is the second half of a record.
  const uint8_t* record = batch.SharedRecord(index);
  NQ_PREFETCH_FOR_WRITE(record + batch.sharedStride / 2);
  NQ_PREFETCH_FOR_WRITE(record + batch.sharedStride - 1);
}

// Walks `top` and all its descendants in preorder. `visit` returns whether to descend to the
// children. A walk deeper than the number of entities is on a parent cycle.
template <typename Visit>
inline void WalkSubtree(const TransformTree& tree, uint32_t top, Visit visit) {
  const TransformBatch* const batches = tree.Table();
  const auto linksOf = [batches](uint32_t handle) {
    return &batches[HandleSlot(handle)].links[HandleElement(handle)];
  };
  const size_t maxDepth = tree.EntityCount();
  size_t depth = 0;
  uint32_t handle = top;
  TransformLinks* links = linksOf(handle);
  for (;;) {
    if (visit(batches, handle, links) && links->firstChild != 0) {
      handle = links->firstChild;
      links = linksOf(handle);
      if (++depth > maxDepth) {
        FailOnParentCycle(handle);
      }
      continue;
    }
    while (depth != 0 && links->nextSibling == 0) {
      handle = links->parent;
      links = linksOf(handle);
      --depth;
    }
    if (depth == 0) {
      return;
    }
    // Siblings are mostly adjacent. As a separate branch, that case is predicted, so loading the
    // next links does not wait for these.
    const uint32_t next = links->nextSibling;
    links = next == handle + 1 ? links + 1 : linksOf(next);
    handle = next;
  }
}

void UpdateWorldSubtreeOf(const TransformTree& tree, uint32_t top) {
  WalkSubtree(tree, top, [](const TransformBatch* batches, uint32_t handle, TransformLinks* links) {
    if (!links->IsActive()) {
      return false;
    }
    TransformTree::Clean(links);
    ComputeWorldMatrix(batches, handle);
    return true;
  });
}

void UpdateTreeOf(const TransformTree& tree, uint32_t top) {
  WalkSubtree(tree, top, [&tree](const TransformBatch*, uint32_t handle, TransformLinks* links) {
    const uint8_t state = links->DirtyState();
    if (state == kDirtyClean || !links->IsActive()) {
      return false;
    }
    if (state == kDirtySelf) {
      UpdateWorldSubtreeOf(tree, handle);
      return false;
    }
    TransformTree::Clean(links);
    return true;
  });
}

}  // namespace

void FailOnParentCycle(uint32_t handle) {
  NQ_LOG("[NQ_FATAL][Engine]: ", "Parent cycle detected, entity: %d\n", static_cast<int>(handle));
  FailAssertion("0", "Engine/Entity/WorldTransform", __LINE__);
}

void Entity::UpdateTree() {
  UpdateTreeOf(*tree, handle);
}

void Entity::UpdateWorldSubtree() {
  UpdateWorldSubtreeOf(*tree, handle);
}

void Entity::RefreshChain() {
  if (!active() || dirtyState() != kDirtySelf) {
    return;
  }
  std::vector<Entity*> chain = {this};
  bool allActive = true;
  tree->WalkUp(handle, CycleReport::kStart, [this, &chain, &allActive](uint32_t ancestor) {
    const TransformLinks& links = tree->Links(ancestor);
    allActive = links.IsActive();
    if (!allActive || links.DirtyState() != kDirtySelf) {
      return false;
    }
    chain.push_back(tree->EntityOf(ancestor));
    return true;
  });
  if (!allActive) {
    return;
  }
  while (!chain.empty()) {
    Entity* next = chain.back();
    chain.pop_back();
    next->UpdateLocalMatrix();
    // Children are not computed here; the next world pass still has to visit them.
    TransformTree::LeaveMarkBelow(&next->links());
    ComputeWorldMatrix(tree->Table(), next->handle);
  }
}

void WorldTransform::UsePool(WorkerPool* pool) {
  workerPool = pool;
  workerCount = pool->ThreadCount();
}

void WorldTransform::AddRoot(Entity* entity) {
  tree->MakeRoot(entity->handle);
  roots.push_back(entity);
}

void WorldTransform::RemoveRootsOfBatch(uint32_t key) {
  const auto ofBatch = [key](const Entity* root) { return HandleKey(root->handle) == key; };
  roots.erase(std::remove_if(roots.begin(), roots.end(), ofBatch), roots.end());
}

void WorldTransform::FreeRoots() {
  std::vector<Entity*>().swap(roots);
}

// --- Run by frames

void WorldTransform::SyncAndMark() {
  keepsToPaths = MayKeepToPaths();
  paths.clear();
  SyncAnd([this](uint32_t handle) { MarkPath(handle); });
}

void WorldTransform::ComputeMarked() {
  const uint32_t listed = dirtyEntities->Count();
  dirtyEntities->Clear();
  if (keepsToPaths) {
    UpdatePaths(listed);
  } else {
    UpdateRoots();
  }
}

// The tasks read records and write local matrices. Version bumps and marks touch neither, so the
// script thread does them, the marks by `mark`, while the workers wake up and run.
template <typename Mark>
void WorldTransform::SyncAnd(Mark mark) {
  const uint32_t n = dirtyEntities->Count();
  const bool onWorkers = n >= workerCount * kMinDirtyEntriesPerWorker;
  if (onWorkers) {
    const uint32_t chunk = n / workerCount;
    Task tasks[kFirstPoolThreads];
    for (uint32_t i = 0; i < workerCount; ++i) {
      const uint32_t start = i * chunk;
      const uint32_t count = i + 1 < workerCount ? chunk : n - start;
      tasks[i] = Task([this, start, count] { SyncDirtyRange(start, count); });
    }
    workerPool->PostAll(tasks, workerCount);
  } else {
    SyncDirtyRange(0, n);
  }
  ForEachListed([this, mark](uint32_t handle) {
    versions->Bump(handle);
    mark(handle);
  });
  if (onWorkers) {
    workerPool->WaitIdle();
  }
}

// Calls `visit(handle)` for each entry of the dirty list that names an entity, in order.
template <typename Visit>
void WorldTransform::ForEachListed(Visit visit) const {
  const uint32_t n = dirtyEntities->Count();
  for (uint32_t i = 1; i <= n; ++i) {
    if (i + kPrefetchEntries <= n) {
      const uint32_t ahead = dirtyEntities->Entry(i + kPrefetchEntries);
      if (tree->Contains(ahead)) {
        NQ_PREFETCH_FOR_WRITE(&tree->Links(ahead));
      }
    }
    const uint32_t handle = dirtyEntities->Entry(i);
    if (tree->Contains(handle)) {
      visit(handle);
    }
  }
}

void WorldTransform::SyncDirtyRange(uint32_t start, uint32_t count) {
  const uint32_t last = start + count;
  for (uint32_t i = start + 1; i <= last; ++i) {
    if (i + kPrefetchEntries <= last) {
      const uint32_t ahead = dirtyEntities->Entry(i + kPrefetchEntries);
      if (tree->Contains(ahead)) {
        const TransformBatch& batch = tree->Batch(ahead);
        const uint32_t index = HandleElement(ahead);
        NQ_PREFETCH_FOR_WRITE(batch.localMatrices[index].m);
        NQ_PREFETCH(batch.SharedRecord(index));
        NQ_PREFETCH(batch.SharedRecord(index) + offsetof(Entity3DRecord, worldMatrix) - 1);
      }
    }
    const uint32_t handle = dirtyEntities->Entry(i);
    if (tree->Contains(handle)) {
      BuildLocalMatrix(tree->Batch(handle), HandleElement(handle));
    }
  }
}

// If few of many entities have changed, a walk from the roots spends most of its time skipping
// clean siblings. It can be left out if all marks come from the list: then each marked path ends at
// a listed entity, and computing from the topmost listed ones that are reached from a root, in any
// order, gives the same results. It can't be left out
// - while entities are bound, since they are appended to the dirty list in the order of the walk;
// - if a root has a parent, since walks from two roots then meet.
// If all roots are inactive, it costs nothing: walks from them end at once.
bool WorldTransform::MayKeepToPaths() const {
  return dirtyEntities->Count() <= tree->EntityCount() / kEntitiesPerListed && rootsStandAlone &&
         boundCount == 0 && !tree->HasOtherMarks() &&
         std::any_of(roots.begin(), roots.end(), [](const Entity* root) { return root->active(); });
}

// Records the ancestors that it marks, each after those above it, except for those marked before.
void WorldTransform::MarkPath(uint32_t handle) {
  const auto lowest = static_cast<std::ptrdiff_t>(paths.size());
  tree->MarkListed(handle, &paths);
  std::reverse(paths.begin() + lowest, paths.end());
}

void WorldTransform::UpdateRoots() {
  rootsStandAlone = true;
  for (Entity* root : roots) {
    rootsStandAlone = rootsStandAlone && root->links().parent == 0;
    UpdateTreeOf(*tree, root->handle);
  }
  tree->ForgetOtherMarks();
}

void WorldTransform::UpdatePaths(uint32_t listed) {
  // A parent that the walk would pass through has been cleaned; any other is still marked.
  const auto isReached = [this](const TransformLinks& links) {
    return links.IsActive() &&
           (links.parent == 0 ? links.IsRoot()
                              : tree->Links(links.parent).DirtyState() == kDirtyClean);
  };
  const auto isTop = [this, isReached](uint32_t handle) {
    return tree->Contains(handle) && tree->Links(handle).DirtyState() == kDirtySelf &&
           isReached(tree->Links(handle));
  };
  for (const uint32_t handle : paths) {
    TransformLinks& links = tree->Links(handle);
    if (links.DirtyState() == kDirtyBelow && isReached(links)) {
      TransformTree::Clean(&links);
    }
  }
  for (uint32_t i = 1; i <= listed; ++i) {
    if (i + kPrefetchPaths <= listed && isTop(dirtyEntities->Entry(i + kPrefetchPaths))) {
      PrefetchWorldMatrix(*tree, dirtyEntities->Entry(i + kPrefetchPaths));
    }
    const uint32_t handle = dirtyEntities->Entry(i);
    if (isTop(handle)) {
      UpdateWorldSubtreeOf(*tree, handle);
    }
  }
}

// --- Run by native callers only

void WorldTransform::RefreshEntity(Entity* entity) {
  SyncAnd([this](uint32_t handle) { tree->MarkDirty(handle, true); });
  dirtyEntities->Clear();
  entity->RefreshChain();
}

void WorldTransform::SyncLocalTransform() {
  SyncAnd([](uint32_t) {});
}

void WorldTransform::MarkDirtyEntities(bool deep) {
  ForEachListed([this, deep](uint32_t handle) { tree->MarkDirty(handle, deep); });
}

}  // namespace nq::engine
