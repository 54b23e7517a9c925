// Properties of JavaScript objects that expose native memory.
#include "BindingTemp/PublishSegment.h"

#include <cstdlib>

#include "jsbinding/v8/class.h"

namespace nq::engine {

void SetProperty(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name,
                 v8::Local<v8::Value> value) {
  object->Set(isolate->GetCurrentContext(), vx::internal::NewString(isolate, name), value)
      .FromJust();
}

void PublishBuffer(v8::Isolate* isolate, v8::Local<v8::Object> object, const char* name, void* data,
                   size_t length) {
  if (data == nullptr) {
    std::abort();
  }
  SetProperty(isolate, object, name, vx::NewSharedBuffer(isolate, data, length));
}

void PublishSegment(v8::Isolate* isolate, v8::Local<v8::Object> object,
                    const NativeValueInfo& info) {
  SetProperty(isolate, object, "id", v8::Integer::NewFromUnsigned(isolate, info.handle));
  if (info.handle == 0 || info.size == 0) {
    return;
  }
  PublishBuffer(isolate, object, "buffer", info.pointer, info.size);
  SetProperty(isolate, object, "memoryID", v8::Integer::NewFromUnsigned(isolate, info.memoryID));
}

}  // namespace nq::engine
