// The runtime: memory, native values and views, pools, shutdown, object counts.
#include "Common/Def/EngineRuntime.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tests/native/Common/Def/Probe.h"

namespace nq::engine {
namespace {

// Discards standard output for a scope.
class Silence {
 public:
  Silence() {
    std::fflush(stdout);
    saved = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~Silence() {
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
  }

 private:
  int saved;
};

class EngineRuntimeTest : public testing::Test {
 protected:
  EngineRuntimeTest() : runtime(new EngineRuntime(new MemoryAllocator)) {}

  ~EngineRuntimeTest() override {
    if (runtime != nullptr) {
      testing::internal::CaptureStdout();
      delete runtime;  // with any remaining values
      testing::internal::GetCapturedStdout();
    }
  }

  // Releases the value and returns what that printed.
  std::string Release(uint32_t handle) {
    testing::internal::CaptureStdout();
    runtime->ReleaseValue(handle);
    return testing::internal::GetCapturedStdout();
  }

  static std::string Line(uint32_t handle) {
    return "[NQ_INFO][OPV]: NativeValue " + std::to_string(handle) + " dealloc\n";
  }

  static bool IsNoBlock(const MemoryBlock& block) {
    return block.size == 0 && block.memoryID == 0 && block.pointer == nullptr;
  }

  static bool IsNoValue(const NativeValueInfo& info) {
    return info.handle == 0 && info.size == 0 && info.memoryID == 0 && info.pointer == nullptr;
  }

  EngineRuntime* runtime;
};

TEST_F(EngineRuntimeTest, AFreshRuntimeHasOneReferenceAndIsItsOwnRuntime) {
  EXPECT_EQ(runtime->ReferenceCount(), 1u);
  EXPECT_EQ(runtime->Runtime(), runtime);
  EXPECT_FALSE(runtime->IsDisposed());
  EXPECT_FALSE(runtime->TracksObjects());
  EXPECT_TRUE(runtime->ObjectCounts().empty());
}

TEST_F(EngineRuntimeTest, MemoryIsForwardedToTheAllocator) {
  const MemoryBlock block = runtime->Allocate(40);
  EXPECT_EQ(block.size, 40u);
  EXPECT_EQ(block.memoryID, 0u);
  EXPECT_EQ(runtime->FindBlock(0).pointer, block.pointer);
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(1)));
  runtime->Release(block);
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(0)));
  EXPECT_EQ(runtime->Allocate(40).pointer, block.pointer);
  EXPECT_TRUE(IsNoBlock(runtime->Allocate(0)));
}

// Values

TEST_F(EngineRuntimeTest, AValueHasAHandleAndAZeroedBlock) {
  runtime->Allocate(1);
  const NativeValueInfo info = runtime->CreateValue(48);
  EXPECT_EQ(info.handle, 0x1000u);
  EXPECT_EQ(info.size, 48u);
  EXPECT_EQ(info.memoryID, 1u);
  const uint8_t zeros[48] = {};
  EXPECT_EQ(std::memcmp(info.pointer, zeros, 48), 0);
  EXPECT_EQ(runtime->FindBlock(1).pointer, info.pointer);
  EXPECT_EQ(runtime->ReferenceCount(), 2u);

  const NativeValue* value = runtime->FindValue(0x1000);
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->data, info.pointer);
  EXPECT_EQ(value->owner, runtime);
  EXPECT_EQ(runtime->FindValue(0x2000), nullptr);
}

TEST_F(EngineRuntimeTest, AValueOfSizeZeroIsRefusedAndUsesNoHandle) {
  EXPECT_TRUE(IsNoValue(runtime->CreateValue(0)));
  EXPECT_EQ(runtime->ReferenceCount(), 1u);
  EXPECT_EQ(runtime->CreateValue(1).handle, 0x1000u);
}

TEST_F(EngineRuntimeTest, ReleasingAValueFreesItsBlockAndPrintsALine) {
  const NativeValueInfo info = runtime->CreateValue(48);
  EXPECT_EQ(Release(info.handle), Line(4096));
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(info.memoryID)));
  EXPECT_EQ(runtime->FindValue(info.handle), nullptr);
  EXPECT_EQ(runtime->ReferenceCount(), 1u);

  EXPECT_EQ(Release(info.handle), "") << "unknown by now";
  EXPECT_EQ(Release(0), "");
  EXPECT_EQ(runtime->ReferenceCount(), 1u);

  const NativeValueInfo next = runtime->CreateValue(48);
  EXPECT_EQ(next.handle, info.handle);
  EXPECT_EQ(next.pointer, info.pointer);
  EXPECT_EQ(next.memoryID, 1u);
}

// Views

