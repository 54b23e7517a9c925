// The system of clips, animators, controllers and skinning.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_

namespace nq::engine {

class EngineCore;

// Holds no tables yet. Script thread only.
class AnimationSystem {
 public:
  explicit AnimationSystem(EngineCore* core) : core(core) {}
  virtual ~AnimationSystem() = default;
  AnimationSystem(const AnimationSystem&) = delete;
  AnimationSystem& operator=(const AnimationSystem&) = delete;

  EngineCore* const core;  // not counted
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONSYSTEM_H_
