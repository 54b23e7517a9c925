// Building of benchmark trees.
#include "bench/native/BenchScene.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Handle.h"
#include "Common/Def/MemoryAllocator.h"

namespace nq::bench {

namespace {

constexpr uint32_t kBonesPerCharacter = 50;

// A spine with a head, four limbs of nine bones, and leaf bones on the head: 50 in all.
uint32_t BoneParent(uint32_t bone) {
  constexpr uint32_t kSpineBones = 6;
  constexpr uint32_t kLimbBones = 9;
  constexpr uint32_t kLimbs = 4;
  if (bone < kSpineBones) {
    return bone - 1;
  }
  const uint32_t limbBone = bone - kSpineBones;
  if (limbBone < kLimbs * kLimbBones) {
    const bool isFirst = limbBone % kLimbBones == 0;
    const uint32_t joint = limbBone / kLimbBones < 2 ? 3 : 0;  // arms at the chest, legs at the hip
    return isFirst ? joint : bone - 1;
  }
  return kSpineBones - 1;
}

}  // namespace

std::vector<uint32_t> TreeParents(Shape shape, uint32_t count) {
  std::vector<uint32_t> parents(count, 0);
  switch (shape) {
    case Shape::kLargeTree: {
      std::mt19937 random(1);
      uint32_t next = 1;
      for (uint32_t node = 0; next < count; ++node) {
        const uint32_t end = std::min<uint32_t>(count, next + 4 + random() % 5);
        std::fill(parents.begin() + next, parents.begin() + end, node);
        next = end;
      }
      break;
    }
    case Shape::kHumanoids:
      for (uint32_t node = 1; node < count; ++node) {
        const uint32_t bone = (node - 1) % kBonesPerCharacter;
        parents[node] = bone == 0 ? 0 : node - bone + BoneParent(bone);
      }
      break;
    case Shape::kWideTree:
      break;
    case Shape::kChain:
      std::iota(parents.begin() + 1, parents.end(), 0);
      break;
  }
  return parents;
}

std::vector<uint32_t> Pick(uint32_t limit, uint32_t count) {
  std::vector<uint32_t> numbers(limit);
  std::iota(numbers.begin(), numbers.end(), 0);
  std::mt19937 random(2);
  for (uint32_t i = 0; i < count; ++i) {
    std::swap(numbers[i], numbers[i + random() % (limit - i)]);
  }
  numbers.resize(count);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

BenchScene::BenchScene(Shape shape, uint32_t count)
    : runtime(new engine::EngineRuntime(new engine::MemoryAllocator())),
      core(new engine::EngineCore(runtime)) {
  constexpr uint32_t kBatch = engine::kMaxBatchCount;
  for (uint32_t first = 0; first < count; first += kBatch) {
    const uint32_t size = std::min(kBatch, count - first);
    const engine::NativeValueInfo info = core->CreateEntities3D(static_cast<int32_t>(size));
    engine::Entity3DRecord* batch = static_cast<engine::Entity3DRecord*>(info.pointer);
    for (uint32_t i = 0; i < size; ++i) {
      handles.push_back(info.handle | i);
      records.push_back(batch + i);
      batch[i].rotationMode = 1;
      batch[i].rotation[3] = 1.0f;
      std::fill(batch[i].scale, batch[i].scale + 3, 1.0f);
    }
  }
  const std::vector<uint32_t> parents = TreeParents(shape, count);
  for (uint32_t node = 1; node < count; ++node) {
    System()->AddChild(handles[parents[node]], handles[node]);
  }
  std::vector<uint32_t> all(count);
  std::iota(all.begin(), all.end(), 0);
  for (uint32_t from = 0; from < count; from += engine::kDirtyListCapacity) {
    List(all, from, std::min(count, from + engine::kDirtyListCapacity));
    System()->RefreshWorldTransform();
  }
  System()->AddRoot(handles[0]);
  System()->RefreshWorldTransform();
}

BenchScene::~BenchScene() {
  std::vector<uint32_t> keys;
  for (uint32_t handle : handles) {
    if (engine::HandleElement(handle) == 0) {
      keys.push_back(handle);
    }
  }
  for (uint32_t key : keys) {
    core->ReleaseEntities(key);
  }
  core->DropReference();
  runtime->DropReference();
}

void BenchScene::List(const std::vector<uint32_t>& nodes, size_t from, size_t to) {
  uint32_t* words = static_cast<uint32_t*>(System()->DirtyEntitiesBlock().pointer);
  words[0] = static_cast<uint32_t>(to - from);
  for (size_t i = from; i < to; ++i) {
    words[1 + i - from] = handles[nodes[i]];
  }
}

void BenchScene::Move(const std::vector<uint32_t>& nodes, float by) {
  for (uint32_t node : nodes) {
    records[node]->position[0] = by;
    records[node]->rotation[0] = by;
  }
}

}  // namespace nq::bench
