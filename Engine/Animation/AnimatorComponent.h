// The simple animation player: a few clips, blended by weight, on a fixed set of entities.
#ifndef NQ_ENGINE_ANIMATION_ANIMATORCOMPONENT_H_
#define NQ_ENGINE_ANIMATION_ANIMATORCOMPONENT_H_

#include <cstdint>

#include "Common/Def/HandlerValue.h"
#include "Common/Def/Platform.h"
#include "Engine/Animation/ClipSampling.h"

namespace nq::engine {

class EngineCore;
class Entity;
class EntityPoseWriter;

// Reads times, weights and targets from its shared block (AnimationRecord.h) and writes transforms
// into entities' shared records. Keeps no time of its own: the script sets it.
//
// Thread safety: updates of components with different targets may run concurrently.
class AnimatorComponent {
 public:
  // `data` is the block, which the component's value owns.
  AnimatorComponent(EngineCore* core, uint8_t* data, uint32_t clipCount, uint32_t entityCount)
      : core(core), data(data), clipCount(clipCount), entityCount(entityCount) {}
  virtual ~AnimatorComponent() = default;
  AnimatorComponent(const AnimatorComponent&) = delete;
  AnimatorComponent& operator=(const AnimatorComponent&) = delete;

  // Evaluates once. One active clip is applied in full; several are blended by weight, which drops
  // rotations in Euler angles. Targets without an entity are skipped. An invalid clip handle prints
  // "[NQ_FATAL][Engine]: " and "AnimationClipModel not found\n" and ends the process, with nothing
  // written, whatever the clip's weight.
  virtual void Update();

  EngineCore* const core;  // not reference-counted
  uint8_t* const data;     // not owned
  const uint32_t clipCount;
  const uint32_t entityCount;

  // The first entity that the last update wrote to, and its handle; null and 0 if there was none.
  Entity* firstTarget = nullptr;
  uint32_t firstTargetHandle = 0;

 private:
  struct ActiveClip;
  struct Scratch;

  static NQ_NO_INLINE Scratch* ThreadScratch();
  void ApplyOne(const ActiveClip& clip, Scratch* scratch);
  void Apply(const ClipSample* samples, const uint8_t* moves, const uint32_t* handles,
             uint32_t count, EntityPoseWriter* writer);
  void ApplyBlend(Scratch* scratch);
  bool ApplyCrossfade(Scratch* scratch);
};

// Writes a sample to an entity's shared record, builds its local matrix and marks it. A NaN channel
// leaves its field unchanged. A 3D entity changes to the sample's rotation mode with channel 9
// only; a 2D one takes channels 0, 1, 3, 4 and, as its angle, 8.
void ApplySample(const ClipSample& sample, Entity* entity);

// The value behind an animator's handle.
class AnimatorComponentValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~AnimatorComponentValue() override { delete component; }

  AnimatorComponent* component = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATORCOMPONENT_H_
