// Visibility in a scene: geometry, layers, lists, and random scenes against a plain model.
#include "Engine/Culling/ComponentSystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <set>

#include "tests/native/Engine/Culling/CullingScene.h"

namespace nq::engine {
namespace {

// Commands of the entity stream.
constexpr uint32_t kResetSubtree = 5;
constexpr uint32_t kActivate = 10;
constexpr uint32_t kDeactivate = 11;

typedef std::vector<uint32_t> Handles;

const float kNone = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

class ComponentSystemTest : public ::testing::Test {
 protected:
  CullingScene scene;
};

TEST_F(ComponentSystemTest, WithoutObjectsTheResultIsEmpty) {
  EXPECT_TRUE(HoldsExactly(scene.Look(), {}));
  EXPECT_TRUE(HoldsExactly(scene.Look(Handles{0x1000}), {}));
}

TEST_F(ComponentSystemTest, CullingCreatesTheSystemOnFirstUse) {
  const CullResult ortho = scene.Core()->CullOrtho(1, {{0, 0, 0}, {0, 0, -1}, {0, 1, 0}},
                                                   {-1, 1, -1, 1, 1, 9}, nullptr, 0);
  EXPECT_TRUE(HoldsExactly(ortho, {}));
  ComponentSystem* system = scene.Core()->Components();
  EXPECT_EQ(scene.Core(), system->core);
  EXPECT_EQ(system, scene.Core()->Components());
}

TEST_F(ComponentSystemTest, ASphereWhoseRadiusReachesTheFarPlaneIsVisible) {
  const uint32_t object = scene.AddSphere(0, 0, -101, 1);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {{object, 101.0f}}));
  scene.MoveTo(scene.Record(object).entity, 0, 0, -101.001f);
  EXPECT_TRUE(HoldsExactly(scene.Look(), {}));
}

//   behind   eye   near                              far
//     2 ......0.....|.................................|
//     (------ c ------)        radius 2, c at +0.5
TEST_F(ComponentSystemTest, ASphereFromBehindTheEyeHasANegativeDepthAndComesFirst) {
  const uint32_t ahead = scene.AddSphere(0, 0, -2, 1);
  const uint32_t behind = scene.AddSphere(0, 0, 0.5f, 2);
  const CullResult seen = scene.Look();
  EXPECT_EQ((Handles{behind, ahead}), seen.objects);
  EXPECT_EQ((std::vector<float>{-0.5f, 2.0f}), seen.distances);
}

TEST_F(ComponentSystemTest, AnyNonzeroEnabledByteEnables) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  for (const uint32_t enabled : {0u, 1u, 2u, 0x80u, 0xFFu}) {
    scene.Record(object).enabled = static_cast<uint8_t>(enabled);
    EXPECT_EQ(enabled == 0 ? Handles{} : Handles{object}, scene.Seen()) << enabled;
  }
  scene.Record(object).enabled = 0;
  for (uint8_t& byte : scene.Record(object).unused) {
    byte = 0xFF;
  }
  EXPECT_EQ(Handles{}, scene.Seen());
  EXPECT_EQ(Handles{}, scene.Look(Handles{object}).objects);
}

TEST_F(ComponentSystemTest, LayerMasksMustOverlap) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const auto isSeen = [this, object](uint32_t layers, uint32_t mask) {
    scene.Record(object).mask = layers;
    const bool byScan = !scene.Look(mask).objects.empty();
    EXPECT_EQ(byScan, !scene.Look(Handles{object}, mask).objects.empty());
    return byScan;
  };
  EXPECT_TRUE(isSeen(0x80000000u, 0x80000000u));
  EXPECT_TRUE(isSeen(6, 3));
  EXPECT_TRUE(isSeen(0xFFFFFFFFu, 0x00010000u));
  EXPECT_FALSE(isSeen(6, 1));
  EXPECT_FALSE(isSeen(0, 0xFFFFFFFFu));
  EXPECT_FALSE(isSeen(0xFFFFFFFFu, 0));
}

