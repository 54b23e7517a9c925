// Creation and release of batches of entities by JavaScript.
#include "BindingTemp/BindingEngineEntity.h"

#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

BindingEngineEntity::BindingEngineEntity(EngineCore* core, bool isThreeD, uint32_t count)
    : BindingEngineBase(core), access(core) {
  const int32_t signedCount = static_cast<int32_t>(count);
  info = isThreeD ? core->CreateEntities3D(signedCount) : core->CreateEntities2D(signedCount);
}

BindingEngineEntity::~BindingEngineEntity() {
  core->ReleaseEntities(info.handle);
  if (core->Runtime()->TracksObjects()) {
    core->Runtime()->UncountObject(ClassLabel());
  }
}

void BindingEngineEntity::Register() {
  vx::ClassTemplateBuilder<BindingEngineEntity> builder;
  builder.Inherit<vx::BindingBase>();
  builder.Install("EngineEntity");
}

void* BindingEngineEntity::QueryInterface(const std::string& typeName) {
  if (typeName == vx::internal::type_id<IEntity>()->name) {
    return static_cast<IEntity*>(this);
  }
  return nullptr;
}

}  // namespace nq::engine
