// Conversion of JavaScript arguments. Checks no more than each function states; a conversion that
// throws ends the process by V8's own fatal error.
#ifndef JSBINDING_V8_ARGUMENTS_H_
#define JSBINDING_V8_ARGUMENTS_H_

#include <v8.h>

#include <cstddef>
#include <cstdint>

#include "jsbinding/v8/host.h"

namespace vx {

using CallbackInfo = v8::FunctionCallbackInfo<v8::Value>;

// The i-th argument; `undefined` past the end.
inline v8::Local<v8::Value> Arg(const CallbackInfo& info, int i) {
  return info[i];
}

// As an unsigned 32-bit number, by JavaScript's own rules; `undefined` gives 0.
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

namespace internal {

// `rangeLength` bytes at `offset` of a block of `length` bytes at `data`. A range that exceeds the
// block's end is clipped; one that starts at or past the end gives null and 0.
inline Bytes ClipRange(void* data, size_t length, size_t offset, size_t rangeLength) {
  Bytes bytes;
  if (length > offset) {
    const size_t left = length - offset;
    bytes.data = static_cast<uint8_t*>(data) + offset;
    bytes.length = rangeLength < left ? rangeLength : left;
  }
  return bytes;
}

}  // namespace internal

// The memory behind an ArrayBuffer, or the range of it that a view covers, clipped as above; any
// other value gives null and 0. Not owned; valid as long as the buffer is.
inline Bytes ReadBytes(v8::Local<v8::Value> value) {
  if (value->IsArrayBufferView()) {
    v8::Local<v8::ArrayBufferView> view = value.As<v8::ArrayBufferView>();
    v8::Local<v8::ArrayBuffer> buffer = view->Buffer();
    return internal::ClipRange(host::BufferData(buffer), buffer->ByteLength(), view->ByteOffset(),
                               view->ByteLength());
  }
  Bytes bytes;
  if (value->IsArrayBuffer()) {
    v8::Local<v8::ArrayBuffer> buffer = value.As<v8::ArrayBuffer>();
    bytes.data = static_cast<uint8_t*>(host::BufferData(buffer));
    bytes.length = buffer->ByteLength();
  }
  return bytes;
}

}  // namespace vx

#endif  // JSBINDING_V8_ARGUMENTS_H_