TEST_F(ComponentSystemTest, BothCamerasSeeTheirOwnVolume) {
  const uint32_t corner = scene.AddSphere(9, 9, -10, 0.5f);
  const uint32_t wide = scene.AddSphere(30, 0, -40, 0.5f);
  EXPECT_EQ((Handles{corner, wide}), scene.Seen());
  const CameraPose pose = {{0, 0, 0}, {0, 0, -1}, {0, 1, 0}};
  EXPECT_EQ(Handles{corner},
            scene.Core()->CullOrtho(1, pose, {-10, 10, -10, 10, 1, 100}, nullptr, 0).objects);
  EXPECT_EQ(Handles{wide},
            scene.Core()->CullOrtho(1, pose, {20, 40, -10, 10, 1, 100}, nullptr, 0).objects);
  EXPECT_EQ(Handles{},
            scene.Core()->CullOrtho(1, pose, {-10, 10, -10, 10, 11, 39}, nullptr, 0).objects);
}

TEST_F(ComponentSystemTest, AListChoosesWhatIsTested) {
  const uint32_t near = scene.AddSphere(0, 0, -10, 1);
  const uint32_t middle = scene.AddSphere(0, 0, -20, 1);
  const uint32_t far = scene.AddSphere(0, 0, -30, 1);
  EXPECT_TRUE(HoldsExactly(scene.Look(Handles{far, near}), {{near, 10.0f}, {far, 30.0f}}));
  EXPECT_TRUE(HoldsExactly(scene.Look(Handles{middle}), {{middle, 20.0f}}));
  EXPECT_TRUE(HoldsExactly(scene.Look(Handles{}), {})) << "a list, of nothing";
}

TEST_F(ComponentSystemTest, AListWithDuplicatesYieldsDuplicates) {
  const uint32_t near = scene.AddSphere(0, 0, -10, 1);
  const uint32_t far = scene.AddSphere(0, 0, -30, 1);
  const CullResult seen = scene.Look(Handles{far, near, far, far, near, far});
  EXPECT_EQ((Handles{near, near, far, far, far, far}), seen.objects);
  EXPECT_EQ((std::vector<float>{10, 10, 30, 30, 30, 30}), seen.distances);
}

TEST_F(ComponentSystemTest, AListSkipsUnknownHandles) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  const uint32_t gone = scene.AddSphere(0, 0, -20, 1);
  scene.ReleaseObjects(gone);
  EXPECT_EQ(Handles{object}, scene
                                 .Look(Handles{0, gone, object + 1, 0xFFFFFFFFu, 0x9000, object, 5,
                                               object + 0xFFF, 0xFFFFF000u})
                                 .objects);
  EXPECT_EQ(Handles{}, scene.Look(Handles{gone}).objects);
}

TEST_F(ComponentSystemTest, BatchesOfEveryLengthAreTestedToTheirEnd) {
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 0, 0, -10);
  std::vector<ReferenceHit> expected;
  Handles all;
  for (int32_t count = 1; count <= 13; ++count) {
    const uint32_t key = scene.AddObjects(count);
    for (uint32_t i = 0; i < static_cast<uint32_t>(count); ++i) {
      const float z = -static_cast<float>(expected.size()) * 0.5f;
      scene.Put(key + i, entity, 0, 0, z, 1);
      expected.push_back(ReferenceHit{key + i, 10.0f - z});
      all.push_back(key + i);
    }
  }
  EXPECT_TRUE(HoldsExactly(scene.Look(), expected));
  for (size_t length = 0; length <= all.size(); ++length) {
    EXPECT_TRUE(HoldsExactly(
        scene.Look(Handles(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(length))),
        std::vector<ReferenceHit>(expected.begin(),
                                  expected.begin() + static_cast<std::ptrdiff_t>(length))));
  }
}

TEST_F(ComponentSystemTest, AllObjectsOfAFullBatchAreTested) {
  const uint32_t entity = scene.Add3D();
  scene.MoveTo(entity, 0, 0, -10);
  const uint32_t key = scene.AddObjects(4095);
  std::vector<ReferenceHit> expected;
  for (uint32_t i = 0; i < 4095; ++i) {
    const float z = static_cast<float>(i * 2654435761u % 4096) / 64.0f - 64.0f;
    scene.Put(key + i, entity, 0, 0, z, 1);
    expected.push_back(ReferenceHit{key + i, 10.0f - z});
  }
  EXPECT_TRUE(HoldsExactly(scene.Look(), expected));
}

TEST_F(ComponentSystemTest, AnEyeAtItsTargetSeesEverythingAtDepthNaN) {
  const uint32_t far = scene.AddSphere(0, 0, 9999, 1);
  const uint32_t near = scene.AddSphere(0, 5, -10, 1);
  ReferenceCamera camera = CullingScene::Straight();
  camera.pose.target = camera.pose.eye;
  EXPECT_TRUE(HoldsExactly(scene.Cull(camera, 1, nullptr, 0), {{far, kNone}, {near, kNone}}));
}

