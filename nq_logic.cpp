// The module's entry: its registration with the host, and the functions that it exports to
// JavaScript.
#include "BindingTemp/BindingEngine.h"
#include "BindingTemp/PublishSegment.h"
#include "BindingTemp/RegisterClasses.h"
#include "Common/Def/EngineRuntime.h"
#include "Common/Def/MemoryAllocator.h"
#include "jsbinding/v8/class.h"
#include "jsbinding/v8/host.h"

namespace {

// Version of the JavaScript interface, as getVersion returns it.
constexpr char kVersion[] = "138";

v8::Local<v8::String> Internalized(v8::Isolate* isolate, const char* text) {
  return v8::String::NewFromUtf8(isolate, text, v8::NewStringType::kInternalized, -1)
      .ToLocalChecked();
}

void GetVersion(const v8::FunctionCallbackInfo<v8::Value>& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  nq::engine::SetProperty(isolate, result, "version", vx::internal::NewString(isolate, kVersion));
  info.GetReturnValue().Set(result);
}

// Each call builds its own object graph: allocator, runtime, wrapper and core, and the JavaScript
// object for them.
void GetEngine(const v8::FunctionCallbackInfo<v8::Value>& info) {
  using nq::engine::BindingEngine;
  v8::Isolate* isolate = info.GetIsolate();
  nq::engine::MemoryAllocator* allocator = new nq::engine::MemoryAllocator();
  // Kept on purpose: the runtime's first reference is never dropped, so that memory and threads
  // live until the process ends: JavaScript may hold buffers that long.
  nq::engine::EngineRuntime* runtime = new nq::engine::EngineRuntime(allocator);
  BindingEngine* wrapper = new BindingEngine(runtime);
  nq::engine::RegisterClasses();
  v8::Local<v8::Object> object = vx::NewInstance<BindingEngine>(isolate);
  wrapper->Wrap(isolate, object, vx::internal::type_id<BindingEngine>(), sizeof(BindingEngine));
  wrapper->PublishBuffers(isolate, object);
  info.GetReturnValue().Set(object);
}

void InstallFunction(v8::Local<v8::Object> exports, const char* name,
                     v8::FunctionCallback callback) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::HandleScope scope(isolate);
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  v8::Local<v8::Function> function =
      v8::FunctionTemplate::New(isolate, callback)->GetFunction(context).ToLocalChecked();
  v8::Local<v8::String> functionName = Internalized(isolate, name);
  function->SetName(functionName);
  exports->Set(context, functionName, function).FromJust();
}

}  // namespace

// Called by the host when JavaScript requires the module. On Node 12 through the registered record
// the first time; later by its name, node_register_module_v72, if the library is loaded already, in
// another thread or after the require cache was cleared. On newer hosts always by its name.
VX_MODULE_ENTRY {
  InstallFunction(exports, "getEngine", GetEngine);
  InstallFunction(exports, "getVersion", GetVersion);
}

VX_MODULE_RECORD(_register_nq_logic_, "..\\nq_logic", "nq_logic");
