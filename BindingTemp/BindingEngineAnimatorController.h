// JavaScript classes "EngineAnimatorControllerModel" and "EngineAnimatorControllerStateModel".
#ifndef NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_
#define NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Owns a controller: releases it when the JavaScript object has been collected. Script thread only.
class BindingEngineAnimatorControllerModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = false;

  // Creates a controller of `layerCount` layers; none for 0.
  BindingEngineAnimatorControllerModel(EngineCore* core, uint32_t layerCount);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimatorControllerModel(const vx::CallbackInfo& info);
  ~BindingEngineAnimatorControllerModel() override;

  // Installs the class in the calling thread.
  static void Register();

  // update(anything, arrayBuffer): null. Evaluates once. Unlike Engine's updateAnimatorControllers,
  // it does not compute world matrices in a tree that refreshes do not reach from a root.
  static void updateFunc(BindingEngineAnimatorControllerModel* self, v8::Isolate* isolate,
                         const vx::CallbackInfo& info);

  // setMaskAtIndex(index, buffer, byteOffset, count): null. `count` records of an entity and a
  // weight. Does nothing with fewer arguments, or if `buffer` is no ArrayBuffer or too short.
  static void setMaskAtIndexFunc(BindingEngineAnimatorControllerModel* self, v8::Isolate* isolate,
                                 const vx::CallbackInfo& info);
};

// Owns a state: releases it when the JavaScript object has been collected. Script thread only.
class BindingEngineAnimatorControllerStateModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = false;

  // Creates a state of `clipCount` clips; none for 0.
  BindingEngineAnimatorControllerStateModel(EngineCore* core, uint32_t clipCount);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimatorControllerStateModel(const vx::CallbackInfo& info);
  ~BindingEngineAnimatorControllerStateModel() override;

  // Installs the class in the calling thread.
  static void Register();
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_