TEST_F(ComponentSystemTest, CamerasOfNaNsNeitherFailNorHang) {
  for (int i = 0; i < 300; ++i) {
    scene.AddSphere(static_cast<float>(i % 17) - 8, static_cast<float>(i % 5), -10, 1);
  }
  CullingRandom random(3);
  for (const float odd : {kNone, kInfinity, -kInfinity, 3.4e38f, 1e-45f}) {
    for (int number = 0; number < 20; ++number) {
      ReferenceCamera camera = random.Camera(10.0f);
      float* numbers[] = {&camera.pose.eye.x,    &camera.pose.eye.y,     &camera.pose.eye.z,
                          &camera.pose.target.x, &camera.pose.target.y,  &camera.pose.target.z,
                          &camera.pose.up.x,     &camera.pose.up.y,      &camera.pose.up.z,
                          &camera.frustum.fov,   &camera.frustum.aspect, &camera.frustum.near,
                          &camera.frustum.far,   &camera.box.left,       &camera.box.right,
                          &camera.box.bottom,    &camera.box.top,        &camera.box.near,
                          &camera.box.far,       &camera.frustum.far};
      camera.perspective = number < 9 ? number % 2 == 0 : number < 13 || number == 19;
      *numbers[number] = odd;
      const ViewVolume volume = ReferenceVolume(camera);
      std::vector<ReferenceHit> expected;
      for (uint32_t i = 0; i < 300; ++i) {
        const ReferenceSphere sphere = {static_cast<float>(i % 17) - 8, static_cast<float>(i % 5),
                                        -10, 1};
        if (ReferenceIsVisible(volume, sphere)) {
          expected.push_back(ReferenceHit{(i + 1) << 12, ReferenceDepth(volume, sphere)});
        }
      }
      EXPECT_TRUE(HoldsExactly(scene.Cull(camera, 1, nullptr, 0), expected))
          << "number " << number << " is " << odd;
    }
  }
}

TEST_F(ComponentSystemTest, ACallDoesNotDependOnThePreviousResult) {
  const uint32_t object = scene.AddSphere(0, 0, -10, 1);
  EXPECT_EQ(Handles{object}, scene.Seen());
  EXPECT_TRUE(HoldsExactly(scene.Look(Handles{}), {}));
  EXPECT_EQ(Handles{object}, scene.Seen());
  scene.Record(object).enabled = 0;
  EXPECT_TRUE(HoldsExactly(scene.Look(), {}));
}

TEST_F(ComponentSystemTest, TheLastBatchOfObjectsMayDestroyTheCore) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
  EngineCore* core = new EngineCore(runtime);
  const uint32_t entities = core->CreateEntities3D(4).handle;
  const uint32_t objects = core->CreateCullingComponent(4).handle;
  core->DropReference();
  core->ReleaseEntities(entities);
  core->ReleaseCullingComponent(objects);  // deletes the core, and the table it runs in
  runtime->DropReference();
}

// Entities, objects and their batches are created and released at random, records are rewritten,
// entities move and are reset, cameras look. The model implements only the documented behaviour.
class RandomScene {
 public:
  explicit RandomScene(uint32_t seed) : random(seed) {}

  void Step() {
    const uint32_t dice = random.Below(100);
    if (entityBatches.empty() || dice < 3) {
      AddEntityBatch();
    } else if (objectBatches.empty() || dice < 6) {
      AddObjectBatch();
    } else if (dice < 8) {
      ReleaseEntityBatch();
    } else if (dice < 9) {
      ReleaseObjectBatch();
    } else if (dice < 30) {
      MoveEntity();
    } else if (dice < 33) {
      scene.Command(random.Chance(50) ? kResetSubtree : kDeactivate, AnyEntity());
    } else if (dice < 36) {
      scene.Command(kActivate, AnyEntity());
    } else if (dice < 80) {
      RewriteRecord();
    } else {
      Look();
    }
  }

  uint32_t looks = 0;
  uint32_t seen = 0;
  uint32_t staleSpheres = 0;  // objects whose cached sphere differs from a fresh one
  uint32_t resolvedAnew = 0;  // after the release of their entity
  uint32_t rejected = 0;

 private:
  struct EntityBatch {
    uint32_t key;
    uint32_t count;
    bool isThreeD;
  };
  struct Object {
    uint32_t handle;
    uint32_t seenHandle = 0;
    uint32_t seenVersion = 0;
    std::shared_ptr<EntityBatch> held;  // batch of the entity that was found
    ReferenceSphere sphere = {0, 0, 0, 0};
  };
  typedef std::vector<Object> ObjectBatch;

