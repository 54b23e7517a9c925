// Conversion of arguments, as in methods.
#include "tests/addon/TestAddon.h"

namespace nq::test {

namespace {

// readBytes(value): {isNull, length, bytes}, the bytes copied.
void ReadBytesOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  const vx::Bytes bytes = vx::ReadBytes(vx::Arg(info, 0));
  v8::Local<v8::Array> copy = v8::Array::New(isolate);
  for (uint32_t i = 0; bytes.data != nullptr && i < bytes.length; ++i) {
    Set(isolate, copy, i, Number(isolate, bytes.data[i]));
  }
  v8::Local<v8::Object> result = v8::Object::New(isolate);
  Set(isolate, result, "isNull", v8::Boolean::New(isolate, bytes.data == nullptr));
  Set(isolate, result, "length", Number(isolate, static_cast<double>(bytes.length)));
  Set(isolate, result, "bytes", copy);
  info.GetReturnValue().Set(result);
}

// writeByte(value, index, byte): through the pointer that a method receives.
void WriteByteOp(const vx::CallbackInfo& info) {
  vx::ReadBytes(vx::Arg(info, 0)).data[Uint32Arg(info, 1)] =
      static_cast<uint8_t>(Uint32Arg(info, 2));
}

// clip(length, offset, rangeLength): [start, length] of the clipped range, or null. V8 creates no
// view that exceeds its buffer, so this calls the clipping function directly.
void ClipOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  char block[64];
  const vx::Bytes bytes =
      vx::internal::ClipRange(block, Uint32Arg(info, 0), Uint32Arg(info, 1), Uint32Arg(info, 2));
  if (bytes.data == nullptr && bytes.length == 0) {
    info.GetReturnValue().SetNull();
    return;
  }
  v8::Local<v8::Array> result = v8::Array::New(isolate);
  Set(isolate, result, 0,
      Number(isolate, static_cast<double>(reinterpret_cast<char*>(bytes.data) - block)));
  Set(isolate, result, 1, Number(isolate, static_cast<double>(bytes.length)));
  info.GetReturnValue().Set(result);
}

// convert(...values): for each, {uint32, bool}; and the same for one argument past the end.
void ConvertOp(const vx::CallbackInfo& info) {
  v8::Isolate* isolate = info.GetIsolate();
  v8::Local<v8::Array> results = v8::Array::New(isolate);
  for (int i = 0; i <= info.Length(); ++i) {
    v8::Local<v8::Object> result = v8::Object::New(isolate);
    Set(isolate, result, "uint32", Number(isolate, vx::ReadUint32(isolate, vx::Arg(info, i))));
    Set(isolate, result, "bool",
        v8::Boolean::New(isolate, vx::ReadBool(isolate, vx::Arg(info, i))));
    Set(isolate, results, static_cast<uint32_t>(i), result);
  }
  info.GetReturnValue().Set(results);
}

}  // namespace

void InstallArgumentOps(v8::Local<v8::Object> exports) {
  Install(exports, "readBytes", ReadBytesOp);
  Install(exports, "writeByte", WriteByteOp);
  Install(exports, "clip", ClipOp);
  Install(exports, "convert", ConvertOp);
}

}  // namespace nq::test
