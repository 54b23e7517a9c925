// JavaScript class "EngineDataModel": content that is passed once and that components share.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_
#define NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_

#include <cstdint>

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

// Kinds of data model, as passed by JavaScript. Any other number creates none.
constexpr uint32_t kClipModelKind = 1;
constexpr uint32_t kBonesModelKind = 2;

// Owns the model: releases it, by the operation of its kind, when the JavaScript object has been
// collected. Script thread only.
class BindingEngineDataModel final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // Creates the model of `kind` from `size` bytes.
  BindingEngineDataModel(EngineCore* core, uint32_t kind, const uint8_t* data, uint32_t size);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineDataModel(const vx::CallbackInfo& info);
  ~BindingEngineDataModel() override;

  // Installs the class in the calling thread.
  static void Register();

  const char* ClassLabel() override { return "\"EngineDataModel\""; }

  const uint32_t kind;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEDATAMODEL_H_