  void AddEntityBatch() {
    const bool isThreeD = random.Chance(80);
    const uint32_t count = random.Chance(10) ? 1 + random.Below(60) : 1 + random.Below(6);
    const uint32_t key = scene.AddEntities(isThreeD, static_cast<int32_t>(count));
    entityBatches[key] = std::make_shared<EntityBatch>(EntityBatch{key, count, isThreeD});
  }

  void AddObjectBatch() {
    const uint32_t count = random.Chance(10) ? 1 + random.Below(700) : 1 + random.Below(9);
    const uint32_t key = scene.AddObjects(static_cast<int32_t>(count));
    ObjectBatch batch(count);
    for (uint32_t i = 0; i < count; ++i) {
      batch[i].handle = key + i;
      if (count > 20) {
        WriteRecord(key + i);
      }
    }
    objectBatches[key] = batch;
  }

  void ReleaseEntityBatch() {
    const auto batch = std::next(entityBatches.begin(), random.Below(Size(entityBatches)));
    scene.ReleaseEntities(batch->first + random.Below(batch->second->count));
    batch->second->count = 0;  // objects may still hold it
    entityBatches.erase(batch);
  }

  void ReleaseObjectBatch() {
    const auto batch = std::next(objectBatches.begin(), random.Below(Size(objectBatches)));
    scene.ReleaseObjects(batch->first);
    objectBatches.erase(batch);
  }

  void MoveEntity() {
    const uint32_t entity = AnyEntity();
    const auto batch = entityBatches.find(HandleKey(entity));
    if (batch == entityBatches.end() || HandleElement(entity) >= batch->second->count) {
      return;
    }
    if (batch->second->isThreeD) {
      Entity3DRecord& record = scene.EntityRecord(entity);
      for (int axis = 0; axis < 3; ++axis) {
        record.position[axis] = random.Real(-20, 20);
        record.scale[axis] = random.Real(-2, 2);
        record.rotation[axis] = random.Real(-3, 3);
      }
    }
    scene.Refresh(entity);
  }

  void RewriteRecord() {
    const auto batch = std::next(objectBatches.begin(), random.Below(Size(objectBatches)));
    WriteRecord(batch->second[random.Below(static_cast<uint32_t>(batch->second.size()))].handle);
  }

  void WriteRecord(uint32_t object) {
    CullingRecord& record = scene.Record(object);
    record.enabled = random.Chance(85) ? 1 : 0;
    record.mask = random.Below(8);
    for (float& number : record.center) {
      number = random.Real(-5, 5);
    }
    record.radius = random.Chance(95) ? random.Real(0, 6) : random.Odd(-1, 1);
    if (random.Chance(70)) {
      record.entity = AnyEntity();
    }
  }

  // Usually a living one; sometimes one past the end of its batch, or of no batch.
  uint32_t AnyEntity() {
    if (random.Chance(5)) {
      return random.Below(12) << 12 | random.Below(4);
    }
    const auto batch = std::next(entityBatches.begin(), random.Below(Size(entityBatches)));
    return batch->first + random.Below(batch->second->count + (random.Chance(5) ? 1 : 0));
  }

  template <typename Map>
  static uint32_t Size(const Map& map) {
    return static_cast<uint32_t>(map.size());
  }

  void Resolve(Object* object, uint32_t handle) {
    object->seenHandle = handle;
    object->seenVersion = 0;
    object->held = nullptr;
    const auto batch = entityBatches.find(HandleKey(handle));
    if (batch != entityBatches.end() && HandleElement(handle) < batch->second->count) {
      object->held = batch->second;
    }
  }

  // True if the object takes part; updates its sphere if so.
  bool TakesPart(Object* object, uint32_t mask) {
    const CullingRecord& record = scene.Record(object->handle);
    if (record.enabled == 0) {
      return false;
    }
    const bool lost = object->held != nullptr && object->held->count == 0;
    if (record.entity != object->seenHandle || lost) {
      resolvedAnew += lost && record.entity == object->seenHandle ? 1 : 0;
      Resolve(object, record.entity);
    }
    if (object->held == nullptr || !object->held->isThreeD || (record.mask & mask) == 0) {
      return false;
    }
    const Entity* entity = scene.Entities()->FindEntity(record.entity);
    const ReferenceSphere fresh =
        ReferenceWorldSphere(entity->worldMatrix(), record.center, record.radius);
    if (entity->worldVersion() != object->seenVersion) {
      object->seenVersion = entity->worldVersion();
      object->sphere = fresh;
    }
    staleSpheres += SameBits(fresh.x, object->sphere.x) ? 0 : 1;
    return true;
  }

