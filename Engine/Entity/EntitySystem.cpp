// Creation and release of batches, look-up, and link operations by handle.
#include "Engine/Entity/EntitySystem.h"

#include "Common/Def/EngineRuntime.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"

namespace nq::engine {

EntitySystem::EntitySystem(EngineCore* core)
    : core(core),
      versions(&tree),
      worldTransform(&tree, &versions, &dirtyEntities),
      entityPools(core),
      dirtyEntitiesBlock(core->Runtime()->Allocate(kSharedListBytes)),
      entityCommandsBlock(core->Runtime()->Allocate(kSharedListBytes)) {
  // After the blocks are allocated: the first use of the pool starts its threads.
  worldTransform.UsePool(core->Runtime()->FirstPool());
  dirtyEntities.Attach(dirtyEntitiesBlock.pointer);
}

EntitySystem::~EntitySystem() {
  EngineRuntime* runtime = core->Runtime();
  runtime->Release(dirtyEntitiesBlock);
  runtime->Release(entityCommandsBlock);
  worldTransform.FreeRoots();
  entityPools.ReleaseAll();
}

NativeValueInfo EntitySystem::CreateEntities(bool isThreeD, uint32_t count) {
  if (count == 0) {
    return NativeValueInfo();
  }
  EntityPool* pool = entityPools.Allocate();
  if (pool == nullptr) {
    return NativeValueInfo();
  }
  pool->CreateEntities(this, isThreeD, count);
  return pool->Info();
}

// May release the last value of the core, which destroys the core and this system.
void EntitySystem::ReleaseEntities(uint32_t handle) {
  entityPools.Release(handle);
}

void EntitySystem::SetEntityName(uint32_t handle, const std::string& name) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr) {
    entity->name = name;
  }
}

bool EntitySystem::IsRoot(const Entity* entity) const {
  return entity->links().IsRoot();
}

void EntitySystem::AddRoot(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr && entity->parent() == nullptr) {
    worldTransform.AddRoot(entity);
  }
}

void EntitySystem::AddChild(uint32_t parent, uint32_t child) {
  Entity* parentEntity = FindEntity(parent);
  Entity* childEntity = FindEntity(child);
  if (parentEntity != nullptr && childEntity != nullptr && parentEntity != childEntity &&
      parentEntity->isThreeD() == childEntity->isThreeD()) {
    parentEntity->AttachChild(childEntity);
  }
}

// Kept on purpose: unlike AddChild, this links entities of different kinds if asked to. Programs
// rely on which links are accepted.
void EntitySystem::InsertChild(uint32_t parent, uint32_t child, uint32_t index) {
  Entity* parentEntity = FindEntity(parent);
  Entity* childEntity = FindEntity(child);
  if (parentEntity != nullptr && childEntity != nullptr && parentEntity != childEntity) {
    parentEntity->InsertChildAt(childEntity, index);
  }
}

void EntitySystem::RemoveFromParent(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr) {
    entity->RemoveFromParent();
  }
}

void EntitySystem::ResetSubtree(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr) {
    entity->ResetSubtree();
  }
}

void EntitySystem::BindToBone(uint32_t entity, uint32_t bone) {
  Entity* boundEntity = FindEntity(entity);
  Entity* boneEntity = FindEntity(bone);
  if (boundEntity != nullptr && boneEntity != nullptr) {
    boundEntity->BindToBone(boneEntity);
  }
}

void EntitySystem::UnbindFromBone(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr) {
    entity->UnbindFromBone();
  }
}

void EntitySystem::Activate(uint32_t handle, bool deep) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr && !entity->active()) {
    entity->Activate(deep);
  }
}

void EntitySystem::Deactivate(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity != nullptr) {
    entity->SetActive(false);
  }
}

void EntitySystem::RefreshWorldTransform() {
  RunEntityCommands(false);
  worldTransform.Refresh();
}

void EntitySystem::RefreshEntity(uint32_t handle) {
  Entity* entity = FindEntity(handle);
  if (entity == nullptr) {
    return;
  }
  RunEntityCommands(true);
  worldTransform.RefreshEntity(entity);
}

void EntitySystem::AppendDirtyEntity(const Entity* entity) {
  dirtyEntities.Append(entity->handle);
}

}  // namespace nq::engine
