// Batches of entities, the roots of the scene, and the two buffers that script fills for a frame.
#ifndef NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_
#define NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_

#include <cstdint>
#include <string>
#include <vector>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryBlock.h"
#include "Common/Def/WorkerPool.h"
#include "Engine/Entity/DirtyEntityList.h"
#include "Engine/Entity/EntityPool.h"
#include "Engine/Entity/LocalVersions.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

class Entity;
class EngineCore;

// Dirty entries per worker from which the local matrices of a frame are built in parallel.
constexpr uint32_t kMinDirtyEntriesPerWorker = 8;

// Owns all entities of one engine. Operations on handles ignore unknown ones, silently.
//
// Thread safety: script thread, but for FindEntity and IsRoot, which worker tasks may call while
// the script thread waits for them, and AppendDirtyEntity, which takes a lock.
class EntitySystem {
 public:
  explicit EntitySystem(EngineCore* core);
  virtual ~EntitySystem();
  EntitySystem(const EntitySystem&) = delete;
  EntitySystem& operator=(const EntitySystem&) = delete;

  // A new batch; all zero for a count of 0 and when no handle is left. The shared block reads as
  // zeros: rotation 0, position 0, scale 0. New entities are not roots.
  NativeValueInfo CreateEntities(bool isThreeD, uint32_t count);

  // Releases the whole batch of `handle`. May end the core and this system with it.
  void ReleaseEntities(uint32_t handle);

  // The entity of `handle`, or null: no such batch, or a position past its end. Not owned.
  Entity* FindEntity(uint32_t handle) const {
    return tree.Contains(handle) ? tree.EntityOf(handle) : nullptr;
  }

  void SetEntityName(uint32_t handle, const std::string& name);

  // True if the entity stands in the root list.
  bool IsRoot(const Entity* entity) const;

  // The link operations of the command stream, with its checks. `deep` is as in RunEntityCommands.
  void AddRoot(uint32_t handle);
  void AddChild(uint32_t parent, uint32_t child);
  void InsertChild(uint32_t parent, uint32_t child, uint32_t index);
  void RemoveFromParent(uint32_t handle);
  void ResetSubtree(uint32_t handle);
  void BindToBone(uint32_t entity, uint32_t bone);
  void UnbindFromBone(uint32_t handle);
  void Activate(uint32_t handle, bool deep);
  void Deactivate(uint32_t handle);

  // Runs the command stream in "entityCommands" and sets its length to 0. `deep` tells whether an
  // activated entity marks its descendants too.
  void RunEntityCommands(bool deep);

  // Lists an entity whose shared record native code wrote. Any thread.
  void AppendDirtyEntity(const Entity* entity);

  // For native callers: empties the dirty list, and asks whether it holds anything.
  void ClearDirtyEntities() { dirtyEntities.Clear(); }
  bool HasDirtyEntities() const { return dirtyEntities.NotEmpty(); }

  const MemoryBlock& DirtyEntitiesBlock() const { return dirtyEntitiesBlock; }
  const MemoryBlock& EntityCommandsBlock() const { return entityCommandsBlock; }

  // The whole step of a frame: commands, local matrices of the dirty list, marks, and the world
  // matrices of all that is marked below the roots. The list is emptied before the world pass; what
  // that pass appends stays for the next frame.
  void RefreshWorldTransform();

  // The same for one entity and the marked ancestors above it. Nothing runs if there is no such
  // entity.
  void RefreshEntity(uint32_t handle);

  // Builds the local matrices of the dirty list, on the workers from 8 entries per worker up, and
  // raises local versions.
  void SyncLocalTransform();

  // Builds the local matrices of the entries start + 1 to start + count. Any thread.
  void SyncDirtyRange(uint32_t start, uint32_t count);

  // Marks the entities of the dirty list for the world pass.
  void MarkDirtyEntities(bool deep);

  // In order of addition; not unique: an entity that was added twice is walked twice.
  const std::vector<Entity*>& rootEntities() const { return roots; }

  // Removes all root entries of a batch whose records are about to go.
  void RemoveRootsOfBatch(uint32_t key);

  // Keeps count of the entities that are bound to a bone.
  void CountBound(int32_t change) { boundCount += static_cast<uint32_t>(change); }

  LocalVersions& Versions() { return versions; }

  TransformTree& Tree() { return tree; }

  EngineCore* const core;  // not counted

 private:
  // SyncLocalTransform, and `mark` of each listed entity on the calling thread while the workers
  // are at it.
  template <typename Mark>
  void SyncLocalTransformAnd(Mark mark);

  // Asks for the links of the entity of an entry of the dirty list, if it is not past the last.
  void PrefetchLinks(uint32_t entry, uint32_t last) const;

  // The world pass: over all that is marked below the roots, or over what the first `listed`
  // entries of the dirty list have marked.
  void UpdateRoots();
  bool MayKeepToPaths(uint32_t listed) const;
  void MarkPath(uint32_t handle);
  void UpdatePaths(uint32_t listed);

  TransformTree tree;
  LocalVersions versions;
  HandlerAllocator<EntityPool> entityPools;
  std::vector<Entity*> roots;
  bool rootsStandAlone = false;   // none had a parent at the last walk from the roots
  uint32_t boundCount = 0;        // entities that are bound to a bone
  std::vector<uint32_t> paths;    // ancestors that MarkPath has marked
  DirtyEntityList dirtyEntities;  // with `dirtyLock`
  MemoryBlock dirtyEntitiesBlock;
  MemoryBlock entityCommandsBlock;
  WorkerPool* const workerPool;  // the runtime's first pool; not owned
  const uint32_t workerCount;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_
