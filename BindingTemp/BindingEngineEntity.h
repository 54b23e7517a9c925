// JavaScript class "EngineEntity": a batch of entities.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEENTITY_H_
#define NQ_BINDINGTEMP_BINDINGENGINEENTITY_H_

#include <cstdint>
#include <string>

#include "BindingTemp/BindingEngineBase.h"
#include "Engine/Entity/EntityWorldAccess.h"
#include "Engine/Entity/IEntity.h"

namespace nq::engine {

// Owns the batch: releases it when the JavaScript object has been collected. For peers of the
// binding layer it also implements IEntity, returned by QueryInterface. Script thread only.
class BindingEngineEntity final : public IEntity, public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // Creates the batch; a rejected count leaves `info` all zero.
  BindingEngineEntity(EngineCore* core, bool isThreeD, uint32_t count);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineEntity(const vx::CallbackInfo& info);
  ~BindingEngineEntity() override;

  // Installs the class in the calling thread.
  static void Register();

  const char* ClassLabel() override { return "\"EngineEntity\""; }

  // The IEntity sub-object for the name of IEntity's type record, otherwise null.
  void* QueryInterface(const std::string& typeName) override;

  uint32_t getEntityVersion(uint32_t handle) override { return access.getEntityVersion(handle); }
  const char* getEntityName(uint32_t handle) override { return access.getEntityName(handle); }
  Vector3 getWorldPosition(uint32_t handle) override { return access.getWorldPosition(handle); }
  Quaternion getWorldRotation(uint32_t handle) override { return access.getWorldRotation(handle); }
  void setWorldPosition(float x, float y, float z, uint32_t handle, bool immediately) override {
    access.setWorldPosition(x, y, z, handle, immediately);
  }
  void setWorldRotation(float x, float y, float z, float w, uint32_t handle,
                        bool immediately) override {
    access.setWorldRotation(x, y, z, w, handle, immediately);
  }
  Vector3 getWorldScale(uint32_t handle) override { return access.getWorldScale(handle); }

 private:
  EntityWorldAccess access;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEENTITY_H_
