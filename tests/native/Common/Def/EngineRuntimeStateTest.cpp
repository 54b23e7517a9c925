// The destruction order of a runtime's parts.
#include "Common/Def/EngineRuntimeState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "tests/native/Common/Def/Probe.h"

namespace nq::engine {
namespace {

class EngineRuntimeStateTest : public testing::Test {
 protected:
  EngineRuntimeStateTest() : runtime(new EngineRuntime(new MemoryAllocator)) {}
  ~EngineRuntimeStateTest() override { runtime->DropReference(); }

  EngineRuntime* runtime;  // serves as the owner of the values
};

TEST_F(EngineRuntimeStateTest, AFreshStateHasNoPoolsAndNoValues) {
  auto* allocator = new MemoryAllocator;
  const EngineRuntimeState state(runtime, allocator);
  EXPECT_EQ(state.allocator.get(), allocator);
  EXPECT_EQ(state.handlers.Count(), 0u);
  for (const std::unique_ptr<WorkerPool>& pool : state.pools) {
    EXPECT_EQ(pool, nullptr);
  }
}

TEST_F(EngineRuntimeStateTest, TheAllocatorIsDestroyedFirstThenThePoolsThenTheValues) {
  auto* state = new EngineRuntimeState(runtime, new MemoryAllocator);
  EXPECT_EQ(state->handlers.Allocate()->handle, 0x1000u);
  EXPECT_EQ(state->handlers.Allocate()->handle, 0x2000u);
  EXPECT_EQ(runtime->ReferenceCount(), 3u);

  // In each pool a task is left in the queue; its destructor records what still exists then.
  std::vector<std::string> events;
  {
    std::vector<std::unique_ptr<BusyUntilStop>> busy;
    for (size_t slot = 0; slot < 3; ++slot) {
      state->pools[slot] = std::make_unique<WorkerPool>(1);
      busy.push_back(std::make_unique<BusyUntilStop>(state->pools[slot].get()));
      Task left(Probe([] {},
                      [state, slot, &events, started = busy.back().get()] {
                        events.push_back("pool " + std::to_string(slot) + " goes" +
                                         (started->Ended() ? " stopped" : "") +
                                         (state->allocator == nullptr ? ", no allocator, "
                                                                      : ", an allocator, ") +
                                         std::to_string(state->handlers.Count()) + " values");
                      }));
      state->pools[slot]->PostAll(&left, 1);
    }
    for (const std::unique_ptr<BusyUntilStop>& one : busy) {
      one->Watch();
    }
    testing::internal::CaptureStdout();
    delete state;
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[NQ_INFO][OPV]: NativeValue 4096 dealloc\n"
            "[NQ_INFO][OPV]: NativeValue 8192 dealloc\n");
  EXPECT_THAT(events, testing::ElementsAre("pool 0 goes stopped, no allocator, 2 values",
                                           "pool 1 goes stopped, no allocator, 2 values",
                                           "pool 2 goes stopped, no allocator, 2 values"));
  EXPECT_EQ(runtime->ReferenceCount(), 1u);
}

}  // namespace
}  // namespace nq::engine
