// Script class "EngineComponent": a unit of per-frame work over entities.
#ifndef NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_
#define NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_

#include <cstdint>

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Kinds of component, as script names them.
constexpr uint32_t kCullingComponentKind = 1;
constexpr uint32_t kAnimatorComponentKind = 2;
constexpr uint32_t kSkinningComponentKind = 3;

// Owns the component: it is released, by the operation of its kind, when the script object has been
// collected. Script thread only.
class BindingEngineComponent final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // The caller stores in `info` what the creating operation of `kind` returns.
  BindingEngineComponent(EngineCore* core, uint32_t kind);

  // Construction by script, which nothing reaches: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineComponent(const vx::CallbackInfo& info);
  ~BindingEngineComponent() override;

  // Installs the class in the calling thread.
  static void Register();

  const char* ClassLabel() override { return "\"EngineComponent\""; }

  const uint32_t kind;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_
