// World-space access to entities, as peers of the binding layer use it.
#include "BindingTemp/BindingEngineEntity.h"
#include "Engine/Entity/IEntity.h"
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

using engine::BindingEngineEntity;
using engine::IEntity;

BindingEngineEntity* WrapperArg(const vx::CallbackInfo& info) {
  return vx::Unwrap<BindingEngineEntity>(ObjectArg(info, 0));
}

// A peer knows only the name of the interface, not the class.
IEntity* EntityArg(const vx::CallbackInfo& info) {
  vx::BindingBase* wrapper = WrapperArg(info);
  return static_cast<IEntity*>(wrapper->QueryInterface(vx::internal::type_id<IEntity>()->name));
}

void ReturnNumbers(const vx::CallbackInfo& info, const float* numbers, uint32_t count) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Array> result = v8::Array::New(isolate);
  for (uint32_t i = 0; i < count; ++i) {
    Set(isolate, result, i, Number(isolate, numbers[i]));
  }
  info.GetReturnValue().Set(result);
}

// queryInterface(object, class): "none", "sub-object" if the result is the wrapper's IEntity part,
// "other" for any other pointer.
void QueryInterfaceOp(const vx::CallbackInfo& info) {
  BindingEngineEntity* wrapper = WrapperArg(info);
  const vx::internal::TypeInfo* type = TypeInfoNamed(StringArg(info, 1));
  const void* answer = wrapper->QueryInterface(type == nullptr ? "" : type->name);
  const char* text = "other";
  if (answer == nullptr) {
    text = "none";
  } else if (answer == static_cast<IEntity*>(wrapper)) {
    text = "sub-object";
  }
  info.GetReturnValue().Set(Text(info.GetIsolate(), text));
}

// The seven operations of IEntity; the object is any batch of the engine.

void GetEntityVersionOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(EntityArg(info)->getEntityVersion(Uint32Arg(info, 1)));
}

void GetEntityNameOp(const vx::CallbackInfo& info) {
  const char* name = EntityArg(info)->getEntityName(Uint32Arg(info, 1));
  if (name == nullptr) {
    info.GetReturnValue().SetNull();
  } else {
    info.GetReturnValue().Set(Text(info.GetIsolate(), name));
  }
}

void GetWorldPositionOp(const vx::CallbackInfo& info) {
  const engine::Vector3 position = EntityArg(info)->getWorldPosition(Uint32Arg(info, 1));
  const float numbers[] = {position.x, position.y, position.z};
  ReturnNumbers(info, numbers, 3);
}

void GetWorldRotationOp(const vx::CallbackInfo& info) {
  const engine::Quaternion rotation = EntityArg(info)->getWorldRotation(Uint32Arg(info, 1));
  const float numbers[] = {rotation.x, rotation.y, rotation.z, rotation.w};
  ReturnNumbers(info, numbers, 4);
}

void GetWorldScaleOp(const vx::CallbackInfo& info) {
  const engine::Vector3 scale = EntityArg(info)->getWorldScale(Uint32Arg(info, 1));
  const float numbers[] = {scale.x, scale.y, scale.z};
  ReturnNumbers(info, numbers, 3);
}

// setWorldPosition(object, handle, x, y, z, immediately).
void SetWorldPositionOp(const vx::CallbackInfo& info) {
  EntityArg(info)->setWorldPosition(FloatArg(info, 2), FloatArg(info, 3), FloatArg(info, 4),
                                    Uint32Arg(info, 1),
                                    vx::ReadBool(info.GetIsolate(), vx::Arg(info, 5)));
}

// setWorldRotation(object, handle, x, y, z, w, immediately).
void SetWorldRotationOp(const vx::CallbackInfo& info) {
  EntityArg(info)->setWorldRotation(FloatArg(info, 2), FloatArg(info, 3), FloatArg(info, 4),
                                    FloatArg(info, 5), Uint32Arg(info, 1),
                                    vx::ReadBool(info.GetIsolate(), vx::Arg(info, 6)));
}

}  // namespace

void InstallEntityOps(v8::Local<v8::Object> exports) {
  Install(exports, "queryInterface", QueryInterfaceOp);
  Install(exports, "getEntityVersion", GetEntityVersionOp);
  Install(exports, "getEntityName", GetEntityNameOp);
  Install(exports, "getWorldPosition", GetWorldPositionOp);
  Install(exports, "getWorldRotation", GetWorldRotationOp);
  Install(exports, "getWorldScale", GetWorldScaleOp);
  Install(exports, "setWorldPosition", SetWorldPositionOp);
  Install(exports, "setWorldRotation", SetWorldRotationOp);
}

}  // namespace nq::test
