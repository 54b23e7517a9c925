// Operations that tests call to reach what JavaScript cannot. Each source installs its own on
// `exports`.
//
// The addon is linked from the same wrapper layer as the module. It unwraps objects of the module's
// engines by name and layout, so both must come from one build.
#ifndef NQ_TESTS_ADDON_TESTADDON_H_
#define NQ_TESTS_ADDON_TESTADDON_H_

#include <v8.h>

#include <cstdint>
#include <string>

#include "jsbinding/v8/class.h"

namespace nq::test {

// Sets a function under `name` on `exports`.
void Install(v8::Local<v8::Object> exports, const char* name, v8::FunctionCallback callback);

v8::Local<v8::Value> Number(v8::Isolate* isolate, double value);
v8::Local<v8::Value> Text(v8::Isolate* isolate, const char* value);
void Set(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name,
         v8::Local<v8::Value> value);
void Set(v8::Isolate* isolate, v8::Local<v8::Array> array, uint32_t index,
         v8::Local<v8::Value> value);

// Argument `i`, which must be an object.
v8::Local<v8::Object> ObjectArg(const vx::CallbackInfo& info, int i);
std::string StringArg(const vx::CallbackInfo& info, int i);
uint32_t Uint32Arg(const vx::CallbackInfo& info, int i);
float FloatArg(const vx::CallbackInfo& info, int i);

// The calling thread's record of the wrapper layer's class of that C++ name, or null.
vx::internal::TypeInfo* TypeInfoNamed(const std::string& name);

void InstallArgumentOps(v8::Local<v8::Object> exports);
void InstallBatchOps(v8::Local<v8::Object> exports);
void InstallBufferOps(v8::Local<v8::Object> exports);
void InstallClassOps(v8::Local<v8::Object> exports);
void InstallEngineOps(v8::Local<v8::Object> exports);
void InstallEntityOps(v8::Local<v8::Object> exports);
void InstallWrapperOps(v8::Local<v8::Object> exports);

}  // namespace nq::test

#endif  // NQ_TESTS_ADDON_TESTADDON_H_
