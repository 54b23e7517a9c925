// The queue of a worker pool: order, growth while tasks wait, and destruction of each callable
// once.
#include "Common/Def/TaskQueue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace nq::engine {
namespace {

// What happened to the callables of a test, by number.
struct Ledger {
  explicit Ledger(size_t count) : runs(count), ends(count) {}
  std::vector<int> runs;
  std::vector<int> ends;
  uint64_t moves = 0;
};

// A callable that is not trivially copyable. Destroying a moved-from one is not counted.
class Counted {
 public:
  Counted(Ledger* ledger, size_t number) : ledger(ledger), number(number) {}
  Counted(Counted&& other) noexcept
      : ledger(std::exchange(other.ledger, nullptr)), number(other.number) {
    ++ledger->moves;
  }
  ~Counted() {
    if (ledger != nullptr) {
      ++ledger->ends[number];
    }
  }
  void operator()() { ++ledger->runs[number]; }

 private:
  Ledger* ledger;
  size_t number;
};

class TaskQueueTest : public testing::Test {
 protected:
  // Appends `count` tasks that write their numbers. Every third one is not trivially copyable.
  void Append(size_t count) {
    std::vector<Task> tasks;
    for (size_t i = 0; i < count; ++i, ++next) {
      if (next % 3 == 0) {
        tasks.emplace_back([this, number = std::make_unique<size_t>(next)] { last = *number; });
      } else {
        tasks.emplace_back([this, number = next] { last = number; });
      }
      waiting.push_back(next);
    }
    queue.Append(tasks.data(), tasks.size());
    for (const Task& task : tasks) {
      ASSERT_FALSE(static_cast<bool>(task)) << "moved from";
    }
  }

  void TakeAndRun() {
    ASSERT_FALSE(queue.Empty());
    Task task = queue.Take();
    ASSERT_TRUE(static_cast<bool>(task));
    task();
    ASSERT_EQ(waiting.front(), last);
    waiting.pop_front();
    ASSERT_EQ(waiting.empty(), queue.Empty());
  }

  TaskQueue queue;
  std::deque<size_t> waiting;
  size_t next = 0;
  size_t last = 0;
};

TEST_F(TaskQueueTest, ANewQueueIsEmptyAlsoAfterAppendingNothing) {
  EXPECT_TRUE(queue.Empty());
  queue.Append(nullptr, 0);
  EXPECT_TRUE(queue.Empty());
}

TEST_F(TaskQueueTest, TasksAreFirstInFirstOut) {
  Append(7);
  while (!waiting.empty()) {
    ASSERT_NO_FATAL_FAILURE(TakeAndRun());
  }
}

TEST_F(TaskQueueTest, WaitingTasksStayBeforeNewOnesWhenTheQueueGrows) {
  // The queue moves tasks to its start, into larger memory, or leaves them.
  for (size_t waitingThen = 0; waitingThen <= 9; ++waitingThen) {
    for (size_t coming = 0; coming <= 25; ++coming) {
      Append(10);
      while (waiting.size() > waitingThen) {
        ASSERT_NO_FATAL_FAILURE(TakeAndRun());
      }
      Append(coming);
      Append(1);
      while (!waiting.empty()) {
        ASSERT_NO_FATAL_FAILURE(TakeAndRun()) << waitingThen << " waiting, " << coming << " coming";
      }
    }
  }
}

TEST_F(TaskQueueTest, RandomAppendsAndTakesKeepTheOrder) {
  const uint32_t seed = 4;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int turn = 0; turn < 4000; ++turn) {
    ASSERT_NO_FATAL_FAILURE(Append(random() % 40));
    const size_t takes = random() % (waiting.size() + 1);
    for (size_t i = 0; i < takes; ++i) {
      ASSERT_NO_FATAL_FAILURE(TakeAndRun());
    }
  }
}

TEST_F(TaskQueueTest, AnEmptyTaskStaysEmpty) {
  Task tasks[3] = {Task(), Task([] {}), Task()};
  queue.Append(tasks, 3);
  EXPECT_FALSE(static_cast<bool>(queue.Take()));
  EXPECT_TRUE(static_cast<bool>(queue.Take()));
  EXPECT_FALSE(static_cast<bool>(queue.Take()));
  EXPECT_TRUE(queue.Empty());
}

TEST_F(TaskQueueTest, EachCallableIsDestroyedOnceWhetherTakenOrLeft) {
  constexpr size_t kTasks = 60;
  Ledger ledger(kTasks);
  {
    TaskQueue own;
    size_t number = 0;
    for (const size_t count : {1u, 2u, 3u, 1u, 13u, 40u}) {
      std::vector<Task> tasks;
      for (size_t i = 0; i < count; ++i) {
        tasks.emplace_back(Counted(&ledger, number++));
      }
      own.Append(tasks.data(), tasks.size());
      own.Take()();
    }
    ASSERT_EQ(kTasks, number);
    for (size_t i = 0; i < kTasks; ++i) {
      EXPECT_EQ(i < 6 ? 1 : 0, ledger.runs[i]) << i;
      EXPECT_EQ(i < 6 ? 1 : 0, ledger.ends[i]) << i;
    }
  }
  for (size_t i = 0; i < kTasks; ++i) {
    EXPECT_EQ(i < 6 ? 1 : 0, ledger.runs[i]) << i;
    EXPECT_EQ(1, ledger.ends[i]) << i;
  }
}

TEST_F(TaskQueueTest, ManySmallPostsMoveEachTaskAFewTimesOnly) {
  constexpr size_t kTasks = 5000;
  Ledger ledger(kTasks);
  uint64_t moves = 0;
  {
    TaskQueue own;
    for (size_t i = 0; i < kTasks; ++i) {
      Task task(Counted(&ledger, i));
      const uint64_t before = ledger.moves;
      own.Append(&task, 1);
      // A few are taken in between, so that there is free space at the start, too.
      if (i % 10 == 9) {
        own.Take()();
      }
      moves += ledger.moves - before;
    }
  }
  // One move into the queue, one out of it, and those of growth, which halve with each step back.
  EXPECT_LT(moves, 8 * kTasks);
}

}  // namespace
}  // namespace nq::engine
