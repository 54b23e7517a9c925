// The test addon's entry, and what its sources share.
#include "tests/addon/TestAddon.h"

#include <node.h>

namespace nq::test {

void Install(v8::Local<v8::Object> exports, const char* name, v8::FunctionCallback callback) {
  v8::Isolate* isolate = v8::Isolate::GetCurrent();
  v8::Local<v8::Context> context = isolate->GetCurrentContext();
  v8::Local<v8::Function> function =
      v8::FunctionTemplate::New(isolate, callback)->GetFunction(context).ToLocalChecked();
  Set(isolate, exports, name, function);
}

v8::Local<v8::Value> Number(v8::Isolate* isolate, double value) {
  return v8::Number::New(isolate, value);
}

v8::Local<v8::Value> Text(v8::Isolate* isolate, const char* value) {
  return vx::internal::NewString(isolate, value);
}

void Set(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name,
         v8::Local<v8::Value> value) {
  object->Set(isolate->GetCurrentContext(), vx::internal::NewString(isolate, name), value)
      .FromJust();
}

void Set(v8::Isolate* isolate, v8::Local<v8::Array> array, uint32_t index,
         v8::Local<v8::Value> value) {
  array->Set(isolate->GetCurrentContext(), index, value).FromJust();
}

v8::Local<v8::Object> ObjectArg(const vx::CallbackInfo& info, int i) {
  return info[i]->ToObject(info.GetIsolate()->GetCurrentContext()).ToLocalChecked();
}

std::string StringArg(const vx::CallbackInfo& info, int i) {
  const v8::String::Utf8Value text(info.GetIsolate(), info[i]);
  return std::string(*text, static_cast<size_t>(text.length()));
}

uint32_t Uint32Arg(const vx::CallbackInfo& info, int i) {
  return vx::ReadUint32(info.GetIsolate(), vx::Arg(info, i));
}

float FloatArg(const vx::CallbackInfo& info, int i) {
  return static_cast<float>(
      info[i]->NumberValue(info.GetIsolate()->GetCurrentContext()).FromJust());
}

}  // namespace nq::test

extern "C" __attribute__((visibility("default"))) void node_register_module_v72(
    v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*privateData*/) {
  v8::HandleScope scope(v8::Isolate::GetCurrent());
  nq::test::InstallArgumentOps(exports);
  nq::test::InstallBatchOps(exports);
  nq::test::InstallBufferOps(exports);
  nq::test::InstallClassOps(exports);
  nq::test::InstallEngineOps(exports);
  nq::test::InstallEntityOps(exports);
  nq::test::InstallWrapperOps(exports);
}

namespace {

// The host writes to it.
node::node_module moduleRecord = {
    72,                        // nm_version
    0,                         // nm_flags
    nullptr,                   // nm_dso_handle
    "tests/addon",             // nm_filename
    node_register_module_v72,  // nm_register_func
    nullptr,                   // nm_context_register_func
    "nq_test_addon",           // nm_modname
    nullptr,                   // nm_priv
    nullptr,                   // nm_link
};

}  // namespace

extern "C" __attribute__((visibility("default"), constructor)) void _register_nq_test_addon_() {
  node_module_register(&moduleRecord);
}
