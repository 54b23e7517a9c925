// The worker pool of a system without threads.
#include <gtest/gtest.h>

#include <vector>

#include "Common/Def/Task.h"
#include "Common/Def/WorkerPool.h"

namespace nq::engine {
namespace {

TEST(InlinePoolTest, RunsTasksInOrderWhereTheyArePosted) {
  WorkerPool pool(4);
  EXPECT_EQ(1u, pool.Parallelism());
  std::vector<int> order;
  Task tasks[] = {Task([&order] { order.push_back(1); }), Task([&order] { order.push_back(2); }),
                  Task([&order] { order.push_back(3); })};
  pool.PostAll(tasks, 3);
  EXPECT_EQ((std::vector<int>{1, 2, 3}), order);
  for (const Task& task : tasks) {
    EXPECT_FALSE(static_cast<bool>(task));
  }
  pool.WaitIdle();
  EXPECT_EQ(3u, order.size());
}

TEST(InlinePoolTest, ATaskMayPostToItsOwnPool) {
  WorkerPool pool(4);
  std::vector<int> order;
  Task task([&pool, &order] {
    Task inner([&order] { order.push_back(1); });
    pool.PostAll(&inner, 1);
    order.push_back(2);
  });
  pool.PostAll(&task, 1);
  EXPECT_EQ((std::vector<int>{1, 2}), order);
}

TEST(InlinePoolTest, AStoppedPoolLeavesTasksToTheCaller) {
  WorkerPool pool(4);
  int runs = 0;
  Task tasks[] = {Task([&pool, &runs] {
                    ++runs;
                    pool.Stop();
                  }),
                  Task([&runs] { ++runs; })};
  pool.PostAll(tasks, 2);
  EXPECT_EQ(1, runs);
  EXPECT_TRUE(static_cast<bool>(tasks[1]));
  pool.PostAll(tasks + 1, 1);
  EXPECT_EQ(1, runs);
  pool.WaitIdle();
}

}  // namespace
}  // namespace nq::engine
