// The core: creation of systems on first use, count limits, and destruction.
#include "Engine/Entity/EngineCore.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "Common/Def/WorkerPool.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

// The number of threads of this process.
int ThreadCount() {
  DIR* tasks = opendir("/proc/self/task");
  int count = 0;
  while (const dirent* entry = readdir(tasks)) {
    count += entry->d_name[0] == '.' ? 0 : 1;
  }
  closedir(tasks);
  return count;
}

// The ID of the next block: the number of blocks ever allocated.
uint32_t NextMemoryID(EngineRuntime* runtime) {
  const MemoryBlock block = runtime->Allocate(16);
  runtime->Release(block);
  return block.memoryID;
}

class EngineCoreTest : public WorldTest {};

void ExpectNothing(const NativeValueInfo& info) {
  EXPECT_EQ(0u, info.handle);
  EXPECT_EQ(0u, info.size);
  EXPECT_EQ(0u, info.memoryID);
  EXPECT_EQ(nullptr, info.pointer);
}

// Takes all handles of a table and expects the next creation to be refused with a log line and
// nothing else; then `check`, while none is left. Releases all.
void ExpectRefusalWithoutHandles(
    const std::function<uint32_t()>& create, const std::function<void(uint32_t)>& release,
    const std::function<void()>& check = [] {}) {
  for (uint32_t slot = 1; slot < kHandleSlotLimit; ++slot) {
    ASSERT_EQ(slot << kHandleElementBits, create());
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(0u, create());
  EXPECT_EQ("[NQ_WARN][HandlerAllocator]: Handler overflow",
            testing::internal::GetCapturedStdout());
  check();
  testing::internal::CaptureStdout();  // a line for each
  for (uint32_t slot = 1; slot < kHandleSlotLimit; ++slot) {
    release(slot << kHandleElementBits);
  }
  testing::internal::GetCapturedStdout();
}

}  // namespace

TEST_F(EngineCoreTest, ANewCoreUsesNeitherMemoryNorThreads) {
  const int threads = ThreadCount();
  World fresh;
  EXPECT_EQ(0u, NextMemoryID(fresh.Runtime()));
  EXPECT_EQ(threads, ThreadCount());
}

TEST_F(EngineCoreTest, TheEntitySystemAllocatesItsTwoBuffersAndTheFirstPool) {
  // A sanitizer starts its own thread together with the first one of the program.
  WorkerPool other(1);
  const int threads = ThreadCount();
  EXPECT_EQ(0u, world.Core()->DirtyEntitiesBlock().memoryID);
  EXPECT_EQ(1u, world.Core()->EntityCommandsBlock().memoryID);
  EXPECT_EQ(49152u, world.Core()->DirtyEntitiesBlock().size);
  EXPECT_EQ(49152u, world.Core()->EntityCommandsBlock().size);
  EXPECT_EQ(2u, NextMemoryID(world.Runtime()));
  EXPECT_EQ(threads + 4, ThreadCount());
}

TEST_F(EngineCoreTest, RefusedCountsCreateNoSystem) {
  const int threads = ThreadCount();
  for (const int32_t count : {0, -1, INT_MIN, 4096, 4097, INT_MAX}) {
    SCOPED_TRACE(count);
    ExpectNothing(world.Core()->CreateEntities2D(count));
    ExpectNothing(world.Core()->CreateEntities3D(count));
  }
  EXPECT_EQ(0u, NextMemoryID(world.Runtime()));
  EXPECT_EQ(threads, ThreadCount());
  EXPECT_EQ(1u, world.Core()->ReferenceCount());
}

TEST_F(EngineCoreTest, ABatchHolds4095EntitiesAtMost) {
  const NativeValueInfo info = world.AddRaw(true, 4095);
  EXPECT_EQ(0x1000u, info.handle);
  EXPECT_EQ(4095u * 108u, info.size);
  EXPECT_EQ(2u, info.memoryID);
  for (uint32_t element = 0; element < 4095; ++element) {
    const Entity* entity = world.System()->FindEntity(info.handle + element);
    ASSERT_NE(nullptr, entity);
    ASSERT_EQ(0x1000u + element, entity->handle);
    ASSERT_EQ(static_cast<uint8_t*>(info.pointer) + element * 108, entity->sharedRecord());
  }
  EXPECT_EQ(nullptr, world.System()->FindEntity(info.handle + 4095));
  ExpectNothing(world.AddRaw(true, 4096));
  EXPECT_EQ(0x2000u, world.AddRaw(false, 4095).handle);
}

TEST_F(EngineCoreTest, ReleaseOnASystemNeverUsedCreatesIt) {
  world.Core()->ReleaseEntities(0x1000);
  EXPECT_EQ(2u, NextMemoryID(world.Runtime()));
  EXPECT_EQ(1u, world.Core()->ReferenceCount());
}

