// The implementation of IEntity.
#ifndef NQ_ENGINE_ENTITY_ENTITYWORLDACCESS_H_
#define NQ_ENGINE_ENTITY_ENTITYWORLDACCESS_H_

#include "Engine/Entity/IEntity.h"

namespace nq::engine {

class EngineCore;
class Entity3D;

// IEntity over the entities of one engine. Keeps a plain pointer to the core: the owner of this
// object holds a reference on it.
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
