// Creation, use and release of controllers and states by JavaScript.
#include "BindingTemp/BindingEngineAnimatorController.h"

#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerModel.h"

namespace nq::engine {

namespace {

AnimatorControllerModel* FindController(const BindingEngineAnimatorControllerModel* wrapper) {
  return wrapper->core->Animation()->FindAnimatorControllerModel(wrapper->info.handle);
}

}  // namespace

BindingEngineAnimatorControllerModel::BindingEngineAnimatorControllerModel(EngineCore* core,
                                                                           uint32_t layerCount)
    : BindingEngineBase(core) {
  info = core->CreateAnimatorControllerModel(layerCount);
}

BindingEngineAnimatorControllerModel::~BindingEngineAnimatorControllerModel() {
  core->ReleaseAnimatorControllerModel(info.handle);
}

void BindingEngineAnimatorControllerModel::Register() {
  using Self = BindingEngineAnimatorControllerModel;
  vx::ClassTemplateBuilder<Self> builder;
  builder.Inherit<BindingEngineBase>();
  builder.AddMethod("update", vx::Callback<Self, updateFunc>);
  builder.AddMethod("setMaskAtIndex", vx::Callback<Self, setMaskAtIndexFunc>);
  builder.Install("EngineAnimatorControllerModel");
}

void BindingEngineAnimatorControllerModel::updateFunc(BindingEngineAnimatorControllerModel* self,
                                                      v8::Isolate* /*isolate*/,
                                                      const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  AnimatorControllerModel* controller = FindController(self);
  if (controller != nullptr && info.Length() >= 2 && vx::Arg(info, 1)->IsArrayBuffer()) {
    controller->Update();
  }
}

void BindingEngineAnimatorControllerModel::setMaskAtIndexFunc(
    BindingEngineAnimatorControllerModel* self, v8::Isolate* isolate,
    const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() < 4) {
    return;
  }
  AnimatorControllerModel* controller = FindController(self);
  const v8::Local<v8::Value> buffer = vx::Arg(info, 1);
  if (controller == nullptr || !buffer->IsArrayBuffer()) {
    return;
  }
  const uint32_t index = vx::ReadUint32(isolate, vx::Arg(info, 0));
  const uint32_t byteOffset = vx::ReadUint32(isolate, vx::Arg(info, 2));
  const uint32_t count = vx::ReadUint32(isolate, vx::Arg(info, 3));
  const vx::Bytes bytes = vx::ReadBytes(buffer);
  // In 64 bits: a large count must not wrap to a small size.
  if (bytes.data == nullptr ||
      bytes.length < byteOffset + uint64_t{sizeof(ControllerMaskRecord)} * count) {
    return;
  }
  controller->SetMask(index, bytes.data, byteOffset, count);
}

BindingEngineAnimatorControllerStateModel::BindingEngineAnimatorControllerStateModel(
    EngineCore* core, uint32_t clipCount)
    : BindingEngineBase(core) {
  info = core->CreateAnimatorControllerStateModel(clipCount);
}

BindingEngineAnimatorControllerStateModel::~BindingEngineAnimatorControllerStateModel() {
  core->ReleaseAnimatorControllerStateModel(info.handle);
}

void BindingEngineAnimatorControllerStateModel::Register() {
  vx::ClassTemplateBuilder<BindingEngineAnimatorControllerStateModel> builder;
  builder.Inherit<BindingEngineBase>();
  builder.Install("EngineAnimatorControllerStateModel");
}

}  // namespace nq::engine
