// The test addon's entry, and functions that its sources share.
#include "tests/addon/TestAddon.h"

#include "jsbinding/v8/host.h"

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

VX_MODULE_ENTRY {
  v8::HandleScope scope(v8::Isolate::GetCurrent());
  nq::test::InstallArgumentOps(exports);
  nq::test::InstallBatchOps(exports);
  nq::test::InstallBufferOps(exports);
  nq::test::InstallClassOps(exports);
  nq::test::InstallEngineOps(exports);
  nq::test::InstallEntityOps(exports);
  nq::test::InstallWrapperOps(exports);
}

VX_MODULE_RECORD(_register_nq_test_addon_, "tests/addon", "nq_test_addon");
