// Animation methods of "Engine".
#include "BindingTemp/BatchUpdate.h"
#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/BindingEngineAnimationClipBinding.h"
#include "BindingTemp/BindingEngineAnimatorController.h"
#include "BindingTemp/BindingEngineBase.h"
#include "BindingTemp/BindingEngineDataModel.h"
#include "BindingTemp/CreateObject.h"

namespace nq::engine {

namespace {

using HandleOperation = void (EngineCore::*)(uint32_t handle);

// The methods that take one handle, and those that take an array of handles.
template <HandleOperation operation>
void UpdateOne(BindingEngine* self, v8::Isolate* isolate, const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() >= 1) {
    // Converted before `self` is used, which is null for a wrapper of the wrong class.
    const uint32_t handle = vx::ReadUint32(isolate, vx::Arg(info, 0));
    (self->Core()->*operation)(handle);
  }
}

template <HandleOperation operation>
void CallOperation(BindingEngine* self, uint32_t handle) {
  (self->Core()->*operation)(handle);
}

template <HandleOperation operation>
void UpdateMany(BindingEngine* self, const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() >= 1) {
    BatchUpdate<BindingEngine, CallOperation<operation>>(self, vx::ReadBytes(vx::Arg(info, 0)));
  }
}

}  // namespace

void BindingEngine::createDataModelFunc(BindingEngine* self, v8::Isolate* isolate,
                                        const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() < 2) {
    return;
  }
  const uint32_t kind = vx::ReadUint32(isolate, vx::Arg(info, 0));
  const vx::Bytes data = vx::ReadBytes(vx::Arg(info, 1));
  BindingEngineDataModel* wrapper =
      new BindingEngineDataModel(self->core, kind, data.data, static_cast<uint32_t>(data.length));
  info.GetReturnValue().Set(CreateObject(isolate, wrapper));
}

void BindingEngine::createAnimationClipBindingFunc(BindingEngine* self, v8::Isolate* isolate,
                                                   const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() < 5) {
    return;
  }
  const v8::Local<v8::Value> buffer = vx::Arg(info, 0);
  if (!buffer->IsArrayBuffer()) {
    return;
  }
  const TargetListRange range = ReadTargetListRange(isolate, info);
  const uint32_t mode = vx::ReadUint32(isolate, vx::Arg(info, 4));
  const uint8_t* data = TargetListMemory(buffer, range);
  if (data == nullptr) {
    return;
  }
  BindingEngineAnimationClipBinding* wrapper = new BindingEngineAnimationClipBinding(self->core);
  wrapper->info.handle = self->core->CreateAnimationClipBinding(
      data, range.byteOffset, range.clipCount, range.targetWords, mode);
  info.GetReturnValue().Set(CreateObject(isolate, wrapper));
}

void BindingEngine::createAnimatorControllerModelFunc(BindingEngine* self, v8::Isolate* isolate,
                                                      const vx::CallbackInfo& info) {
  CreateFromCount<BindingEngineAnimatorControllerModel>(self, isolate, info);
}

void BindingEngine::createAnimatorControllerStateModelFunc(BindingEngine* self,
                                                           v8::Isolate* isolate,
                                                           const vx::CallbackInfo& info) {
  CreateFromCount<BindingEngineAnimatorControllerStateModel>(self, isolate, info);
}

void BindingEngine::updateAnimatorFunc(BindingEngine* self, v8::Isolate* isolate,
                                       const vx::CallbackInfo& info) {
  UpdateOne<&EngineCore::UpdateAnimator>(self, isolate, info);
}

void BindingEngine::updateAnimatorsFunc(BindingEngine* self, v8::Isolate* /*isolate*/,
                                        const vx::CallbackInfo& info) {
  UpdateMany<&EngineCore::UpdateAnimator>(self, info);
}

void BindingEngine::updateAnimatorControllersFunc(BindingEngine* self, v8::Isolate* /*isolate*/,
                                                  const vx::CallbackInfo& info) {
  UpdateMany<&EngineCore::UpdateAnimatorController>(self, info);
}

void BindingEngine::updateSkinningMatrixFunc(BindingEngine* self, v8::Isolate* isolate,
                                             const vx::CallbackInfo& info) {
  UpdateOne<&EngineCore::UpdateSkinningMatrix>(self, isolate, info);
}

void BindingEngine::updateSkinningMatricesFunc(BindingEngine* self, v8::Isolate* /*isolate*/,
                                               const vx::CallbackInfo& info) {
  UpdateMany<&EngineCore::UpdateSkinningMatrix>(self, info);
}

}  // namespace nq::engine
