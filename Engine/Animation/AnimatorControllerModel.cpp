// Creation and destruction of controllers and states, and masks. Evaluation is in
// ControllerEvaluation and StateEvaluation.
#include "Engine/Animation/AnimatorControllerModel.h"

#include <algorithm>
#include <cstring>

#include "Common/Def/Unaligned.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "Engine/Animation/ControllerEvaluation.h"
#include "Engine/Entity/EngineCore.h"

namespace nq::engine {

void ControllerMask::Set(const uint8_t* records, uint32_t count) {
  entries.resize(count);
  std::memcpy(entries.data(), records, count * sizeof(ControllerMaskRecord));
  const auto isBefore = [](const ControllerMaskRecord& a, const ControllerMaskRecord& b) {
    return a.entity < b.entity;
  };
  const auto isSame = [](const ControllerMaskRecord& a, const ControllerMaskRecord& b) {
    return a.entity == b.entity;
  };
  std::stable_sort(entries.begin(), entries.end(), isBefore);
  entries.erase(std::unique(entries.begin(), entries.end(), isSame), entries.end());
  seenVersion = 0;
}

const float* ControllerMask::WeightsBySlot(const RestPoses& restPoses) {
  if (seenVersion != restPoses.Version()) {
    seenVersion = restPoses.Version();
    weights.assign((size_t{restPoses.SlotCount()} + 3) / 4 * 4, 1.0f);
    for (const ControllerMaskRecord& entry : entries) {
      const uint32_t slot = restPoses.Find(entry.entity);
      if (slot != RestPoses::kNoSlot) {
        weights[slot] = entry.weight;
      }
    }
  }
  return weights.data();
}

void ControllerMasks::Set(uint32_t layer, const uint8_t* records, uint32_t count) {
  if (count == 0) {
    byLayer.erase(layer);
  } else {
    byLayer[layer].Set(records, count);
  }
}

ControllerMask* ControllerMasks::Find(uint32_t layer) {
  const auto found = byLayer.find(layer);
  return found == byLayer.end() ? nullptr : &found->second;
}

void AnimatorControllerModel::Update() {
  ControllerEvaluation::OfThread()->Run(this);
}

bool AnimatorControllerModel::SetMask(uint32_t index, const uint8_t* bytes, uint32_t offset,
                                      uint32_t count) {
  if (index >= layerCount) {
    return false;
  }
  masks.Set(index, bytes + offset, count);
  return true;
}

AnimationClipBinding* AnimatorControllerModel::Binding() const {
  const uint32_t handle = ReadUnaligned<uint32_t>(data);
  return handle == kNoHandle ? nullptr : core->Animation()->FindAnimationClipBinding(handle);
}

void* AnimatorControllerModelValue::Allocate(uint32_t count) {
  void* memory = BlockValue::Allocate(ControllerBlockBytes(count));
  EngineCore* const core = static_cast<EngineCore*>(owner);
  uint8_t* const data = static_cast<uint8_t*>(memory);
  component = first.has_value() ? new AnimatorControllerModel(core, data, count)
                                : &first.emplace(core, data, count);
  return memory;
}

void* AnimatorControllerStateModelValue::Allocate(uint32_t count) {
  void* memory = BlockValue::Allocate(ControllerStateBlockBytes(count));
  const bool isFirst = component == nullptr;
  component = isFirst ? &first : new AnimatorControllerStateModel;
  *component = AnimatorControllerStateModel{static_cast<EngineCore*>(owner),
                                            static_cast<uint8_t*>(memory), count};
  return memory;
}

}  // namespace nq::engine
