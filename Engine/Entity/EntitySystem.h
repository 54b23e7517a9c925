// Batches of entities, and the two buffers that the script fills every frame.
#ifndef NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_
#define NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_

#include <cstdint>
#include <string>
#include <vector>

#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/MemoryBlock.h"
#include "Engine/Entity/DirtyEntityList.h"
#include "Engine/Entity/EntityPool.h"
#include "Engine/Entity/LocalVersions.h"
#include "Engine/Entity/TransformTree.h"
#include "Engine/Entity/WorldTransform.h"

namespace nq::engine {

class Entity;
class EngineCore;

// Owns all entities of one engine. Operations on handles silently ignore unknown ones.
//
// Thread safety: script thread, except FindEntity and IsRoot, which worker tasks may call while the
// script thread waits for them, and AppendDirtyEntity, which takes a lock.
class EntitySystem {
 public:
  explicit EntitySystem(EngineCore* core);
  virtual ~EntitySystem();
  EntitySystem(const EntitySystem&) = delete;
  EntitySystem& operator=(const EntitySystem&) = delete;

  // A new batch; all zero for a count of 0 or if no handle is left. The shared block reads as
  // zeros: rotation 0, position 0, scale 0. New entities are not roots.
  NativeValueInfo CreateEntities(bool isThreeD, uint32_t count);

  // Releases the whole batch of `handle`. May destroy the core and this system with it.
  void ReleaseEntities(uint32_t handle);

  // The entity of `handle`, or null: no such batch, or a position past its end. Not owned.
  Entity* FindEntity(uint32_t handle) const {
    return tree.Contains(handle) ? tree.EntityOf(handle) : nullptr;
  }

  void SetEntityName(uint32_t handle, const std::string& name);

  // True if the entity is in the root list.
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

  // Runs the command stream in "entityCommands" and sets its length to 0. `deep`: an activated
  // entity marks its descendants too.
  void RunEntityCommands(bool deep);

  // Appends an entity whose shared record native code wrote to the dirty list. Any thread.
  void AppendDirtyEntity(const Entity* entity);

  const MemoryBlock& DirtyEntitiesBlock() const { return dirtyEntitiesBlock; }
  const MemoryBlock& EntityCommandsBlock() const { return entityCommandsBlock; }

  // The transform pass of a frame: runs commands, builds local matrices of the dirty list, marks,
  // and computes the world matrices of all that is marked below the roots. The list is cleared
  // before the world pass; what that pass appends is for the next frame.
  void RefreshWorldTransform();

  // In order of addition; not unique: an entity that was added twice is walked twice.
  const std::vector<Entity*>& rootEntities() const { return worldTransform.Roots(); }

  WorldTransform& Passes() { return worldTransform; }

  LocalVersions& Versions() { return versions; }

  TransformTree& Tree() { return tree; }

  // --- For native callers only: no frame runs these, and JavaScript can't reach them. They are
  // made of the parts of a frame, see WorldTransform.

  // RefreshWorldTransform for one entity and the marked ancestors above it. Does nothing if there
  // is no such entity.
  void RefreshEntity(uint32_t handle);

  // SyncLocalTransform builds the local matrices of the dirty list, on the workers from 8 entries
  // per worker up, and raises local versions. SyncDirtyRange only builds the local matrices of the
  // entries start + 1 to start + count; any thread.
  void SyncLocalTransform() { worldTransform.SyncLocalTransform(); }
  void SyncDirtyRange(uint32_t start, uint32_t count) {
    worldTransform.SyncDirtyRange(start, count);
  }

  // Marks the entities of the dirty list for the world pass.
  void MarkDirtyEntities(bool deep) { worldTransform.MarkDirtyEntities(deep); }

  // Clears the dirty list, and returns whether it holds anything.
  void ClearDirtyEntities() { dirtyEntities.Clear(); }
  bool HasDirtyEntities() const { return dirtyEntities.NotEmpty(); }

  EngineCore* const core;  // not reference-counted

 private:
  TransformTree tree;
  LocalVersions versions;
  DirtyEntityList dirtyEntities;  // holds `dirtyLock`
  WorldTransform worldTransform;  // holds the roots
  HandlerAllocator<EntityPool> entityPools;
  MemoryBlock dirtyEntitiesBlock;
  MemoryBlock entityCommandsBlock;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYSYSTEM_H_
