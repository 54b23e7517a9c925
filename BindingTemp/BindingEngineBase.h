// Base of the wrappers of native values.
#ifndef NQ_BINDINGTEMP_BINDINGENGINEBASE_H_
#define NQ_BINDINGTEMP_BINDINGENGINEBASE_H_

#include "Common/Def/HandlerValue.h"
#include "Engine/Entity/EngineCore.h"
#include "jsbinding/v8/class.h"

namespace nq::engine {

// Holds one counted reference on the core, dropped after the derived class has released its native
// value. Script thread only.
class BindingEngineBase : public vx::BindingBase {
 public:
  explicit BindingEngineBase(EngineCore* core) : core(core) { core->AddReference(); }
  ~BindingEngineBase() override { core->DropReference(); }

  // For constructors called by `new` in JavaScript, which end the process: no core.
  BindingEngineBase() : core(nullptr) {}

  // The name under which objects of the class are counted.
  virtual const char* ClassLabel() { return "unknown"; }

  EngineCore* const core;
  NativeValueInfo info;  // all zero until created, and if creation failed
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINEBASE_H_
