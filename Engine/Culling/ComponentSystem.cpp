// Creation and release of culling objects, and the culling calls.
#include "Engine/Culling/ComponentSystem.h"

#include <algorithm>

#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

// Objects of a list, for one SIMD test.
struct ListGroup {
  float x[Culler::kGroup];
  float y[Culler::kGroup];
  float z[Culler::kGroup];
  float radius[Culler::kGroup];
  uint32_t handles[Culler::kGroup];
  float* depths[Culler::kGroup];
  uint32_t size = 0;

  void Add(const CullingComponentValue& batch, uint32_t index) {
    x[size] = batch.spheres.x[index];
    y[size] = batch.spheres.y[index];
    z[size] = batch.spheres.z[index];
    radius[size] = batch.spheres.radius[index];
    handles[size] = batch.handle | index;
    depths[size] = batch.depths.Data() + index;
    ++size;
  }

  void Test(Culler* culler) {
    for (uint32_t lane = size; lane < Culler::kGroup; ++lane) {
      x[lane] = y[lane] = z[lane] = radius[lane] = 0.0f;
      handles[lane] = 0;
    }
    float groupDepths[Culler::kGroup] = {};
    culler->TestGroup(x, y, z, radius, (1u << size) - 1, handles, groupDepths);
    for (uint32_t lane = 0; lane < size; ++lane) {
      *depths[lane] = groupDepths[lane];
    }
    size = 0;
  }
};

}  // namespace

ComponentSystem::ComponentSystem(EngineCore* core) : core(core), cullingComponents(core) {}

NativeValueInfo ComponentSystem::CreateCullingComponent(uint32_t count) {
  if (count == 0) {
    return NativeValueInfo();
  }
  CullingComponentValue* value = cullingComponents.Allocate();
  if (value == nullptr) {
    return NativeValueInfo();
  }
  value->Allocate(count);
  return value->Info();
}

const CullResult& ComponentSystem::CullWithFrustum(uint32_t mask, const CameraPose& pose,
                                                   const PerspectiveLens& lens,
                                                   const uint32_t* list, uint32_t listCount) {
  return TestAndSortObjects(PerspectiveVolume(pose, lens), mask, list, listCount);
}

const CullResult& ComponentSystem::CullOrtho(uint32_t mask, const CameraPose& pose,
                                             const OrthographicLens& lens, const uint32_t* list,
                                             uint32_t listCount) {
  return TestAndSortObjects(OrthographicVolume(pose, lens), mask, list, listCount);
}

const CullResult& ComponentSystem::TestAndSortObjects(const ViewVolume& view, uint32_t mask,
                                                      const uint32_t* list, uint32_t listCount) {
  const TransformTree& tree = core->Entities()->Tree();
  if (seenLeaveCount != tree.LeaveCount()) {
    seenLeaveCount = tree.LeaveCount();
    cullingComponents.ForEach(
        [&tree](CullingComponentValue* batch) { batch->DropReleasedEntities(tree); });
  }
  culler.Begin(view);
  if (list == nullptr) {
    cullingComponents.ForEach(
        [this, mask, &tree](CullingComponentValue* batch) { TestBatch(batch, mask, tree); });
  } else {
    TestList(mask, list, listCount, tree);
  }
  culler.Finish(&result);
  return result;
}

void ComponentSystem::TestBatch(CullingComponentValue* batch, uint32_t mask,
                                const TransformTree& tree) {
  const WorldSpheres& spheres = batch->spheres;
  const uint32_t count = batch->Count();
  for (uint32_t start = 0; start < count; start += Culler::kGroup) {
    const uint32_t size = std::min(count - start, Culler::kGroup);
    uint32_t candidates = 0;
    for (uint32_t lane = 0; lane < size; ++lane) {
      if (batch->IsCandidate(start + lane, mask, tree)) {
        batch->UpdateWorldSphere(start + lane, tree);
        candidates |= 1u << lane;
      }
    }
    if (candidates != 0) {
      uint32_t handles[Culler::kGroup];
      for (uint32_t lane = 0; lane < Culler::kGroup; ++lane) {
        handles[lane] = (batch->handle | start) + lane;
      }
      culler.TestGroup(spheres.x.Data() + start, spheres.y.Data() + start, spheres.z.Data() + start,
                       spheres.radius.Data() + start, candidates, handles,
                       batch->depths.Data() + start);
    }
  }
}

void ComponentSystem::TestList(uint32_t mask, const uint32_t* list, uint32_t listCount,
                               const TransformTree& tree) {
  ListGroup group;
  for (uint32_t i = 0; i < listCount; ++i) {
    CullingComponentValue* batch = FindCullingComponent(list[i]);
    const uint32_t index = HandleElement(list[i]);
    if (batch == nullptr || index >= batch->Count() || !batch->IsCandidate(index, mask, tree)) {
      continue;
    }
    batch->UpdateWorldSphere(index, tree);
    group.Add(*batch, index);
    if (group.size == Culler::kGroup) {
      group.Test(&culler);
    }
  }
  if (group.size != 0) {
    group.Test(&culler);
  }
}

}  // namespace nq::engine
