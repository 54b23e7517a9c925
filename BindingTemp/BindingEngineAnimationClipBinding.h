// JavaScript class "EngineAnimationClipBinding": ties clips to the entities that they move.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_
#define NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Owns the binding: releases it when the JavaScript object has been collected. Script thread only.
class BindingEngineAnimationClipBinding final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // The caller stores the handle in `info`.
  explicit BindingEngineAnimationClipBinding(EngineCore* core) : BindingEngineBase(core) {}

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimationClipBinding(const vx::CallbackInfo& info);

  // Kept on purpose: unlike other classes, whose label is not "unknown", it is counted on creation
  // but not uncounted on destruction. The reported object counts are fixed.
  ~BindingEngineAnimationClipBinding() override;

  // Installs the class in the calling thread.
  static void Register();

  // updateBinding(buffer, byteOffset, clipCount, targetWords, removedMode, keptMode, addedMode):
  // true if the lists were accepted. False if arguments are missing, if `buffer` is no ArrayBuffer
  // or too short, and once the binding is released.
  static void updateBindingFunc(BindingEngineAnimationClipBinding* self, v8::Isolate* isolate,
                                const vx::CallbackInfo& info);

  // writeDefaultValues(): null. Kept on purpose: it only looks the binding up; programs may call
  // it.
  static void writeDefaultValuesFunc(BindingEngineAnimationClipBinding* self, v8::Isolate* isolate,
                                     const vx::CallbackInfo& info);
};

// The position of the target lists in an ArrayBuffer, as passed to the two methods that take them.
struct TargetListRange {
  uint32_t byteOffset;
  uint32_t clipCount;
  uint32_t targetWords;
};

// Converts arguments 1 to 3. May run JavaScript, which may detach any buffer: get memory
// afterwards.
TargetListRange ReadTargetListRange(v8::Isolate* isolate, const vx::CallbackInfo& info);

// The memory of an ArrayBuffer; null if there is none, or if it ends before the lists do. Valid
// until JavaScript runs again.
const uint8_t* TargetListMemory(v8::Local<v8::Value> buffer, const TargetListRange& range);

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_
