// Skinning matrices: how the vertices of a skin follow its bones.
#ifndef NQ_ENGINE_ANIMATION_SKINNINGMATRIXCOMPONENT_H_
#define NQ_ENGINE_ANIMATION_SKINNINGMATRIXCOMPONENT_H_

#include <cstdint>

#include "Common/Def/HandlerValue.h"

namespace nq::engine {

class EngineCore;

// Computes, for each bone of its shared block (AnimationRecord.h), the bone's world matrix times
// its inverse bind matrix, into the block. World matrices are read as last computed: the script
// refreshes them first.
//
// Thread safety: an update writes only its own block, so any number may run concurrently.
class SkinningMatrixComponent {
 public:
  // `data` is the block, which the component's value owns.
  SkinningMatrixComponent(EngineCore* core, uint8_t* data, uint32_t count)
      : core(core), data(data), count(count) {}
  virtual ~SkinningMatrixComponent() = default;
  SkinningMatrixComponent(const SkinningMatrixComponent&) = delete;
  SkinningMatrixComponent& operator=(const SkinningMatrixComponent&) = delete;

  // Without a bones model prints "[NQ_FATAL][Engine]: " and "bone inverse model not found\n", for a
  // bone without an entity "entity not found\n", and ends the process. A bone whose index is past
  // the model's matrices gets no result.
  virtual void Update();

  EngineCore* const core;  // not reference-counted
  uint8_t* const data;     // not owned
  const uint32_t count;
};

// The value behind a skinning component's handle.
class SkinningMatrixComponentValue final : public BlockValue {
 public:
  using BlockValue::BlockValue;
  ~SkinningMatrixComponentValue() override { delete component; }

  // Allocates a zeroed block for `count` bones, and creates the component on it. Called once.
  // `count` is not 0.
  void* Allocate(uint32_t count) override;

  SkinningMatrixComponent* component = nullptr;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_SKINNINGMATRIXCOMPONENT_H_