TEST_F(EngineCoreTest, EveryForwardingCallCreatesTheEntitySystem) {
  using Forward = void (*)(EngineCore*);
  const Forward forwards[] = {
      [](EngineCore* core) { core->SetEntityName(0x1000, "nobody"); },
      [](EngineCore* core) { core->DirtyEntitiesBlock(); },
      [](EngineCore* core) { core->EntityCommandsBlock(); },
      [](EngineCore* core) { core->RefreshWorldTransform(); },
      [](EngineCore* core) { core->RefreshEntity(0x1000); },
  };
  for (const Forward forward : forwards) {
    World fresh;
    forward(fresh.Core());
    EXPECT_EQ(2u, NextMemoryID(fresh.Runtime()));
  }
}

TEST_F(EngineCoreTest, EachAccessorReturnsOneSystemThatKnowsItsCore) {
  EngineCore* core = world.Core();
  EXPECT_EQ(core->Entities(), core->Entities());
  EXPECT_EQ(core->Components(), core->Components());
  EXPECT_EQ(core->Animation(), core->Animation());
  EXPECT_EQ(core->MatrixFlow(), core->MatrixFlow());
  EXPECT_EQ(core, core->Entities()->core);
  EXPECT_EQ(1u, core->ReferenceCount());
}

TEST_F(EngineCoreTest, OtherSystemsDoNotCreateTheEntitySystem) {
  world.Core()->Components();
  world.Core()->Animation();
  world.Core()->MatrixFlow();
  EXPECT_EQ(0u, NextMemoryID(world.Runtime()));
}

TEST_F(EngineCoreTest, BatchesHoldTheCoreAndTheCoreHoldsTheRuntime) {
  EXPECT_EQ(2u, world.Runtime()->ReferenceCount());
  const uint32_t first = world.Add3D(3);
  world.Add2D();
  EXPECT_EQ(3u, world.Core()->ReferenceCount());
  EXPECT_EQ(2u, world.Runtime()->ReferenceCount());
  world.Release(first);
  EXPECT_EQ(2u, world.Core()->ReferenceCount());
}

TEST_F(EngineCoreTest, AReleasedKeyIsReused) {
  const uint32_t first = world.Add3D();
  const uint32_t second = world.Add3D();
  EXPECT_EQ(0x1000u, first);
  EXPECT_EQ(0x2000u, second);
  world.Release(first);
  world.Release(second);
  EXPECT_EQ(0x2000u, world.Add2D(2));
  EXPECT_EQ(0x1000u, world.Add2D(2));
  EXPECT_FALSE(world.At(0x2001).isThreeD());
}

TEST_F(EngineCoreTest, TablesOfTheRuntimeAndOfTwoCoresIssueHandlesIndependently) {
  EngineCore* other = new EngineCore(world.Runtime());
  const uint32_t entities = world.Add3D(2);
  const uint32_t otherEntities = other->CreateEntities2D(5).handle;
  const NativeValueInfo value = world.Runtime()->CreateValue(32);
  EXPECT_EQ(0x1000u, entities);
  EXPECT_EQ(0x1000u, otherEntities);
  EXPECT_EQ(0x1000u, value.handle);
  EXPECT_TRUE(world.At(entities).isThreeD());
  EXPECT_FALSE(other->Entities()->FindEntity(otherEntities)->isThreeD());
  EXPECT_EQ(nullptr, world.System()->FindEntity(0x1002));
  EXPECT_NE(nullptr, other->Entities()->FindEntity(0x1002));

  testing::internal::CaptureStdout();
  world.Runtime()->ReleaseValue(value.handle);
  EXPECT_EQ("[NQ_INFO][OPV]: NativeValue 4096 dealloc\n", testing::internal::GetCapturedStdout());
  EXPECT_NE(nullptr, world.System()->FindEntity(entities));
  other->ReleaseEntities(otherEntities);
  EXPECT_EQ(nullptr, other->Entities()->FindEntity(otherEntities));
  EXPECT_NE(nullptr, world.System()->FindEntity(entities));
  other->DropReference();
}

// The next three destroy the core inside a release; AddressSanitizer checks later accesses.
#if !defined(NQ_TEST_UNDER_ADDRESS_SANITIZER) && !defined(NQ_TEST_UNDER_THREAD_SANITIZER)
// A million batches take a gigabyte, under a sanitizer several.
TEST_F(EngineCoreTest, WithoutHandlesNoBatchOfEntitiesIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles([=] { return core->CreateEntities2D(1).handle; },
                              [=](uint32_t handle) { core->ReleaseEntities(handle); },
                              [=] {
                                const uint32_t next = NextMemoryID(world.Runtime());
                                testing::internal::CaptureStdout();
                                ExpectNothing(core->CreateEntities3D(1));
                                testing::internal::GetCapturedStdout();
                                EXPECT_EQ(next + 1, NextMemoryID(world.Runtime()))
                                    << "no block was taken";
                              });
}

