// JavaScript class "Engine": the object that getEngine returns, the entry to all operations.
#ifndef NQ_BINDINGTEMP_BINDINGENGINE_H_
#define NQ_BINDINGTEMP_BINDINGENGINE_H_

#include <cstdint>

#include "Engine/Culling/CullingRecord.h"
#include "Engine/Entity/EngineCore.h"
#include "jsbinding/v8/class.h"

namespace nq::engine {

// Wrapper behind "Engine". Holds one counted reference on the core; has a plain pointer to the
// runtime, which the core keeps alive. Methods convert arguments, call one operation of the core
// and convert the result; each receives its wrapper as `self`, null for a receiver of the wrong
// class. Script thread only.
class BindingEngine final : public vx::BindingBase {
 public:
  // Creates the core on `runtime`.
  explicit BindingEngine(EngineRuntime* runtime);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngine(const vx::CallbackInfo& info);

  // Drops the core, then frees the memory behind "cullingResult": if JavaScript still holds that
  // buffer, it dangles.
  ~BindingEngine() override;

  // Installs the class in the calling thread.
  static void Register();

  // Sets "dirtyEntities", "entityCommands" and "cullingResult" on the JavaScript object. This is
  // the first use of the core's entity system, and creates it.
  void PublishBuffers(v8::Isolate* isolate, v8::Local<v8::Object> object);

  // createEntity(isThreeD = false, count = 1): an "EngineEntity", with "id" 0 if the count is
  // rejected.
  static void createEntityFunc(BindingEngine* self, v8::Isolate* isolate,
                               const vx::CallbackInfo& info);

  // createComponent(kind, ...): an "EngineComponent"; null for an unknown kind.
  //   1, count = 1: culling objects, "id" 0 if the count is rejected
  //   2, clipCount, entityCount: an animator, "id" 0 if one of them is 0
  //   3, count: a skinning component, "id" 0 for a count of 0
  // Kinds 2 and 3 return null if counts are missing.
  static void createComponentFunc(BindingEngine* self, v8::Isolate* isolate,
                                  const vx::CallbackInfo& info);

  // createDataModel(kind, data): an "EngineDataModel" with a copy of the bytes of `data`, an
  // ArrayBuffer or a view; null with fewer arguments. Kind 1 is a clip, 2 an array of inverse bind
  // matrices; any other returns "id" 0.
  static void createDataModelFunc(BindingEngine* self, v8::Isolate* isolate,
                                  const vx::CallbackInfo& info);

  // createAnimationClipBinding(buffer, byteOffset, clipCount, targetWords, mode): an
  // "EngineAnimationClipBinding" over target lists, with "id" 0 if a count is 0. Null with fewer
  // arguments, if `buffer` is no ArrayBuffer, and if it ends before the lists do.
  static void createAnimationClipBindingFunc(BindingEngine* self, v8::Isolate* isolate,
                                             const vx::CallbackInfo& info);

  // createAnimatorControllerModel(layerCount) and createAnimatorControllerStateModel(clipCount): an
  // "EngineAnimatorControllerModel" or "EngineAnimatorControllerStateModel", with "id" 0 for a
  // count of 0; null without arguments.
  static void createAnimatorControllerModelFunc(BindingEngine* self, v8::Isolate* isolate,
                                                const vx::CallbackInfo& info);
  static void createAnimatorControllerStateModelFunc(BindingEngine* self, v8::Isolate* isolate,
                                                     const vx::CallbackInfo& info);

  // setEntityName(handle, name): null. Does nothing with fewer arguments, a handle of 0 or a name
  // that is empty or can't be converted to a string.
  static void setEntityNameFunc(BindingEngine* self, v8::Isolate* isolate,
                                const vx::CallbackInfo& info);

  // refreshWorldTransform(): null.
  static void refreshWorldTransformFunc(BindingEngine* self, v8::Isolate* isolate,
                                        const vx::CallbackInfo& info);

  // cullWithCamera and frustumCulling(mask, eye x y z, target x y z, up x y z, fov, aspect, near,
  // far, list?): {objects, distances, hash}, or null if nothing is visible, arguments are missing
  // or the list is rejected. A list is used only as the fifteenth of exactly fifteen arguments, and
  // if it is an ArrayBuffer.
  static void frustumCullingFunc(BindingEngine* self, v8::Isolate* isolate,
                                 const vx::CallbackInfo& info);

  // The same, but stores the result in "cullingResult": true if that buffer was replaced by a
  // larger one, otherwise false; null if arguments are missing or the list is rejected. An empty
  // result does not change the buffer.
  static void frustumCullingV2Func(BindingEngine* self, v8::Isolate* isolate,
                                   const vx::CallbackInfo& info);

  // orthoCulling(mask, eye, target, up, left, right, bottom, top, near, far, list?), and with
  // "cullingResult", as above; the list is the seventeenth of exactly seventeen arguments.
  static void orthoCullingFunc(BindingEngine* self, v8::Isolate* isolate,
                               const vx::CallbackInfo& info);
  static void orthoCullingV2Func(BindingEngine* self, v8::Isolate* isolate,
                                 const vx::CallbackInfo& info);

  // updateAnimator(handle), updateSkinningMatrix(handle): null.
  static void updateAnimatorFunc(BindingEngine* self, v8::Isolate* isolate,
                                 const vx::CallbackInfo& info);
  static void updateSkinningMatrixFunc(BindingEngine* self, v8::Isolate* isolate,
                                       const vx::CallbackInfo& info);

  // updateAnimators(handles), updateAnimatorControllers(handles), updateSkinningMatrices(handles):
  // null. `handles` is a count and that many handles, updated in parallel on the workers; see
  // BatchUpdate.
  static void updateAnimatorsFunc(BindingEngine* self, v8::Isolate* isolate,
                                  const vx::CallbackInfo& info);
  static void updateAnimatorControllersFunc(BindingEngine* self, v8::Isolate* isolate,
                                            const vx::CallbackInfo& info);
  static void updateSkinningMatricesFunc(BindingEngine* self, v8::Isolate* isolate,
                                         const vx::CallbackInfo& info);

  // createMatrixFlowCommandBuffer(size): an "EngineMatrixFlowCommandBuffer", with "id" 0 for a size
  // of 0; null without arguments. Installed only if NQ_SCRIPT_MATRIXFLOW is defined.
  static void createMatrixFlowCommandBufferFunc(BindingEngine* self, v8::Isolate* isolate,
                                                const vx::CallbackInfo& info);

  EngineCore* Core() const { return core; }
  EngineRuntime* Runtime() const { return runtime; }

 private:
  // Stores a result in "cullingResult", growing it if necessary. True if it was replaced.
  bool StoreCullResult(v8::Isolate* isolate, const CullResult& result);

  void* cullingResultBuffer = nullptr;  // from the general heap, owned
  uint32_t cullingResultCapacity = kCullingResultCapacity;
  EngineCore* const core;
  EngineRuntime* const runtime;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINE_H_
