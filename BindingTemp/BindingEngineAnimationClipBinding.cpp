// Target lists passed by JavaScript, and release of bindings.
#include "BindingTemp/BindingEngineAnimationClipBinding.h"

#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimationSystem.h"

namespace nq::engine {

BindingEngineAnimationClipBinding::~BindingEngineAnimationClipBinding() {
  core->ReleaseAnimationClipBinding(info.handle);
}

void BindingEngineAnimationClipBinding::Register() {
  using Self = BindingEngineAnimationClipBinding;
  vx::ClassTemplateBuilder<Self> builder;
  builder.Inherit<BindingEngineBase>();
  builder.AddMethod("updateBinding", vx::Callback<Self, updateBindingFunc>);
  builder.AddMethod("writeDefaultValues", vx::UncheckedCallback<Self, writeDefaultValuesFunc>);
  builder.Install("EngineAnimationClipBinding");
}

TargetListRange ReadTargetListRange(v8::Isolate* isolate, const vx::CallbackInfo& info) {
  TargetListRange range;
  range.byteOffset = vx::ReadUint32(isolate, vx::Arg(info, 1));
  range.clipCount = vx::ReadUint32(isolate, vx::Arg(info, 2));
  range.targetWords = vx::ReadUint32(isolate, vx::Arg(info, 3));
  return range;
}

const uint8_t* TargetListMemory(v8::Local<v8::Value> buffer, const TargetListRange& range) {
  const vx::Bytes bytes = vx::ReadBytes(buffer);
  // In 64 bits: large counts must not wrap to a small size.
  const uint64_t words = uint64_t{range.targetWords} + range.clipCount;
  return bytes.length < range.byteOffset + words * 4 ? nullptr : bytes.data;
}

void BindingEngineAnimationClipBinding::updateBindingFunc(BindingEngineAnimationClipBinding* self,
                                                          v8::Isolate* isolate,
                                                          const vx::CallbackInfo& info) {
  info.GetReturnValue().Set(false);
  if (info.Length() < 7) {
    return;
  }
  AnimationClipBinding* binding =
      self->core->Animation()->FindAnimationClipBinding(self->info.handle);
  const v8::Local<v8::Value> buffer = vx::Arg(info, 0);
  if (binding == nullptr || !buffer->IsArrayBuffer()) {
    return;
  }
  const TargetListRange range = ReadTargetListRange(isolate, info);
  const uint32_t removedMode = vx::ReadUint32(isolate, vx::Arg(info, 4));
  const uint32_t keptMode = vx::ReadUint32(isolate, vx::Arg(info, 5));
  const uint32_t addedMode = vx::ReadUint32(isolate, vx::Arg(info, 6));
  const uint8_t* data = TargetListMemory(buffer, range);
  if (data != nullptr) {
    info.GetReturnValue().Set(binding->Update(data, range.byteOffset, range.clipCount,
                                              range.targetWords, removedMode, keptMode, addedMode));
  }
}

void BindingEngineAnimationClipBinding::writeDefaultValuesFunc(
    BindingEngineAnimationClipBinding* self, v8::Isolate* /*isolate*/,
    const vx::CallbackInfo& info) {
  self->core->Animation()->FindAnimationClipBinding(self->info.handle);
  info.GetReturnValue().SetNull();
}

}  // namespace nq::engine
