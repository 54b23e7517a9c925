// Tasks: a callable stored inline, run, moved and destroyed.
#include "Common/Def/Task.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace nq::engine {
namespace {

// Counts operations on a callable. Moved-from instances are not counted.
struct Counts {
  int runs = 0;
  int destroyed = 0;
};

class CountingCallable {
 public:
  explicit CountingCallable(Counts* counts) : counts(counts) {}
  CountingCallable(CountingCallable&& other) noexcept
      : counts(std::exchange(other.counts, nullptr)) {}
  ~CountingCallable() {
    if (counts != nullptr) {
      ++counts->destroyed;
    }
  }
  void operator()() { ++counts->runs; }

 private:
  Counts* counts;
};

int freeFunctionRuns = 0;
void FreeFunction() {
  ++freeFunctionRuns;
}

TEST(TaskTest, ATaskRunsItsCallableAsOftenAsItIsCalled) {
  Counts counts;
  Task task{CountingCallable(&counts)};
  EXPECT_EQ(counts.runs, 0);
  task();
  task();
  EXPECT_EQ(counts.runs, 2);
  EXPECT_TRUE(static_cast<bool>(task)) << "it keeps the callable";
}

TEST(TaskTest, TheCallableIsDestroyedOnceWithTheTask) {
  Counts counts;
  {
    Task task{CountingCallable(&counts)};
    EXPECT_EQ(counts.destroyed, 0);
  }
  EXPECT_EQ(counts.destroyed, 1);
}

TEST(TaskTest, MovingFromATaskLeavesItEmpty) {
  Counts counts;
  {
    Task first{CountingCallable(&counts)};
    Task second(std::move(first));
    EXPECT_FALSE(static_cast<bool>(first));  // NOLINT(bugprone-use-after-move): that is the test
    EXPECT_TRUE(static_cast<bool>(second));
    second();
    EXPECT_EQ(counts.runs, 1);
    EXPECT_EQ(counts.destroyed, 0);
  }
  EXPECT_EQ(counts.destroyed, 1);
}

TEST(TaskTest, AssigningDestroysTheOldCallable) {
  Counts old;
  Counts fresh;
  Task task{CountingCallable(&old)};
  Task other{CountingCallable(&fresh)};
  task = std::move(other);
  EXPECT_EQ(old.destroyed, 1);
  EXPECT_EQ(fresh.destroyed, 0);
  EXPECT_FALSE(static_cast<bool>(other));  // NOLINT(bugprone-use-after-move)
  task();
  EXPECT_EQ(fresh.runs, 1);
  EXPECT_EQ(old.runs, 0);
  task = Task();
  EXPECT_EQ(fresh.destroyed, 1);
  EXPECT_FALSE(static_cast<bool>(task));
}

TEST(TaskTest, AssigningATaskToItselfKeepsIt) {
  Counts counts;
  Task task{CountingCallable(&counts)};
  Task& same = task;
  task = std::move(same);
  EXPECT_EQ(counts.destroyed, 0);
  task();
  EXPECT_EQ(counts.runs, 1);
}

TEST(TaskTest, AnEmptyTaskThrowsBadFunctionCall) {
  Task empty;
  EXPECT_FALSE(static_cast<bool>(empty));
  EXPECT_THROW(empty(), std::bad_function_call);

  Task moved([] {});
  Task other(std::move(moved));
  EXPECT_THROW(moved(), std::bad_function_call);  // NOLINT(bugprone-use-after-move)
}

// Memory that a task was relocated from holds none: nothing is destroyed there.
TEST(TaskTest, RelocatingLeavesNothingToDestroy) {
  Counts counts;
  alignas(Task) unsigned char memory[sizeof(Task)];
  Task* from = new (memory) Task{CountingCallable(&counts)};
  {
    Task task = Task::Relocate(from);
    ASSERT_TRUE(static_cast<bool>(task));
    task();
    EXPECT_EQ(counts.destroyed, 0);
  }
  EXPECT_EQ(counts.runs, 1);
  EXPECT_EQ(counts.destroyed, 1);
}

TEST(TaskTest, RelocatingATriviallyCopyableCallableDoesNotWriteToItsSource) {
  int runs = 0;
  alignas(Task) unsigned char memory[sizeof(Task)];
  Task* from = new (memory) Task(
      [&runs, a = uint64_t{0x1122334455667788u}] { runs += a == 0x1122334455667788u ? 1 : 100; });
  unsigned char before[sizeof(Task)];
  std::memcpy(before, memory, sizeof(memory));
  Task task = Task::Relocate(from);
  EXPECT_EQ(std::memcmp(before, memory, sizeof(memory)), 0);
  task();
  EXPECT_EQ(runs, 1);
}

TEST(TaskTest, RelocatingAnEmptyTaskYieldsAnEmptyTask) {
  alignas(Task) unsigned char memory[sizeof(Task)];
  Task task = Task::Relocate(new (memory) Task());
  EXPECT_FALSE(static_cast<bool>(task));
  EXPECT_THROW(task(), std::bad_function_call);
}

TEST(TaskTest, CapturesUpToTheCapacityAreStoredInline) {
  std::array<uint64_t, 4> values = {11, 22, 33, 44};
  static_assert(sizeof(values) == Task::kCallableBytes, "fills the task");
  static uint64_t sum;
  sum = 0;
  Task task([values] {
    for (const uint64_t value : values) {
      sum += value;
    }
  });
  values.fill(0);
  Task moved(std::move(task));
  moved();
  EXPECT_EQ(sum, 110u);
}

TEST(TaskTest, ACallableMayChangeItself) {
  int seen = 0;
  Task task([&seen, next = 5]() mutable { seen = next++; });
  task();
  task();
  EXPECT_EQ(seen, 6);
}

TEST(TaskTest, MoveOnlyCapturesAreSupported) {
  auto number = std::make_unique<int>(7);
  int seen = 0;
  std::vector<Task> tasks;
  tasks.emplace_back([&seen, number = std::move(number)] { seen += *number; });
  for (int i = 0; i < 20; ++i) {
    tasks.emplace_back([&seen] { seen += 100; });  // the vector grows and moves them
  }
  for (Task& task : tasks) {
    task();
  }
  EXPECT_EQ(seen, 2007);
}

TEST(TaskTest, FunctionsAndStandardFunctionsAreCallables) {
  Task plain(&FreeFunction);
  plain();
  EXPECT_EQ(freeFunctionRuns, 1);

  int runs = 0;
  const std::function<void()> standard = [&runs] { ++runs; };
  Task copied(standard);
  copied();
  standard();
  EXPECT_EQ(runs, 2);

  Task emptyStandard{std::function<void()>()};
  EXPECT_THROW(emptyStandard(), std::bad_function_call);
}

}  // namespace
}  // namespace nq::engine