TEST_F(EngineRuntimeTest, AViewOfNoLiveBlockIsRefusedAndUsesNoHandle) {
  const NativeValueInfo info = runtime->CreateValue(64);
  EXPECT_TRUE(IsNoValue(runtime->CreateView(nullptr, 0, 4)));
  EXPECT_TRUE(IsNoValue(runtime->CreateView(static_cast<char*>(info.pointer) + 4, 0, 4)));
  EXPECT_EQ(runtime->ReferenceCount(), 2u);
  EXPECT_EQ(runtime->CreateValue(1).handle, 0x2000u);
}

TEST_F(EngineRuntimeTest, AViewIsASecondHandleOnPartOfABlock) {
  runtime->Allocate(1);
  const NativeValueInfo whole = runtime->CreateValue(64);
  const NativeValueInfo view = runtime->CreateView(whole.pointer, 16, 32);
  EXPECT_EQ(view.handle, 0x2000u);
  EXPECT_EQ(view.size, 32u);
  EXPECT_EQ(view.memoryID, 0u);
  EXPECT_EQ(view.pointer, static_cast<char*>(whole.pointer) + 16);
  EXPECT_EQ(runtime->FindValue(view.handle)->data, view.pointer);
  EXPECT_EQ(runtime->FindValue(view.handle)->viewBase, whole.pointer);
}

TEST_F(EngineRuntimeTest, TheMemoryLivesUntilBothValueAndViewAreReleased) {
  runtime->Allocate(1);
  const NativeValueInfo whole = runtime->CreateValue(64);
  const NativeValueInfo view = runtime->CreateView(whole.pointer, 16, 32);
  std::memset(view.pointer, 0xAB, 32);
  EXPECT_EQ(Release(whole.handle), Line(4096));
  EXPECT_EQ(runtime->FindBlock(whole.memoryID).pointer, whole.pointer) << "still live";
  EXPECT_NE(runtime->Allocate(64).pointer, whole.pointer);
  EXPECT_EQ(static_cast<uint8_t*>(view.pointer)[31], 0xAB);
  EXPECT_EQ(Release(view.handle), Line(8192));
  EXPECT_EQ(runtime->Allocate(64).pointer, whole.pointer) << "free again";
}

TEST_F(EngineRuntimeTest, ReleasingAViewFirstDoesNotAffectTheValue) {
  const MemoryBlock first = runtime->Allocate(1);
  const NativeValueInfo whole = runtime->CreateValue(64);
  const NativeValueInfo view = runtime->CreateView(whole.pointer, 16, 32);
  Release(view.handle);
  EXPECT_EQ(runtime->FindBlock(0).pointer, first.pointer);
  EXPECT_EQ(runtime->FindBlock(whole.memoryID).pointer, whole.pointer);
  EXPECT_NE(runtime->Allocate(64).pointer, whole.pointer);
  Release(whole.handle);
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(whole.memoryID)));
}

// Kept on purpose: a view's record has a memoryID of 0, and the record decides which entry is
// removed. Programs rely on which IDs resolve.
TEST_F(EngineRuntimeTest, TheLastReleaseThroughAViewRemovesTheEntryOfMemoryIDZero) {
  const MemoryBlock first = runtime->Allocate(8);
  ASSERT_EQ(first.memoryID, 0u);
  const NativeValueInfo whole = runtime->CreateValue(64);
  const NativeValueInfo view = runtime->CreateView(whole.pointer, 0, 64);
  Release(whole.handle);
  EXPECT_EQ(runtime->FindBlock(0).pointer, first.pointer);
  Release(view.handle);
  EXPECT_TRUE(IsNoBlock(runtime->FindBlock(0))) << "though that block is live";
  EXPECT_EQ(runtime->FindBlock(whole.memoryID).pointer, whole.pointer) << "though it is free";
}

TEST_F(EngineRuntimeTest, WithoutHandlesCreationFailsAndAFailedViewKeepsNoReference) {
  const MemoryBlock block = runtime->Allocate(16);
  uint32_t created = 0;
  while (created < 0xFFFFF && runtime->CreateView(block.pointer, 0, 4).handle != 0) {
    ++created;
  }
  ASSERT_EQ(created, 0xFFFFFu);

  testing::internal::CaptureStdout();
  EXPECT_TRUE(IsNoValue(runtime->CreateValue(16)));
  EXPECT_TRUE(IsNoValue(runtime->CreateView(block.pointer, 0, 4)));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[NQ_WARN][HandlerAllocator]: Handler overflow"
            "[NQ_WARN][HandlerAllocator]: Handler overflow");
  EXPECT_EQ(runtime->Allocate(16).memoryID, 1u) << "no block was taken for a value";

  {
    const Silence silence;
    for (uint32_t slot = 1; slot <= created; ++slot) {
      runtime->ReleaseValue(slot << 12);
    }
  }
  EXPECT_EQ(runtime->ReferenceCount(), 1u);
  // All references of views are released, including the failed one's: ours is the last.
  EXPECT_EQ(runtime->FindBlock(0).pointer, block.pointer);
  runtime->Release(block);
  EXPECT_TRUE(IsNoValue(runtime->CreateView(block.pointer, 0, 4)));
}

