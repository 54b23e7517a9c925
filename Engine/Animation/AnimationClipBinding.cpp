// Target lists and rest poses.
#include "Engine/Animation/AnimationClipBinding.h"

#include <algorithm>

#include "Common/Def/Unaligned.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

Entity* FindEntity3D(EngineCore* core, uint32_t handle) {
  Entity* entity = core->Entities()->FindEntity(handle);
  return entity != nullptr && entity->isThreeD() ? entity : nullptr;
}

// The index of a list among `lists`; adds it unless it is there already.
size_t IndexOf(const std::vector<AnimationClipBinding::Target>& list,
               std::vector<std::vector<AnimationClipBinding::Target>>* lists) {
  const auto isSame = [&list](const std::vector<AnimationClipBinding::Target>& other) {
    return std::equal(list.begin(), list.end(), other.begin(), other.end(),
                      [](const AnimationClipBinding::Target& a,
                         const AnimationClipBinding::Target& b) { return a.handle == b.handle; });
  };
  const auto found = std::find_if(lists->begin(), lists->end(), isSame);
  const size_t index = static_cast<size_t>(found - lists->begin());
  if (found == lists->end()) {
    lists->push_back(list);  // a copy has no spare capacity
  }
  return index;
}

// `indices` are the target indices of a clip's samples.
SlotSamples MakeSlotSamples(const std::vector<AnimationClipBinding::Target>& targets,
                            const std::vector<uint32_t>& indices) {
  SlotSamples result;
  result.isUsable = true;
  result.isInOrder = true;
  for (uint32_t i = 0; i < indices.size() && indices[i] < targets.size(); ++i) {
    const uint32_t slot = targets[indices[i]].slot;
    if (slot == RestPoses::kNoSlot) {
      result.isInOrder = result.isInOrder && i + 1 == indices.size();
      continue;
    }
    if (slot >= result.positions.size()) {
      result.positions.resize(slot + 1, SlotSamples::kNoSample);
    }
    result.isUsable = result.isUsable && result.positions[slot] == SlotSamples::kNoSample;
    result.isInOrder = result.isInOrder && slot == i;
    result.positions[slot] = i;
  }
  result.end = static_cast<uint32_t>(result.positions.size());
  if (result.isInOrder) {
    result.positions = std::vector<uint32_t>();
  }
  return result;
}

}  // namespace

void AnimationClipBinding::Create(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips,
                                  uint32_t words, uint32_t mode) {
  std::map<uint32_t, Entity*> resolved;
  if (ParseTargets(bytes, byteOffset, clips, words, &resolved) && mode == kSnapshotPose) {
    defaults.Reserve(resolved.size());
    for (const auto& [handle, entity] : resolved) {
      Snapshot(entity);
    }
  }
}

bool AnimationClipBinding::ParseTargets(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips,
                                        uint32_t /*words*/, std::map<uint32_t, Entity*>* resolved) {
  const uint8_t* words = bytes + byteOffset;
  std::map<uint32_t, ClipTargets> clipLists;
  std::vector<std::vector<Target>> lists;
  uint64_t cursor = 0;  // in words after the clip handles
  for (uint32_t c = 0; c < clips; ++c) {
    const uint32_t clipHandle = ReadWord(words, c);
    if (core->Animation()->FindAnimationClipModel(clipHandle) == nullptr) {
      return false;
    }
    // Kept on purpose: the bound accepts an entry one word past the area; callers rely on which
    // lists are accepted.
    if (cursor + 1 > targetWords) {
      return false;
    }
    const uint32_t n = ReadWord(words, clips + cursor);
    ++cursor;
    std::vector<Target> list;
    for (uint32_t k = 1; k <= n; ++k) {
      const uint32_t handle = ReadWord(words, clips + cursor);
      Entity* entity = handle == kNoHandle ? nullptr : FindEntity3D(core, handle);
      if (entity != nullptr) {
        resolved->emplace(handle, entity);
      }
      list.push_back(Target{entity == nullptr ? kNoHandle : handle, RestPoses::kNoSlot});
      ++cursor;
      if (k < n && cursor > targetWords) {
        return false;
      }
    }
    // If a clip is listed twice, its first list is kept.
    if (clipLists.count(clipHandle) == 0) {
      clipLists.emplace(clipHandle, ClipTargets{IndexOf(list, &lists), {}});
    }
  }
  clipTargets.swap(clipLists);
  targetLists.swap(lists);
  slotsVersion = 0;
  FindRoot();
  return true;
}

