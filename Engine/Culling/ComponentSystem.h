// The system of culling objects.
#ifndef NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_
#define NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_

namespace nq::engine {

class EngineCore;

// Holds no components yet. Script thread only.
class ComponentSystem {
 public:
  explicit ComponentSystem(EngineCore* core) : core(core) {}
  virtual ~ComponentSystem() = default;
  ComponentSystem(const ComponentSystem&) = delete;
  ComponentSystem& operator=(const ComponentSystem&) = delete;

  EngineCore* const core;  // not counted
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_COMPONENTSYSTEM_H_