// Pools

TEST_F(EngineRuntimeTest, ThePoolsAreCreatedLazilyWithFourOneAndOneThreads) {
  WorkerPool* first = runtime->FirstPool();
  WorkerPool* second = runtime->SecondPool();
  WorkerPool* third = runtime->ThirdPool();
  EXPECT_EQ(first->ThreadCount(), 4u);
  EXPECT_EQ(second->ThreadCount(), 1u);
  EXPECT_EQ(third->ThreadCount(), 1u);
  EXPECT_NE(second, third);
  EXPECT_EQ(runtime->FirstPool(), first);
  EXPECT_EQ(runtime->SecondPool(), second);
  EXPECT_EQ(runtime->ThirdPool(), third);
}

TEST_F(EngineRuntimeTest, StoppingStopsEveryPoolThatExists) {
  runtime->StopPools();
  EXPECT_FALSE(Refuses(runtime->SecondPool())) << "made afterwards";
  runtime->FirstPool();
  runtime->StopPools();
  EXPECT_TRUE(Refuses(runtime->FirstPool()));
  EXPECT_TRUE(Refuses(runtime->SecondPool()));
  EXPECT_FALSE(Refuses(runtime->ThirdPool()));
  runtime->StopPools();
  EXPECT_TRUE(Refuses(runtime->ThirdPool()));
}

TEST_F(EngineRuntimeTest, PoolsStopInTheOrderOfTheirSlots) {
  WorkerPool* first = runtime->FirstPool();
  WorkerPool* second = runtime->SecondPool();
  std::atomic<bool> running{false};
  std::atomic<bool> release{false};
  Task task([&] {
    running = true;
    SpinUntil(release);
  });
  first->PostAll(&task, 1);
  SpinUntil(running);

  std::thread stopper([this] { runtime->StopPools(); });
  while (!Refuses(first)) {
    SleepMilliseconds(1);
  }
  // The first pool is being stopped and waits for its task; the second is not stopped yet.
  EXPECT_FALSE(Refuses(second));
  release = true;
  stopper.join();
  EXPECT_TRUE(Refuses(second));
}

// Shutdown

class RecordingListener : public RuntimeListener {
 public:
  RecordingListener(std::vector<int>* calls, int number) : calls(calls), number(number) {}
  void OnShutdown() override {
    calls->push_back(number);
    if (action) {
      action();
    }
  }
  std::function<void()> action;

 private:
  std::vector<int>* const calls;
  const int number;
};

TEST_F(EngineRuntimeTest, ShutdownCallsTheListenersOnceInOrderOfRegistration) {
  std::vector<int> calls;
  RecordingListener a(&calls, 1);
  RecordingListener b(&calls, 2);
  RecordingListener c(&calls, 3);
  runtime->AddListener(&b);
  runtime->AddListener(nullptr);
  runtime->AddListener(&c);
  runtime->AddListener(&a);
  runtime->AddListener(&b);
  EXPECT_TRUE(calls.empty());
  runtime->Shutdown();
  EXPECT_THAT(calls, testing::ElementsAre(2, 3, 1, 2));
  EXPECT_TRUE(runtime->IsDisposed());
  runtime->Shutdown();
  EXPECT_EQ(calls.size(), 4u);
}

TEST_F(EngineRuntimeTest, RemovingAListenerRemovesEveryOccurrence) {
  std::vector<int> calls;
  RecordingListener a(&calls, 1);
  RecordingListener b(&calls, 2);
  for (RecordingListener* listener : {&a, &b, &a, &a, &b}) {
    runtime->AddListener(listener);
  }
  runtime->RemoveListener(&a);
  runtime->RemoveListener(nullptr);
  runtime->Shutdown();
  EXPECT_THAT(calls, testing::ElementsAre(2, 2));
}

TEST_F(EngineRuntimeTest, ListenersAreNotifiedAfterThePoolsHaveStopped) {
  WorkerPool* pool = runtime->FirstPool();
  std::vector<int> calls;
  RecordingListener a(&calls, 1);
  bool disposed = false;
  bool stopped = false;
  a.action = [&] {
    disposed = runtime->IsDisposed();
    stopped = Refuses(pool);
    runtime->Shutdown();
  };
  runtime->AddListener(&a);
  runtime->Shutdown();
  EXPECT_TRUE(disposed);
  EXPECT_TRUE(stopped);
  EXPECT_THAT(calls, testing::ElementsAre(1)) << "a shutdown within the shutdown does nothing";
}