void AnimationClipBinding::FindRoot() {
  root = 0;
  for (const auto& [clipHandle, entry] : clipTargets) {
    const std::vector<Target>& list = targetLists[entry.list];
    if (list.empty()) {
      continue;
    }
    const TransformTree& tree = core->Entities()->Tree();
    if (tree.Contains(list[0].handle)) {
      root = tree.WalkUp(list[0].handle, CycleReport::kReached,
                         [&tree](uint32_t parent) { return tree.Batch(parent).isThreeD; });
      rootGeneration = tree.Generation(root);
    }
    return;
  }
}

Entity* AnimationClipBinding::rootEntity() const {
  const bool lives = root != 0 && core->Entities()->Tree().Generation(root) == rootGeneration;
  return lives ? core->Entities()->FindEntity(root) : nullptr;
}

Entity* AnimationClipBinding::FindTarget(uint32_t clipHandle, uint32_t targetIndex) const {
  const auto found = clipTargets.find(clipHandle);
  if (found == clipTargets.end()) {
    return nullptr;
  }
  const std::vector<Target>& list = targetLists[found->second.list];
  return targetIndex >= list.size() ||
                 core->Animation()->FindAnimationClipModel(clipHandle) == nullptr
             ? nullptr
             : FindEntity3D(core, list[targetIndex].handle);
}

void AnimationClipBinding::LookUpSlots() {
  if (slotsVersion == defaults.Version()) {
    return;
  }
  slotsVersion = defaults.Version();
  for (std::vector<Target>& list : targetLists) {
    for (Target& target : list) {
      target.slot = defaults.Find(target.handle);
    }
  }
  for (auto& [handle, targets] : clipTargets) {
    targets.bySlot.serial = 0;
  }
}

const std::vector<AnimationClipBinding::Target>* AnimationClipBinding::SlotsOf(
    uint32_t clipHandle) {
  LookUpSlots();
  const auto found = clipTargets.find(clipHandle);
  return found == clipTargets.end() ? nullptr : &targetLists[found->second.list];
}

const SlotSamples* AnimationClipBinding::SamplesBySlot(uint32_t clipHandle,
                                                       AnimationClipModel* clip) {
  LookUpSlots();
  ClipTargets& targets = clipTargets.find(clipHandle)->second;
  SlotSamples* bySlot = &targets.bySlot;
  if (bySlot->serial != clip->serial) {
    *bySlot = MakeSlotSamples(targetLists[targets.list], clip->Targets());
    bySlot->serial = clip->serial;
  }
  return bySlot;
}

bool AnimationClipBinding::Update(const uint8_t* bytes, uint32_t byteOffset, uint32_t clips,
                                  uint32_t words, uint32_t removedMode, uint32_t keptMode,
                                  uint32_t addedMode) {
  std::map<uint32_t, Entity*> resolved;
  if (!ParseTargets(bytes, byteOffset, clips, words, &resolved)) {
    return false;
  }
  const RestPoses old = defaults;
  defaults.Clear();
  const uint32_t removedPose = removedMode & ~uint32_t{kWriteBack};
  const uint32_t keptPose = keptMode & ~uint32_t{kWriteBack};
  for (const RestPoses::Key& key : old.Ascending()) {
    Entity* entity = resolved.count(key.number) != 0 ? nullptr : FindEntity3D(core, key.number);
    if (entity == nullptr) {
      continue;
    }
    if ((removedMode & kWriteBack) != 0) {
      old.Value(key.slot).WriteTo(entity);
    }
    if (removedPose == kKeepPose) {
      defaults.Set(key.number, old.Value(key.slot));
    }
  }
  for (const auto& [handle, entity] : resolved) {
    const uint32_t slot = old.Find(handle);
    if (slot == RestPoses::kNoSlot) {
      if (addedMode == kSnapshotPose) {
        Snapshot(entity);
      }
      continue;
    }
    // The snapshot holds the pose from before the old one is written back.
    if (keptPose == kSnapshotPose) {
      Snapshot(entity);
    }
    if ((keptMode & kWriteBack) != 0) {
      old.Value(slot).WriteTo(entity);
    }
    if (keptPose == kKeepPose) {
      defaults.Set(handle, old.Value(slot));
    }
  }
  return true;
}

void AnimationClipBinding::WriteDefaults() const {
  for (const RestPoses::Key& key : defaults.Ascending()) {
    Entity* entity = FindEntity3D(core, key.number);
    if (entity != nullptr) {
      defaults.Value(key.slot).WriteTo(entity);
    }
  }
}

void AnimationClipBinding::Snapshot(const Entity* entity) {
  defaults.Set(entity->handle, TransformValue::FromEntity(entity));
}

}  // namespace nq::engine
