// Native state of an "Engine" of the module that JavaScript can't read: counts, references.
#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/BindingEngineAnimationClipBinding.h"
#include "BindingTemp/BindingEngineAnimatorController.h"
#include "BindingTemp/BindingEngineComponent.h"
#include "BindingTemp/BindingEngineDataModel.h"
#include "BindingTemp/BindingEngineEntity.h"
#include "Common/Def/EngineRuntime.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntitySystem.h"
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

using engine::BindingEngine;
using engine::BindingEngineAnimationClipBinding;
using engine::BindingEngineAnimatorControllerModel;
using engine::BindingEngineAnimatorControllerStateModel;
using engine::BindingEngineComponent;
using engine::BindingEngineDataModel;
using engine::BindingEngineEntity;
using engine::EngineRuntime;

// Runtimes that tests inspect after their engines are released; a runtime is never deleted.
std::vector<EngineRuntime*>& Runtimes() {
  static std::vector<EngineRuntime*> runtimes;
  return runtimes;
}

BindingEngine* EngineArg(const vx::CallbackInfo& info) {
  return vx::Unwrap<BindingEngine>(ObjectArg(info, 0));
}

EngineRuntime* RuntimeArg(const vx::CallbackInfo& info) {
  return Runtimes()[Uint32Arg(info, 0)];
}

void EnableObjectTrackingOp(const vx::CallbackInfo& info) {
  EngineArg(info)->Runtime()->EnableObjectTracking();
}

void DisableObjectTrackingOp(const vx::CallbackInfo& info) {
  EngineArg(info)->Runtime()->DisableObjectTracking();
}

// objectCounts(engine): a plain object, in the order of the map.
void ObjectCountsOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  for (const auto& entry : EngineArg(info)->Runtime()->ObjectCounts()) {
    Set(isolate, result, entry.first.c_str(), Number(isolate, entry.second));
  }
  info.GetReturnValue().Set(result);
}

// runtimeOf(engine): a number that identifies the runtime in later calls.
void RuntimeOfOp(const vx::CallbackInfo& info) {
  Runtimes().push_back(EngineArg(info)->Runtime());
  info.GetReturnValue().Set(static_cast<uint32_t>(Runtimes().size() - 1));
}

// runtimeReferences(runtime): 2 while the core lives, 1 after.
void RuntimeReferencesOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(RuntimeArg(info)->ReferenceCount());
}

// hasBlock(runtime, memoryID): true if a live block has that ID.
void HasBlockOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(RuntimeArg(info)->FindBlock(Uint32Arg(info, 1)).pointer != nullptr);
}

// coreReferences(engine): the engine's own, one per wrapper and one per native value.
void CoreReferencesOp(const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(EngineArg(info)->Core()->ReferenceCount());
}

void RefreshEntityOp(const vx::CallbackInfo& info) {
  EngineArg(info)->Core()->RefreshEntity(Uint32Arg(info, 1));
}

// entityName(engine, handle): of entities of both kinds; null if there is none.
void EntityNameOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  const engine::Entity* entity =
      EngineArg(info)->Core()->Entities()->FindEntity(Uint32Arg(info, 1));
  if (entity == nullptr) {
    info.GetReturnValue().SetNull();
    return;
  }
  info.GetReturnValue().Set(v8::String::NewFromUtf8(isolate, entity->name.data(),
                                                    v8::NewStringType::kNormal,
                                                    static_cast<int>(entity->name.size()))
                                .ToLocalChecked());
}

// wrapperSizes(): {engine, entity, component, dataModel, binding, controller, state} in bytes.
void WrapperSizesOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "engine", Number(isolate, sizeof(BindingEngine)));
  Set(isolate, result, "entity", Number(isolate, sizeof(BindingEngineEntity)));
  Set(isolate, result, "component", Number(isolate, sizeof(BindingEngineComponent)));
  Set(isolate, result, "dataModel", Number(isolate, sizeof(BindingEngineDataModel)));
  Set(isolate, result, "binding", Number(isolate, sizeof(BindingEngineAnimationClipBinding)));
  Set(isolate, result, "controller", Number(isolate, sizeof(BindingEngineAnimatorControllerModel)));
  Set(isolate, result, "state", Number(isolate, sizeof(BindingEngineAnimatorControllerStateModel)));
  info.GetReturnValue().Set(result);
}

// construct(className): calls the constructor for JavaScript; ends the process.
void ConstructOp(const vx::CallbackInfo& info) {
  const std::string className = StringArg(info, 0);
  if (className == "Engine") {
    delete new BindingEngine(info);
  } else if (className == "EngineEntity") {
    delete new BindingEngineEntity(info);
  } else if (className == "EngineComponent") {
    delete new BindingEngineComponent(info);
  } else if (className == "EngineDataModel") {
    delete new BindingEngineDataModel(info);
  } else if (className == "EngineAnimationClipBinding") {
    delete new BindingEngineAnimationClipBinding(info);
  } else if (className == "EngineAnimatorControllerModel") {
    delete new BindingEngineAnimatorControllerModel(info);
  } else if (className == "EngineAnimatorControllerStateModel") {
    delete new BindingEngineAnimatorControllerStateModel(info);
  }
}

// The bytes that WriteOnAbort writes. The caller owns the memory, and keeps it until the process
// ends.
const uint8_t* abortBytes = nullptr;
size_t abortLength = 0;

// Async-signal-safe: only system calls.
void WriteOnAbort(int /*signal*/) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (size_t i = 0; i < abortLength; ++i) {
    const char text[2] = {kDigits[abortBytes[i] >> 4], kDigits[abortBytes[i] & 15]};
    if (::write(STDOUT_FILENO, text, sizeof(text)) != static_cast<ssize_t>(sizeof(text))) {
      ::_exit(1);
    }
  }
}

// writeOnAbort(buffer): if the process aborts, it first writes the bytes that `buffer` then has to
// standard output, in hexadecimal digits.
void WriteOnAbortOp(const vx::CallbackInfo& info) {
  const vx::Bytes bytes = vx::ReadBytes(vx::Arg(info, 0));
  abortBytes = bytes.data;
  abortLength = bytes.length;
  std::signal(SIGABRT, WriteOnAbort);
}

}  // namespace

void InstallEngineOps(v8::Local<v8::Object> exports) {
  Install(exports, "enableObjectTracking", EnableObjectTrackingOp);
  Install(exports, "disableObjectTracking", DisableObjectTrackingOp);
  Install(exports, "objectCounts", ObjectCountsOp);
  Install(exports, "runtimeOf", RuntimeOfOp);
  Install(exports, "runtimeReferences", RuntimeReferencesOp);
  Install(exports, "hasBlock", HasBlockOp);
  Install(exports, "coreReferences", CoreReferencesOp);
  Install(exports, "refreshEntity", RefreshEntityOp);
  Install(exports, "entityName", EntityNameOp);
  Install(exports, "wrapperSizes", WrapperSizesOp);
  Install(exports, "construct", ConstructOp);
  Install(exports, "writeOnAbort", WriteOnAbortOp);
}

}  // namespace nq::test