TEST_F(EngineRuntimeTest, AListenerMayAddAndRemoveListeners) {
  std::vector<int> calls;
  RecordingListener a(&calls, 1);
  RecordingListener b(&calls, 2);
  RecordingListener late(&calls, 3);
  a.action = [&] {
    runtime->RemoveListener(&b);
    for (int i = 0; i < 100; ++i) {
      runtime->AddListener(&late);
    }
  };
  runtime->AddListener(&a);
  runtime->AddListener(&b);
  runtime->Shutdown();
  EXPECT_EQ(calls.size(), 101u);
  EXPECT_EQ(calls.front(), 1);
  EXPECT_EQ(calls[1], 3);
}

TEST_F(EngineRuntimeTest, AfterShutdownMemoryAndValuesStillWork) {
  runtime->Shutdown();
  const NativeValueInfo info = runtime->CreateValue(16);
  EXPECT_EQ(info.handle, 0x1000u);
  EXPECT_EQ(Release(info.handle), Line(4096));
}

// Object counts

TEST_F(EngineRuntimeTest, ObjectsAreCountedByClassName) {
  using Counts = std::map<std::string, int32_t>;
  runtime->CountObject("Engine");
  runtime->CountObject("EngineEntity");
  runtime->CountObject("EngineEntity");
  EXPECT_EQ(runtime->ObjectCounts(), (Counts{{"Engine", 1}, {"EngineEntity", 2}}));
  runtime->UncountObject("EngineEntity");
  runtime->UncountObject("Engine");
  EXPECT_EQ(runtime->ObjectCounts(), (Counts{{"Engine", 0}, {"EngineEntity", 1}}));
}

TEST_F(EngineRuntimeTest, ACountNeverFallsBelowZeroAndUncountingAddsNoEntry) {
  using Counts = std::map<std::string, int32_t>;
  runtime->UncountObject("Engine");
  EXPECT_TRUE(runtime->ObjectCounts().empty());
  runtime->CountObject("Engine");
  runtime->UncountObject("Engine");
  runtime->UncountObject("Engine");
  EXPECT_EQ(runtime->ObjectCounts(), (Counts{{"Engine", 0}}));
  runtime->CountObject("Engine");
  EXPECT_EQ(runtime->ObjectCounts(), (Counts{{"Engine", 1}}));
}

TEST_F(EngineRuntimeTest, EnablingClearsTheCountsAndDisablingKeepsThem) {
  using Counts = std::map<std::string, int32_t>;
  runtime->CountObject("Engine");
  runtime->EnableObjectTracking();
  EXPECT_TRUE(runtime->TracksObjects());
  EXPECT_TRUE(runtime->ObjectCounts().empty());
  runtime->CountObject("EngineComponent");
  runtime->DisableObjectTracking();
  EXPECT_FALSE(runtime->TracksObjects());
  EXPECT_EQ(runtime->ObjectCounts(), (Counts{{"EngineComponent", 1}}));
  runtime->EnableObjectTracking();
  EXPECT_TRUE(runtime->ObjectCounts().empty());
}

// Destruction

TEST_F(EngineRuntimeTest, ARuntimeLivesUntilItsLastValueIsReleased) {
  const NativeValueInfo info = runtime->CreateValue(16);
  EngineRuntime* dropped = runtime;
  runtime = nullptr;
  dropped->FirstPool();
  dropped->DropReference();
  EXPECT_EQ(dropped->ReferenceCount(), 1u) << "the value's";
  testing::internal::CaptureStdout();
  dropped->ReleaseValue(info.handle);  // deletes the runtime; a sanitizer reports it otherwise
  EXPECT_EQ(testing::internal::GetCapturedStdout(), Line(4096));
}

TEST_F(EngineRuntimeTest, RemainingValuesAreDestroyedWithTheRuntime) {
  const NativeValueInfo small = runtime->CreateValue(16);
  runtime->CreateView(small.pointer, 0, 8);
  runtime->CreateValue(640);
  testing::internal::CaptureStdout();
  delete runtime;
  runtime = nullptr;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), Line(4096) + Line(8192) + Line(12288));
}

TEST_F(EngineRuntimeTest, EveryRuntimeHasItsOwnMemoryHandlesAndPools) {
  auto* other = new EngineRuntime(new MemoryAllocator);
  EXPECT_EQ(runtime->CreateValue(16).handle, 0x1000u);
  const NativeValueInfo info = other->CreateValue(16);
  EXPECT_EQ(info.handle, 0x1000u);
  EXPECT_EQ(info.memoryID, 0u);
  EXPECT_NE(info.pointer, runtime->FindBlock(0).pointer);
  EXPECT_NE(other->FirstPool(), runtime->FirstPool());
  testing::internal::CaptureStdout();
  delete other;
  testing::internal::GetCapturedStdout();
  EXPECT_FALSE(Refuses(runtime->FirstPool()));
}

}  // namespace
}  // namespace nq::engine
