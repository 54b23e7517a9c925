// Target lists for script, and release of bindings.
#include "BindingTemp/BindingEngineAnimationClipBinding.h"

#include "Common/Def/Assert.h"
#include "Engine/Animation/AnimationClipBinding.h"
#include "Engine/Animation/AnimationSystem.h"

namespace nq::engine {

BindingEngineAnimationClipBinding::BindingEngineAnimationClipBinding(
    const vx::CallbackInfo& /*info*/) {
  NQ_ASSERT(0 && "not implement", "BindingTemp/BindingEngine");
}

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

TargetListArguments ReadTargetLists(v8::Isolate* isolate, const vx::CallbackInfo& info) {
  TargetListArguments lists;
  const v8::Local<v8::Value> buffer = vx::Arg(info, 0);
  if (!buffer->IsArrayBuffer()) {
    return lists;
  }
  lists.byteOffset = vx::ReadUint32(isolate, vx::Arg(info, 1));
  lists.clipCount = vx::ReadUint32(isolate, vx::Arg(info, 2));
  lists.targetWords = vx::ReadUint32(isolate, vx::Arg(info, 3));
  const vx::Bytes bytes = vx::ReadBytes(buffer);
  // In 64 bits: large counts must not wrap to a small size.
  const uint64_t words = uint64_t{lists.targetWords} + lists.clipCount;
  if (bytes.length >= lists.byteOffset + words * 4) {
    lists.data = bytes.data;
  }
  return lists;
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
  if (binding == nullptr) {
    return;
  }
  const TargetListArguments lists = ReadTargetLists(isolate, info);
  if (lists.data == nullptr) {
    return;
  }
  const uint32_t removedMode = vx::ReadUint32(isolate, vx::Arg(info, 4));
  const uint32_t keptMode = vx::ReadUint32(isolate, vx::Arg(info, 5));
  const uint32_t addedMode = vx::ReadUint32(isolate, vx::Arg(info, 6));
  info.GetReturnValue().Set(binding->Update(lists.data, lists.byteOffset, lists.clipCount,
                                            lists.targetWords, removedMode, keptMode, addedMode));
}

void BindingEngineAnimationClipBinding::writeDefaultValuesFunc(
    BindingEngineAnimationClipBinding* self, v8::Isolate* /*isolate*/,
    const vx::CallbackInfo& info) {
  self->core->Animation()->FindAnimationClipBinding(self->info.handle);
  info.GetReturnValue().SetNull();
}

}  // namespace nq::engine
