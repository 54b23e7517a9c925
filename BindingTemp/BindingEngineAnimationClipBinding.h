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

// Target lists in an ArrayBuffer, as the two methods that take them get them.
struct TargetListArguments {
  const uint8_t* data = nullptr;  // null where the lists are refused
  uint32_t byteOffset = 0;
  uint32_t clipCount = 0;
  uint32_t targetWords = 0;
};

// Reads the first four arguments. Lists are refused in what is no ArrayBuffer, has no memory, or
// ends ahead of them.
TargetListArguments ReadTargetLists(v8::Isolate* isolate, const vx::CallbackInfo& info);

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEANIMATIONCLIPBINDING_H_
