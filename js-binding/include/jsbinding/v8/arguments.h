// Conversion of script arguments. Nothing is checked beyond what each function says; a conversion
// that throws ends the process in V8's own way.
#ifndef JSBINDING_V8_ARGUMENTS_H_
#define JSBINDING_V8_ARGUMENTS_H_

#include <v8.h>

#include <cstddef>
#include <cstdint>

namespace vx {

using CallbackInfo = v8::FunctionCallbackInfo<v8::Value>;

// The i-th argument; past the end, `undefined`.
inline v8::Local<v8::Value> Arg(const CallbackInfo& info, int i) {
  return info[i];
}

// As an unsigned 32-bit number, by script's own rules; `undefined` gives 0.
inline uint32_t ReadUint32(v8::Isolate* isolate, v8::Local<v8::Value> value) {
  return value->Uint32Value(isolate->GetCurrentContext()).FromJust();
}

inline bool ReadBool(v8::Isolate* isolate, v8::Local<v8::Value> value) {
  return value->BooleanValue(isolate);
}

struct Bytes {
  uint8_t* data = nullptr;
  size_t length = 0;
};

// The memory behind an ArrayBuffer or a view of one. A view that reaches past its buffer's end is
// cut to what is left of the buffer; one that starts at or past the end, and any other value, gives
// null and 0. Not owned; valid as long as the buffer is.
inline Bytes ReadBytes(v8::Local<v8::Value> value) {
  Bytes bytes;
  if (value->IsArrayBufferView()) {
    v8::Local<v8::ArrayBufferView> view = value.As<v8::ArrayBufferView>();
    const v8::ArrayBuffer::Contents contents = view->Buffer()->GetContents();
    const size_t offset = view->ByteOffset();
    if (contents.ByteLength() > offset) {
      const size_t left = contents.ByteLength() - offset;
      bytes.data = static_cast<uint8_t*>(contents.Data()) + offset;
      bytes.length = view->ByteLength() < left ? view->ByteLength() : left;
    }
  } else if (value->IsArrayBuffer()) {
    const v8::ArrayBuffer::Contents contents = value.As<v8::ArrayBuffer>()->GetContents();
    bytes.data = static_cast<uint8_t*>(contents.Data());
    bytes.length = contents.ByteLength();
  }
  return bytes;
}

}  // namespace vx

#endif  // JSBINDING_V8_ARGUMENTS_H_