TEST_F(EngineCoreTest, WithoutHandlesNoBatchOfCullingObjectsIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles([=] { return core->CreateCullingComponent(1).handle; },
                              [=](uint32_t handle) { core->ReleaseCullingComponent(handle); },
                              [=] {
                                testing::internal::CaptureStdout();
                                ExpectNothing(core->CreateCullingComponent(1));
                                testing::internal::GetCapturedStdout();
                              });
}
#endif

TEST_F(EngineCoreTest, WithoutHandlesNoAnimatorIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles([=] { return core->CreateAnimatorComponent(1, 1).handle; },
                              [=](uint32_t handle) { core->ReleaseAnimatorComponent(handle); },
                              [=] {
                                testing::internal::CaptureStdout();
                                ExpectNothing(core->CreateAnimatorComponent(1, 1));
                                testing::internal::GetCapturedStdout();
                              });
}

TEST_F(EngineCoreTest, WithoutHandlesNoSkinningComponentIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles(
      [=] { return core->CreateSkinningMatrixComponent(1).handle; },
      [=](uint32_t handle) { core->ReleaseSkinningMatrixComponent(handle); });
}

TEST_F(EngineCoreTest, WithoutHandlesNoBindingIsCreated) {
  EngineCore* core = world.Core();
  const uint32_t lists[] = {1, 0};
  const auto* bytes = reinterpret_cast<const uint8_t*>(lists);
  ExpectRefusalWithoutHandles([=] { return core->CreateAnimationClipBinding(bytes, 0, 1, 1, 0); },
                              [=](uint32_t handle) { core->ReleaseAnimationClipBinding(handle); });
}

TEST_F(EngineCoreTest, WithoutHandlesNoClipIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles([=] { return core->CreateAnimationClipModel(nullptr, 0); },
                              [=](uint32_t handle) { core->ReleaseAnimationClipModel(handle); });
}

TEST_F(EngineCoreTest, WithoutHandlesNoBonesModelIsCreated) {
  EngineCore* core = world.Core();
  ExpectRefusalWithoutHandles(
      [=] { return core->CreateSkeletonBonesInverseModel(nullptr, 0); },
      [=](uint32_t handle) { core->ReleaseSkeletonBonesInverseModel(handle); });
}

TEST(EngineCoreEndTest, ReleaseOfTheLastBatchDeletesTheCoreInsideTheCall) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
  EngineCore* core = new EngineCore(runtime);
  const uint32_t batch = core->CreateEntities3D(7).handle;
  core->Components();
  core->Animation();
  core->MatrixFlow();
  core->DropReference();
  EXPECT_EQ(2u, runtime->ReferenceCount());
  core->ReleaseEntities(batch + 3);
  EXPECT_EQ(1u, runtime->ReferenceCount());
  // Both buffers and the batch's block are released.
  EXPECT_EQ(nullptr, runtime->FindBlock(0).pointer);
  EXPECT_EQ(nullptr, runtime->FindBlock(1).pointer);
  EXPECT_EQ(nullptr, runtime->FindBlock(2).pointer);
  EXPECT_EQ(3u, NextMemoryID(runtime));
  runtime->DropReference();
}

TEST(EngineCoreEndTest, TheCoreLivesUntilTheLastOfSeveralBatchesIsReleased) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
  EngineCore* core = new EngineCore(runtime);
  const uint32_t first = core->CreateEntities3D(2).handle;
  const uint32_t second = core->CreateEntities3D(2).handle;
  EntitySystem* system = core->Entities();
  system->AddRoot(first);
  system->AddChild(first, second);
  system->BindToBone(second + 1, first + 1);
  core->DropReference();
  core->ReleaseEntities(first);
  EXPECT_EQ(1u, core->ReferenceCount());
  EXPECT_EQ(nullptr, system->FindEntity(second)->parent());
  core->ReleaseEntities(second);
  EXPECT_EQ(1u, runtime->ReferenceCount());
  runtime->DropReference();
}

TEST(EngineCoreEndTest, TheCoreDropsTheLastReferenceOnTheRuntime) {
  EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
  EngineCore* core = new EngineCore(runtime);
  const uint32_t batch = core->CreateEntities2D(1).handle;
  const int threads = ThreadCount();
  runtime->DropReference();
  core->DropReference();
  core->ReleaseEntities(batch);
  EXPECT_EQ(threads - 4, ThreadCount());
}

}  // namespace nq::engine
