// Script classes "EngineAnimatorControllerModel" and "EngineAnimatorControllerStateModel".
#ifndef NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_
#define NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Owns a controller: it is released when the script object has been collected. Script thread only.
class BindingEngineAnimatorControllerModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = false;

  // Makes a controller of `layerCount` layers; none for 0.
  BindingEngineAnimatorControllerModel(EngineCore* core, uint32_t layerCount);

  // Construction by script, which nothing reaches: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimatorControllerModel(const vx::CallbackInfo& info);
  ~BindingEngineAnimatorControllerModel() override;

  // Installs the class in the calling thread.
  static void Register();

  // update(anything, arrayBuffer): null. One evaluation; a tree without a root that refreshes reach
  // gets no world matrices, unlike by Engine's updateAnimatorControllers.
  static void updateFunc(BindingEngineAnimatorControllerModel* self, v8::Isolate* isolate,
                         const vx::CallbackInfo& info);

  // setMaskAtIndex(index, buffer, byteOffset, count): null. `count` records of an entity and a
  // weight. Nothing happens with fewer arguments, for what is no ArrayBuffer or too short a one.
  static void setMaskAtIndexFunc(BindingEngineAnimatorControllerModel* self, v8::Isolate* isolate,
                                 const vx::CallbackInfo& info);
};

// Owns a state: it is released when the script object has been collected. Script thread only.
class BindingEngineAnimatorControllerStateModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = false;

  // Makes a state of `clipCount` clips; none for 0.
  BindingEngineAnimatorControllerStateModel(EngineCore* core, uint32_t clipCount);

  // Construction by script, which nothing reaches: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineAnimatorControllerStateModel(const vx::CallbackInfo& info);
  ~BindingEngineAnimatorControllerStateModel() override;

  // Installs the class in the calling thread.
  static void Register();
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEANIMATORCONTROLLER_H_
