// Class, buffers and entity methods of "Engine".
#include "BindingTemp/BindingEngine.h"

#include <cstdlib>
#include <string>

#include "BindingTemp/BindingEngineAnimationClipBinding.h"
#include "BindingTemp/BindingEngineAnimatorController.h"
#include "BindingTemp/BindingEngineBase.h"
#include "BindingTemp/BindingEngineComponent.h"
#include "BindingTemp/BindingEngineDataModel.h"
#include "BindingTemp/BindingEngineEntity.h"
#include "BindingTemp/BindingEngineMatrixFlowCommandBuffer.h"
#include "BindingTemp/CreateObject.h"
#include "BindingTemp/PublishSegment.h"
#include "Common/Def/Assert.h"
#include "Common/Def/EngineRuntime.h"

namespace nq::engine {

BindingEngine::BindingEngine(EngineRuntime* runtime)
    : core(new EngineCore(runtime)), runtime(runtime) {}

BindingEngine::~BindingEngine() {
  core->DropReference();
  std::free(cullingResultBuffer);
}

void BindingEngine::Register() {
  vx::ClassTemplateBuilder<BindingEngine> builder;
  builder.Inherit<BindingEngineBase>();
  builder.AddMethod("createEntity", vx::Callback<BindingEngine, createEntityFunc>);
  builder.AddMethod("createComponent", vx::Callback<BindingEngine, createComponentFunc>);
  builder.AddMethod("createDataModel", vx::Callback<BindingEngine, createDataModelFunc>);
  builder.AddMethod("createAnimationClipBinding",
                    vx::Callback<BindingEngine, createAnimationClipBindingFunc>);
  builder.AddMethod("createAnimatorControllerModel",
                    vx::Callback<BindingEngine, createAnimatorControllerModelFunc>);
  builder.AddMethod("createAnimatorControllerStateModel",
                    vx::Callback<BindingEngine, createAnimatorControllerStateModelFunc>);
  builder.AddMethod("setEntityName", vx::Callback<BindingEngine, setEntityNameFunc>);
  builder.AddMethod("refreshWorldTransform",
                    vx::UncheckedCallback<BindingEngine, refreshWorldTransformFunc>);
  builder.AddMethod("cullWithCamera", vx::Callback<BindingEngine, frustumCullingFunc>);
  builder.AddMethod("frustumCulling", vx::Callback<BindingEngine, frustumCullingFunc>);
  builder.AddMethod("frustumCullingV2", vx::Callback<BindingEngine, frustumCullingV2Func>);
  builder.AddMethod("orthoCulling", vx::Callback<BindingEngine, orthoCullingFunc>);
  builder.AddMethod("orthoCullingV2", vx::Callback<BindingEngine, orthoCullingV2Func>);
  builder.AddMethod("updateAnimator", vx::Callback<BindingEngine, updateAnimatorFunc>);
  builder.AddMethod("updateAnimators", vx::Callback<BindingEngine, updateAnimatorsFunc>);
  builder.AddMethod("updateAnimatorControllers",
                    vx::Callback<BindingEngine, updateAnimatorControllersFunc>);
  builder.AddMethod("updateSkinningMatrix", vx::Callback<BindingEngine, updateSkinningMatrixFunc>);
  builder.AddMethod("updateSkinningMatrices",
                    vx::Callback<BindingEngine, updateSkinningMatricesFunc>);
#ifdef NQ_SCRIPT_MATRIXFLOW
  builder.AddMethod("createMatrixFlowCommandBuffer",
                    vx::Callback<BindingEngine, createMatrixFlowCommandBufferFunc>);
#endif
  builder.Install("Engine");
}

void BindingEngine::PublishBuffers(v8::Isolate* isolate, v8::Local<v8::Object> object) {
  const MemoryBlock dirtyEntities = core->DirtyEntitiesBlock();
  PublishBuffer(isolate, object, "dirtyEntities", dirtyEntities.pointer, dirtyEntities.size);
  const MemoryBlock entityCommands = core->EntityCommandsBlock();
  PublishBuffer(isolate, object, "entityCommands", entityCommands.pointer, entityCommands.size);
  cullingResultCapacity = kCullingResultCapacity;
  const size_t bytes = CullingResultBytes(cullingResultCapacity);
  cullingResultBuffer = std::calloc(1, bytes);
  PublishBuffer(isolate, object, "cullingResult", cullingResultBuffer, bytes);
}

void BindingEngine::createEntityFunc(BindingEngine* self, v8::Isolate* isolate,
                                     const vx::CallbackInfo& info) {
  const bool isThreeD = vx::ReadBool(isolate, vx::Arg(info, 0));
  const uint32_t count = vx::ReadUint32(isolate, vx::Arg(info, 1));
  BindingEngineEntity* wrapper =
      new BindingEngineEntity(self->core, isThreeD, count == 0 ? 1 : count);
  info.GetReturnValue().Set(CreateObject(isolate, wrapper));
}

void BindingEngine::createComponentFunc(BindingEngine* self, v8::Isolate* isolate,
                                        const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() < 1) {
    return;
  }
  const uint32_t kind = vx::ReadUint32(isolate, vx::Arg(info, 0));
  const ComponentKind* entry = FindComponentKind(kind);
  if (entry == nullptr || info.Length() < entry->arguments) {
    return;
  }
  const NativeValueInfo created = entry->create(self, isolate, info);
  BindingEngineComponent* wrapper = new BindingEngineComponent(self->core, kind);
  wrapper->info = created;
  info.GetReturnValue().Set(CreateObject(isolate, wrapper));
}

