// Walks over the tree, and the passes of a frame over the dirty list.
//
// Trees may be as deep as there are entities, so every walk follows links and counts levels, never
// by recursion. Children are visited in list order, before their parents' siblings (preorder):
// bound entities are appended to the dirty list in that order.
#include "Engine/Entity/WorldTransform.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Common/Def/Assert.h"
#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"
#include "Common/Def/Platform.h"
#include "Common/Def/WorkerPool.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/WorldMatrixQueue.h"

namespace nq::engine {

namespace {

// Prefetch distance in entries of the dirty list: the records, links and matrices of a large scene
// are not in any cache, and a list names them in any order.
constexpr uint32_t kPrefetchEntries = 24;

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

// The siblings that a walk has passed on its way down and has yet to visit, with their depths, so
// that it need not climb back to them through links. Only the lowest few are remembered.
class PassedSiblings {
 public:
  struct Sibling {
    uint32_t handle;
    uint32_t depth;
  };

  void Push(Sibling sibling) {
    siblings[end % kCapacity] = sibling;
    ++end;
    if (end - begin > kCapacity) {
      ++begin;
    }
  }

  bool Empty() const { return begin == end; }
  Sibling Pop() {
    --end;
    return siblings[end % kCapacity];
  }

  // True if there have been more than are remembered: the walk must climb to those.
  bool ForgotAny() const { return begin != 0; }

 private:
  static constexpr uint32_t kCapacity = 32;

