// Script class "EngineAnimationClipBinding": ties clips to the entities that they move.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_
#define NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Owns the binding: it is released when the script object has been collected. Script thread only.
class BindingEngineAnimationClipBinding final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // The caller stores the handle in `info`.
  explicit BindingEngineAnimationClipBinding(EngineCore* core) : BindingEngineBase(core) {}

  // Construction by script, which nothing reaches: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimationClipBinding(const vx::CallbackInfo& info);

  // Kept on purpose: unlike other classes, whose label is not "unknown", it is counted when it is
  // made and not when it goes.
  ~BindingEngineAnimationClipBinding() override;

  // Installs the class in the calling thread.
  static void Register();

  // updateBinding(buffer, byteOffset, clipCount, targetWords, removedMode, keptMode, addedMode):
  // true if the lists were accepted. False for missing arguments, for what is no ArrayBuffer or too
  // short a one, and once the binding is gone.
  static void updateBindingFunc(BindingEngineAnimationClipBinding* self, v8::Isolate* isolate,
                                const vx::CallbackInfo& info);

  // writeDefaultValues(): null. Kept on purpose: it looks the binding up and does nothing with it.
  static void writeDefaultValuesFunc(BindingEngineAnimationClipBinding* self, v8::Isolate* isolate,
                                     const vx::CallbackInfo& info);
};

// Where the target lists are in an ArrayBuffer, as the two methods that take them are passed it.
struct TargetListRange {
  uint32_t byteOffset;
  uint32_t clipCount;
  uint32_t targetWords;
};

// Converts arguments 1 to 3. May run script, which may detach any buffer: take memory afterwards.
TargetListRange ReadTargetListRange(v8::Isolate* isolate, const vx::CallbackInfo& info);

// The memory of an ArrayBuffer; null where there is none, or where it ends before the lists do.
// Valid until script runs again.
const uint8_t* TargetListMemory(v8::Local<v8::Value> buffer, const TargetListRange& range);

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_
