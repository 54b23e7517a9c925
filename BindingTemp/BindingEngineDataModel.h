// Script class "EngineDataModel": content that script gives once and that components share.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_
#define NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_

#include <cstdint>

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Kinds of data model, as script names them. Any other number makes none.
constexpr uint32_t kClipModelKind = 1;
constexpr uint32_t kBonesModelKind = 2;

// Owns the model: it is released, by the operation of its kind, when the script object has been
// collected. Script thread only.
class BindingEngineDataModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // Makes the model of `kind` from `size` bytes.
  BindingEngineDataModel(EngineCore* core, uint32_t kind, const uint8_t* data, uint32_t size);

  // Construction by script, which nothing reaches: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineDataModel(const vx::CallbackInfo& info);
  ~BindingEngineDataModel() override;

  // Installs the class in the calling thread.
  static void Register();

  const char* ClassLabel() override { return "\"EngineDataModel\""; }

  const uint32_t kind;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_
