// The transform passes: compute world matrices from what the script wrote.
#ifndef NQ_ENGINE_ENTITY_WORLDTRANSFORM_H_
#define NQ_ENGINE_ENTITY_WORLDTRANSFORM_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/DirtyEntityList.h"
#include "Engine/Entity/LocalVersions.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

class Entity;
class WorkerPool;

// Minimum of dirty entries per worker for building a frame's local matrices in parallel.
constexpr uint32_t kMinDirtyEntriesPerWorker = 8;

// Owns the root list and the state that the passes keep from frame to frame. Works on the tree, the
// versions and the dirty list of its EntitySystem, which outlive it.
//
// Thread safety: script thread, except SyncDirtyRange.
class WorldTransform {
 public:
  WorldTransform(TransformTree* tree, LocalVersions* versions, DirtyEntityList* dirtyEntities)
      : tree(tree), versions(versions), dirtyEntities(dirtyEntities) {}
  WorldTransform(const WorldTransform&) = delete;
  WorldTransform& operator=(const WorldTransform&) = delete;

  // Sets the pool that long lists are distributed over; before the first pass. Not owned.
  void UsePool(WorkerPool* pool);

  // The roots, in order of addition; not unique: an entity that was added twice is walked twice.
  const std::vector<Entity*>& Roots() const { return roots; }
  void AddRoot(Entity* entity);

  // Removes all entries of a batch whose records are about to be freed; or clears the list, at
  // destruction.
  void RemoveRootsOfBatch(uint32_t key);
  void FreeRoots();

  // Adds `change` to the number of entities that are bound to a bone.
  void CountBound(int32_t change) { boundCount += static_cast<uint32_t>(change); }

  // --- Run by a frame after its commands.

  void Refresh() {
    SyncAndMark();
    ComputeMarked();
  }

  // The first half: builds the local matrices of the dirty list, on the workers from 8 entries per
  // worker up. Meanwhile the script thread raises local versions and marks what is listed.
  void SyncAndMark();

  // The second half, right after the first: nothing may be listed, linked or marked in between.
  // Clears the list and computes all that is marked below the roots. Entries appended meanwhile are
  // for the next frame.
  void ComputeMarked();

  // Builds the local matrices of the entries start + 1 to start + count. Any thread.
  void SyncDirtyRange(uint32_t start, uint32_t count);

  // --- Run by native callers only: no frame runs these, and JavaScript can't reach them. Made of
  // the same parts.

  // Updates `entity` with the marked ancestors above it; clears the list.
  void RefreshEntity(Entity* entity);

  // SyncAndMark without the marks.
  void SyncLocalTransform();

  // Marks the entities of the dirty list. A frame with the same list or another may follow.
  void MarkDirtyEntities(bool deep);

 private:
  template <typename Mark>
  void SyncAnd(Mark mark);
  template <typename Visit>
  void ForEachListed(Visit visit) const;

  void MarkPath(TransformLinks* links);
  bool MayKeepToPaths() const;

  // The world pass: over all that is marked below the roots, or over what the first `listed`
  // entries of the dirty list have marked.
  void UpdateRoots();
  void UpdatePaths(uint32_t listed);

  TransformTree* const tree;
  LocalVersions* const versions;
  DirtyEntityList* const dirtyEntities;
  WorkerPool* workerPool = nullptr;
  uint32_t workerCount = 0;

  std::vector<Entity*> roots;
  bool rootsStandAlone = false;  // none had a parent at the last walk from the roots
  uint32_t boundCount = 0;       // entities that are bound to a bone

  // State of the current frame.
  bool keepsToPaths = false;
  std::vector<uint32_t> paths;  // ancestors that MarkPath has marked
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_WORLDTRANSFORM_H_