  Sibling siblings[kCapacity];
  uint32_t begin = 0;  // number of siblings that were forgotten
  uint32_t end = 0;
};

// Walks `top` and all its descendants in preorder. `visit` returns whether to descend to the
// children. A walk deeper than the number of entities is on a parent cycle; what it has queued by
// then is computed before the report.
template <typename Visit>
inline void WalkSubtree(const TransformTree& tree, uint32_t top, WorldMatrixQueue* queue,
                        Visit visit) {
  const TransformBatch* const batches = tree.Table();
  const auto linksOf = [batches](uint32_t handle) {
    return &batches[HandleSlot(handle)].links[HandleElement(handle)];
  };
  const size_t maxDepth = tree.EntityCount();
  uint32_t depth = 0;
  uint32_t handle = top;
  TransformLinks* links = linksOf(handle);
  // Children and siblings are mostly adjacent. As a separate branch, that case is predicted, so
  // loading the next links does not wait for these.
  const auto moveTo = [&](uint32_t next) {
    links = next == handle + 1 ? links + 1 : linksOf(next);
    handle = next;
  };
  PassedSiblings passed;
  for (;;) {
    const uint32_t child = links->firstChild;
    const uint32_t sibling = depth != 0 ? links->nextSibling : 0;
    if (visit(handle, links) && child != 0) {
      if (sibling != 0) {
        NQ_PREFETCH(linksOf(sibling));
        passed.Push({sibling, depth});
      }
      moveTo(child);
      if (++depth > maxDepth) {
        queue->Flush();
        FailOnParentCycle(handle);
      }
    } else if (sibling != 0) {
      moveTo(sibling);
    } else if (!passed.Empty()) {
      const PassedSiblings::Sibling next = passed.Pop();
      depth = next.depth;
      moveTo(next.handle);
    } else if (passed.ForgotAny()) {
      while (depth != 0 && links->nextSibling == 0) {
        moveTo(links->parent);
        --depth;
      }
      if (depth == 0) {
        return;
      }
      moveTo(links->nextSibling);
    } else {
      return;
    }
  }
}

// Queues the world matrices of `top` and of all its descendants that a walk enters.
void UpdateWorldSubtreeOf(const TransformTree& tree, uint32_t top, WorldMatrixQueue* queue) {
  WalkSubtree(tree, top, queue, [queue](uint32_t handle, TransformLinks* links) {
    if (!links->IsActive()) {
      return false;
    }
    TransformTree::Clean(links);
    queue->Add(handle, *links);
    return true;
  });
}

// The same for all that is marked at or below `top`.
void UpdateTreeOf(const TransformTree& tree, uint32_t top, WorldMatrixQueue* queue) {
  WalkSubtree(tree, top, queue, [&tree, queue](uint32_t handle, TransformLinks* links) {
    const uint8_t state = links->DirtyState();
    if (state == kDirtyClean || !links->IsActive()) {
      return false;
    }
    if (state == kDirtySelf) {
      UpdateWorldSubtreeOf(tree, handle, queue);
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
  WorldMatrixQueue queue(*tree);
  UpdateTreeOf(*tree, handle, &queue);
}

void Entity::UpdateWorldSubtree() {
  WorldMatrixQueue queue(*tree);
  UpdateWorldSubtreeOf(*tree, handle, &queue);
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
  WorldMatrixQueue queue(*tree);
  while (!chain.empty()) {
    Entity* next = chain.back();
    chain.pop_back();
    next->UpdateLocalMatrix();
    // Children are not computed here; the next world pass still has to visit them.
    TransformTree::LeaveMarkBelow(&next->links());
    queue.Add(next->handle, next->links());
    queue.Flush();  // the next entity may be bound to this one, which then writes its record
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
  if (keepsToPaths) {
    SyncAnd([this](uint32_t, TransformLinks* links) { MarkPath(links); });
  } else {
    SyncAnd([this](uint32_t, TransformLinks* links) { tree->MarkListed(links, [](uint32_t) {}); });
  }
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
  ForEachListed([this, mark](uint32_t handle, TransformLinks* links) {
    versions->Bump(handle, links);
    mark(handle, links);
  });
  if (onWorkers) {
    workerPool->WaitIdle();
  }
}

// Calls `visit(handle, links)` for each entry of the dirty list that names an entity, in order.
template <typename Visit>
void WorldTransform::ForEachListed(Visit visit) const {
  const TransformTree::Lookup lookup(*tree);
  const uint32_t n = dirtyEntities->Count();
  for (uint32_t i = 1; i <= n; ++i) {
    if (i + kPrefetchEntries <= n) {
      const uint32_t ahead = dirtyEntities->Entry(i + kPrefetchEntries);
      const TransformBatch* const batch = lookup.BatchOf(ahead);
      if (batch != nullptr) {
        NQ_PREFETCH_FOR_WRITE(batch->links + HandleElement(ahead));
      }
    }
    const uint32_t handle = dirtyEntities->Entry(i);
    const TransformBatch* const batch = lookup.BatchOf(handle);
    if (batch != nullptr) {
      visit(handle, batch->links + HandleElement(handle));
    }
  }
}

void WorldTransform::SyncDirtyRange(uint32_t start, uint32_t count) {
  const TransformTree::Lookup lookup(*tree);
  const uint32_t last = start + count;
  for (uint32_t i = start + 1; i <= last; ++i) {
    if (i + kPrefetchEntries <= last) {
      const uint32_t ahead = dirtyEntities->Entry(i + kPrefetchEntries);
      const TransformBatch* const batch = lookup.BatchOf(ahead);
      if (batch != nullptr) {
        const uint32_t index = HandleElement(ahead);
        NQ_PREFETCH_FOR_WRITE(batch->localMatrices[index].m);
        NQ_PREFETCH(batch->SharedRecord(index));
        NQ_PREFETCH(batch->SharedRecord(index) + offsetof(Entity3DRecord, worldMatrix) - 1);
      }
    }
    const uint32_t handle = dirtyEntities->Entry(i);
    const TransformBatch* const batch = lookup.BatchOf(handle);
    if (batch != nullptr) {
      BuildLocalMatrix(*batch, HandleElement(handle));
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
void WorldTransform::MarkPath(TransformLinks* links) {
  const auto lowest = static_cast<std::ptrdiff_t>(paths.size());
  tree->MarkListed(links, [this](uint32_t ancestor) { paths.push_back(ancestor); });
  std::reverse(paths.begin() + lowest, paths.end());
}

void WorldTransform::UpdateRoots() {
  WorldMatrixQueue queue(*tree);
  rootsStandAlone = true;
  for (Entity* root : roots) {
    rootsStandAlone = rootsStandAlone && root->links().parent == 0;
    UpdateTreeOf(*tree, root->handle, &queue);
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
  WorldMatrixQueue queue(*tree);
  for (uint32_t i = 1; i <= listed; ++i) {
    const uint32_t handle = dirtyEntities->Entry(i);
    if (isTop(handle)) {
      UpdateWorldSubtreeOf(*tree, handle, &queue);
    }
  }
}

// --- Run by native callers only

void WorldTransform::RefreshEntity(Entity* entity) {
  SyncAnd([this](uint32_t handle, TransformLinks*) { tree->MarkDirty(handle, true); });
  dirtyEntities->Clear();
  entity->RefreshChain();
}

void WorldTransform::SyncLocalTransform() {
  SyncAnd([](uint32_t, TransformLinks*) {});
}

void WorldTransform::MarkDirtyEntities(bool deep) {
  ForEachListed([this, deep](uint32_t handle, TransformLinks*) { tree->MarkDirty(handle, deep); });
}

}  // namespace nq::engine