void BindingEngine::setEntityNameFunc(BindingEngine* self, v8::Isolate* isolate,
                                      const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() < 2) {
    return;
  }
  const uint32_t handle = vx::ReadUint32(isolate, vx::Arg(info, 0));
  const v8::String::Utf8Value name(isolate, vx::Arg(info, 1));
  if (handle == 0 || name.length() == 0) {
    return;
  }
  self->core->SetEntityName(handle, std::string(*name, static_cast<size_t>(name.length())));
}

void BindingEngine::createMatrixFlowCommandBufferFunc(BindingEngine* self, v8::Isolate* isolate,
                                                      const vx::CallbackInfo& info) {
  CreateFromCount<BindingEngineMatrixFlowCommandBuffer>(self, isolate, info);
}

void BindingEngine::refreshWorldTransformFunc(BindingEngine* self, v8::Isolate* /*isolate*/,
                                              const vx::CallbackInfo& info) {
  self->core->RefreshWorldTransform();
  info.GetReturnValue().SetNull();
}

// The constructors for JavaScript of all wrapper classes. They are together because each fails its
// assertion with the name of this file, and the reported line must be one of this file.

BindingEngine::BindingEngine(const vx::CallbackInfo& /*info*/) : core(nullptr), runtime(nullptr) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineEntity::BindingEngineEntity(const vx::CallbackInfo& /*info*/) : access(nullptr) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineComponent::BindingEngineComponent(const vx::CallbackInfo& /*info*/) : kind(0) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineDataModel::BindingEngineDataModel(const vx::CallbackInfo& /*info*/) : kind(0) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineAnimationClipBinding::BindingEngineAnimationClipBinding(
    const vx::CallbackInfo& /*info*/) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineAnimatorControllerModel::BindingEngineAnimatorControllerModel(
    const vx::CallbackInfo& /*info*/) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineAnimatorControllerStateModel::BindingEngineAnimatorControllerStateModel(
    const vx::CallbackInfo& /*info*/) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

BindingEngineMatrixFlowCommandBuffer::BindingEngineMatrixFlowCommandBuffer(
    const vx::CallbackInfo& /*info*/) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

}  // namespace nq::engine
