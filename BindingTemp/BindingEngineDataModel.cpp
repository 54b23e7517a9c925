// Creation and release of data models by JavaScript.
#include "BindingTemp/BindingEngineDataModel.h"

#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

namespace {

// The properties of one kind of data model.
struct DataModelKind {
  uint32_t kind;
  uint32_t (EngineCore::*create)(const uint8_t* data, uint32_t size);
  void (EngineCore::*release)(uint32_t handle);
};

constexpr DataModelKind kDataModelKinds[] = {
    {kClipModelKind, &EngineCore::CreateAnimationClipModel, &EngineCore::ReleaseAnimationClipModel},
    {kBonesModelKind, &EngineCore::CreateSkeletonBonesInverseModel,
     &EngineCore::ReleaseSkeletonBonesInverseModel},
};

// The entry of a kind, or null if there is no such kind.
const DataModelKind* FindDataModelKind(uint32_t kind) {
  for (const DataModelKind& entry : kDataModelKinds) {
    if (entry.kind == kind) {
      return &entry;
    }
  }
  return nullptr;
}

}  // namespace

BindingEngineDataModel::BindingEngineDataModel(EngineCore* core, uint32_t kind, const uint8_t* data,
                                               uint32_t size)
    : BindingEngineBase(core), kind(kind) {
  const DataModelKind* entry = FindDataModelKind(kind);
  if (entry != nullptr) {
    info.handle = (core->*entry->create)(data, size);
  }
}

BindingEngineDataModel::~BindingEngineDataModel() {
  const DataModelKind* entry = FindDataModelKind(kind);
  if (entry != nullptr) {
    (core->*entry->release)(info.handle);
  }
  if (core->Runtime()->TracksObjects()) {
    core->Runtime()->UncountObject(ClassLabel());
  }
}

void BindingEngineDataModel::Register() {
  vx::ClassTemplateBuilder<BindingEngineDataModel> builder;
  builder.Inherit<vx::BindingBase>();
  builder.Install("EngineDataModel");
}

}  // namespace nq::engine