  void Judge(Object* object, uint32_t mask, const ViewVolume& volume,
             std::vector<ReferenceHit>* hits) {
    if (!TakesPart(object, mask)) {
      return;
    }
    if (ReferenceIsVisible(volume, object->sphere)) {
      hits->push_back(ReferenceHit{object->handle, ReferenceDepth(volume, object->sphere)});
    } else {
      ++rejected;
    }
  }

  void Look() {
    ReferenceCamera camera = random.Camera(30.0f);
    camera.pose.target = random.Point(5.0f);
    const ViewVolume volume = ReferenceVolume(camera);
    const uint32_t mask = random.Chance(10) ? 0 : 1 + random.Below(7);
    std::vector<ReferenceHit> expected;
    CullResult result;
    if (random.Chance(40)) {
      Handles list(random.Below(40));
      for (uint32_t& handle : list) {
        const auto batch = std::next(objectBatches.begin(), random.Below(Size(objectBatches)));
        handle = batch->first + random.Below(static_cast<uint32_t>(batch->second.size()) + 1);
        handle = random.Chance(5) ? random.Below(0x8000) : handle;
        const auto found = objectBatches.find(HandleKey(handle));
        if (found != objectBatches.end() && HandleElement(handle) < found->second.size()) {
          Judge(&found->second[HandleElement(handle)], mask, volume, &expected);
        }
      }
      list.push_back(0);  // so that the pointer is valid
      result = scene.Cull(camera, mask, list.data(), static_cast<uint32_t>(list.size() - 1));
    } else {
      for (auto& batch : objectBatches) {
        for (Object& object : batch.second) {
          Judge(&object, mask, volume, &expected);
        }
      }
      result = scene.Cull(camera, mask, nullptr, 0);
    }
    ++looks;
    seen += static_cast<uint32_t>(expected.size());
    ASSERT_TRUE(HoldsExactly(result, expected)) << "look " << looks;
    for (auto& batch : objectBatches) {
      for (const Object& object : batch.second) {
        const CullingObject actual = scene.Object(object.handle);
        ASSERT_EQ(object.seenHandle, actual.seenEntityHandle()) << "object " << object.handle;
        ASSERT_EQ(object.seenVersion, actual.seenWorldVersion()) << "object " << object.handle;
        const bool holds = object.held != nullptr && object.held->count != 0;
        ASSERT_EQ(holds ? scene.Entities()->FindEntity(object.seenHandle) : nullptr,
                  actual.entity())
            << "object " << object.handle;
        ASSERT_TRUE(SameBits(object.sphere.x, actual.worldCenter().x) &&
                    SameBits(object.sphere.y, actual.worldCenter().y) &&
                    SameBits(object.sphere.z, actual.worldCenter().z) &&
                    SameBits(object.sphere.radius, actual.worldRadius()))
            << "object " << object.handle;
      }
    }
  }

  CullingRandom random;
  CullingScene scene;
  std::map<uint32_t, std::shared_ptr<EntityBatch>> entityBatches;
  std::map<uint32_t, ObjectBatch> objectBatches;
};

TEST(ComponentSystemRandomTest, RandomScenesMatchThePlainModel) {
  uint32_t looks = 0;
  uint32_t seen = 0;
  uint32_t rejected = 0;
  uint32_t staleSpheres = 0;
  uint32_t resolvedAnew = 0;
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    RandomScene scene(seed);
    for (int step = 0; step < 1500; ++step) {
      scene.Step();
      if (::testing::Test::HasFatalFailure()) {
        FAIL() << "seed " << seed << ", step " << step;
      }
    }
    looks += scene.looks;
    seen += scene.seen;
    rejected += scene.rejected;
    staleSpheres += scene.staleSpheres;
    resolvedAnew += scene.resolvedAnew;
  }
  // The rare cases have occurred.
  EXPECT_GT(looks, 2000u);
  EXPECT_GT(seen, 20000u);
  EXPECT_GT(rejected, 20000u);
  EXPECT_GT(staleSpheres, 1000u);
  EXPECT_GT(resolvedAnew, 200u);
}

}  // namespace
}  // namespace nq::engine
