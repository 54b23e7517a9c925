// Creation of the JavaScript object of a wrapper, for all creating methods.
#ifndef NQ_BINDINGTEMP_CREATEOBJECT_H_
#define NQ_BINDINGTEMP_CREATEOBJECT_H_

#include <v8.h>

#include "BindingTemp/PublishSegment.h"
#include "Common/Def/EngineRuntime.h"
#include "Engine/Entity/EngineCore.h"
#include "jsbinding/v8/class.h"

namespace nq::engine {

// Creates the JavaScript object of a new wrapper, whose native side exists already: an instance of
// its class, bound to the wrapper, with the segment published on it. From here on the object owns
// the wrapper. Classes with `kCountsObjects` are counted while the runtime tracks objects.
template <typename T>
v8::Local<v8::Object> CreateObject(v8::Isolate* isolate, T* wrapper) {
  if (T::kCountsObjects && wrapper->core->Runtime()->TracksObjects()) {
    wrapper->core->Runtime()->CountObject(wrapper->ClassLabel());
  }
  v8::Local<v8::Object> object = vx::NewInstance<T>(isolate);
  wrapper->Wrap(isolate, object, vx::internal::type_id<T>(), sizeof(T));
  PublishSegment(isolate, object, wrapper->info);
  return object;
}

// The body of the methods that create a wrapper from a count or a size: their one argument.
template <typename T, typename Self>
void CreateFromCount(Self* self, v8::Isolate* isolate, const vx::CallbackInfo& info) {
  info.GetReturnValue().SetNull();
  if (info.Length() >= 1) {
    const uint32_t count = vx::ReadUint32(isolate, vx::Arg(info, 0));
    info.GetReturnValue().Set(CreateObject(isolate, new T(self->Core(), count)));
  }
}

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_CREATEOBJECT_H_
