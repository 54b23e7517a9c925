// The operations behind IEntity.
#ifndef NQ_ENGINE_ENTITY_ENTITYWORLDACCESS_H_
#define NQ_ENGINE_ENTITY_ENTITYWORLDACCESS_H_

#include "Engine/Entity/IEntity.h"

namespace nq::engine {

class EngineCore;
class Entity3D;

// IEntity over the entities of one engine. Keeps the core by plain pointer: whoever holds this
// holds the core.
class EntityWorldAccess final : public IEntity {
 public:
  explicit EntityWorldAccess(EngineCore* core) : core(core) {}

  uint32_t getEntityVersion(uint32_t handle) override;
  const char* getEntityName(uint32_t handle) override;
  Vector3 getWorldPosition(uint32_t handle) override;
  Quaternion getWorldRotation(uint32_t handle) override;
  void setWorldPosition(float x, float y, float z, uint32_t handle, bool immediately) override;
  void setWorldRotation(float x, float y, float z, float w, uint32_t handle,
                        bool immediately) override;
  Vector3 getWorldScale(uint32_t handle) override;

 private:
  // The 3D entity of `handle`, or null.
  Entity3D* Find(uint32_t handle) const;

  EngineCore* const core;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYWORLDACCESS_H_
