// The worker pool: posting a batch, waiting for it, stopping.
#include "Common/Def/WorkerPool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Common/Def/CpuAffinity.h"
#include "tests/native/Common/Def/ChildProcess.h"
#include "tests/native/Common/Def/Probe.h"

namespace nq::engine {
namespace {

using Milliseconds = std::chrono::milliseconds;

template <typename Callable>
void Post(WorkerPool* pool, Callable&& callable) {
  Task task(std::forward<Callable>(callable));
  pool->PostAll(&task, 1);
}

// Ends the process if a wait would otherwise hang the whole run.
template <typename Future>
void RequireReady(Future& future, const char* what) {
  if (future.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    std::fprintf(stderr, "waited 30 s in vain: %s\n", what);
    std::abort();
  }
}

TEST(WorkerPoolTest, ThreadCountIsTheRequestedNumber) {
  EXPECT_EQ(WorkerPool(1).ThreadCount(), 1u);
  EXPECT_EQ(WorkerPool(4).ThreadCount(), 4u);
}

// The CPUs that this thread may run on, and those of all other threads of the process. Restores
// the affinity of this thread.
class Cpus {
 public:
  Cpus() {
    cpu_set_t set;
    sched_getaffinity(0, sizeof(set), &set);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &set) != 0) {
        all.push_back(cpu);
      }
    }
  }
  ~Cpus() { RunOn(all); }

  uint32_t Count() const { return static_cast<uint32_t>(all.size()); }

  // True if a pool that needs all of them pins a worker. With a single CPU there is nothing to
  // choose, and not every system has CPU affinity.
  bool Pins() const { return kHasCpuAffinity && Count() > 1; }

  static void RunOn(const std::vector<int>& cpus) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (const int cpu : cpus) {
      CPU_SET(cpu, &set);
    }
    sched_setaffinity(0, sizeof(set), &set);
  }

  // How many threads may run on `cpu` only.
  static int ThreadsPinnedTo(int cpu) {
    int pinned = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
      cpu_set_t set;
      CPU_ZERO(&set);
      sched_getaffinity(std::stoi(entry.path().filename()), sizeof(set), &set);
      pinned += CPU_COUNT(&set) == 1 && CPU_ISSET(cpu, &set) != 0 ? 1 : 0;
    }
    return pinned;
  }

  std::vector<int> all;
};

// Sets NQ_WORKER_PINNING, or removes it for null, and restores it.
class PinningVariable {
 public:
  explicit PinningVariable(const char* value) {
    const char* outside = std::getenv(kName);
    wasSet = outside != nullptr;
    before = wasSet ? outside : "";
    Set(value);
  }
  ~PinningVariable() { Set(wasSet ? before.c_str() : nullptr); }

 private:
  static constexpr const char* kName = "NQ_WORKER_PINNING";

  static void Set(const char* value) {
    if (value == nullptr) {
      unsetenv(kName);
    } else {
      setenv(kName, value, 1);
    }
  }

  bool wasSet;
  std::string before;
};

// Installs a seccomp filter: from here on, the kernel ends this process if any of its threads,
// present or future, calls sched_setaffinity.
void ForbidPinning() {
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_sched_setaffinity, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog filter = {static_cast<unsigned short>(std::size(code)), code};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    std::perror("no system call filter");
    std::abort();
  }
}

// Posts batches to a pool of `threadCount` threads, and prints whether all have run.
void RunBatches(uint32_t threadCount) {
  WorkerPool pool(threadCount);
  std::atomic<int> ran{0};
  for (int i = 0; i < 3; ++i) {
    Post(&pool, [&ran] { ++ran; });
    pool.WaitIdle();
  }
  std::printf("%d ran", ran.load());
  std::fflush(stdout);
}

bool KilledByFilter(const ChildResult& child) {
  return WIFSIGNALED(child.status) && WTERMSIG(child.status) == SIGSYS;
}

TEST(WorkerPoolTest, NoMoreTasksRunAtOnceThanThereAreThreadsAndAllowedCpus) {
  const Cpus cpus;
  EXPECT_EQ(WorkerPool(1).Parallelism(), 1u);
  // Without CPU affinity, the machine's CPUs count.
  const uint32_t all = std::min(4u, std::thread::hardware_concurrency());
  EXPECT_EQ(WorkerPool(4).Parallelism(), kHasCpuAffinity ? std::min(4u, cpus.Count()) : all);
  Cpus::RunOn({cpus.all.front()});
  EXPECT_EQ(WorkerPool(4).Parallelism(), kHasCpuAffinity ? 1u : all) << "affinity of one CPU";
}

TEST(WorkerPoolTest, IfAllCpusAreNeededOneWorkerIsPinnedToThePostingThreadsCpu) {
  const PinningVariable unset(nullptr);
  const Cpus cpus;
  WorkerPool pool(std::max(2u, cpus.Count()));
  for (int round = 0; round < 2; ++round) {
    for (const int cpu : cpus.all) {
      Cpus::RunOn({cpu});
      const int before = Cpus::ThreadsPinnedTo(cpu);
      std::atomic<int> ran{0};
      for (int i = 0; i < 3; ++i) {
        Post(&pool, [&ran] { ++ran; });
        pool.WaitIdle();
      }
      EXPECT_EQ(ran, 3);
      EXPECT_EQ(Cpus::ThreadsPinnedTo(cpu), before + (cpus.Pins() ? 1 : 0));
      Cpus::RunOn(cpus.all);
    }
  }
}

TEST(WorkerPoolTest, NoWorkerIsPinnedIfACpuIsFree) {
  const PinningVariable unset(nullptr);
  const Cpus cpus;
  WorkerPool pool(std::max(1u, cpus.Count() - 1));
  for (const int cpu : cpus.all) {
    Cpus::RunOn({cpu});
    const int before = Cpus::ThreadsPinnedTo(cpu);
    Post(&pool, [] {});
    pool.WaitIdle();
    EXPECT_EQ(Cpus::ThreadsPinnedTo(cpu), before);
    Cpus::RunOn(cpus.all);
  }
}

TEST(WorkerPoolTest, PinningIsOffForTheValue0AndForNoOther) {
  const Cpus cpus;
  for (const char* value : {"0", "", "1", "00", "off", "false"}) {
    const PinningVariable variable(value);
    WorkerPool pool(std::max(2u, cpus.Count()));
    Cpus::RunOn({cpus.all.back()});
    const int before = Cpus::ThreadsPinnedTo(cpus.all.back());
    Post(&pool, [] {});
    pool.WaitIdle();
    const bool pins = cpus.Pins() && std::string(value) != "0";
    EXPECT_EQ(Cpus::ThreadsPinnedTo(cpus.all.back()), before + (pins ? 1 : 0))
        << "value '" << value << "'";
    Cpus::RunOn(cpus.all);
  }
}

TEST(WorkerPoolPinningDeathTest, ASeccompFilterEndsAProcessThatPinsAWorker) {
  const PinningVariable unset(nullptr);
  const Cpus cpus;
  const ChildResult child = RunInChild([&cpus] {
    ForbidPinning();
    RunBatches(std::max(2u, cpus.Count()));
  });
  if (!cpus.Pins()) {
    EXPECT_EQ(child.out, "3 ran") << child.err;
  } else {
    EXPECT_TRUE(KilledByFilter(child)) << child.status << ' ' << child.err;
  }
}

TEST(WorkerPoolPinningDeathTest, NoWorkerIsPinnedWherePinningIsOff) {
  const PinningVariable off("0");
  const uint32_t cpus = Cpus().Count();
  const ChildResult child = RunInChild([cpus] {
    ForbidPinning();
    RunBatches(std::max(2u, cpus));
  });
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.out, "3 ran");
}

TEST(WorkerPoolPinningDeathTest, NoWorkerIsPinnedWhereTheProcessMayRunOnOneCpuOnly) {
  const PinningVariable unset(nullptr);
  const Cpus cpus;
  const ChildResult child = RunInChild([&cpus] {
    Cpus::RunOn({cpus.all.front()});
    ForbidPinning();
    RunBatches(4);
  });
  EXPECT_EQ(child.status, 0) << child.err;
  EXPECT_EQ(child.out, "3 ran");
}

// Without this, the children above could pass on a host that ignores the filter.
TEST(WorkerPoolPinningDeathTest, TheSeccompFilterEndsAProcessThatSetsAnAffinity) {
  const Cpus cpus;
  const ChildResult child = RunInChild([&cpus] {
    ForbidPinning();
    Cpus::RunOn(cpus.all);
  });
  EXPECT_TRUE(KilledByFilter(child)) << child.status << ' ' << child.err;
}

TEST(WorkerPoolTest, WaitingWithNothingPostedReturnsAtOnce) {
  // Whether or not the workers have reached their loop by then.
  for (int i = 0; i < 50; ++i) {
    WorkerPool pool(4);
    pool.WaitIdle();
    pool.WaitIdle();
  }
  WorkerPool pool(2);
  SleepMilliseconds(20);
  pool.WaitIdle();
}

TEST(WorkerPoolTest, WaitingReturnsOnlyAfterAllOfAHundredTasksHaveRun) {
  WorkerPool pool(4);
  std::vector<int> runs(100);
  std::vector<Task> tasks(100);
  for (int batch = 0; batch < 3000; ++batch) {
    for (size_t i = 0; i < tasks.size(); ++i) {
      tasks[i] = Task([&runs, i] { ++runs[i]; });
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
    ASSERT_THAT(runs, testing::Each(batch + 1));
  }
}

TEST(WorkerPoolTest, WaitingReturnsOnlyAfterTheLastTaskOfDifferentLengths) {
  const uint32_t seed = 77;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  WorkerPool pool(4);
  std::vector<char> done;
  for (int batch = 0; batch < 60; ++batch) {
    const size_t count = 1 + random() % 12;
    done.assign(count, 0);
    std::vector<Task> tasks;
    for (size_t i = 0; i < count; ++i) {
      // One task in eight sleeps, well beyond the time for which a waiter spins.
      const int sleep = random() % 8 == 0 ? static_cast<int>(1 + random() % 8) : 0;
      tasks.emplace_back([&done, i, sleep] {
        if (sleep != 0) {
          SleepMilliseconds(sleep);
        }
        done[i] = 1;
      });
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
    ASSERT_THAT(done, testing::Each(1)) << "batch " << batch;
  }
}

TEST(WorkerPoolTest, WaitingCoversARunningTaskThoughTheQueueIsEmpty) {
  WorkerPool pool(4);
  bool done = false;
  Task tasks[3] = {Task([] {}), Task([&done] {
                     SleepMilliseconds(60);
                     done = true;
                   }),
                   Task([] {})};
  pool.PostAll(tasks, 3);
  SleepMilliseconds(20);
  pool.WaitIdle();
  EXPECT_TRUE(done);
}

TEST(WorkerPoolTest, OneWaitCoversSeveralPosts) {
  WorkerPool pool(4);
  std::atomic<int> runs{0};
  for (int post = 0; post < 50; ++post) {
    Task tasks[5];
    for (Task& task : tasks) {
      task = Task([&runs] { ++runs; });
    }
    pool.PostAll(tasks, 5);
  }
  pool.WaitIdle();
  EXPECT_EQ(runs, 250);
}

TEST(WorkerPoolTest, AQueueThatGrowsByManySmallPostsLosesNothing) {
  WorkerPool pool(1);
  std::atomic<bool> go{false};
  int runs = 0;
  Post(&pool, [&go] { SpinUntil(go); });
  for (int post = 0; post < 20000; ++post) {
    Post(&pool, [&runs] { ++runs; });
  }
  go = true;
  pool.WaitIdle();
  EXPECT_EQ(runs, 20000);
}

TEST(WorkerPoolTest, PostingNothingIsHarmless) {
  WorkerPool pool(2);
  pool.PostAll(nullptr, 0);
  pool.WaitIdle();
  int runs = 0;
  Post(&pool, [&runs] { ++runs; });
  pool.WaitIdle();
  EXPECT_EQ(runs, 1);
}

TEST(WorkerPoolTest, PostedTasksAreMovedFromTheCaller) {
  WorkerPool pool(2);
  Task tasks[2] = {Task([] {}), Task([] {})};
  pool.PostAll(tasks, 2);
  EXPECT_FALSE(static_cast<bool>(tasks[0]));
  EXPECT_FALSE(static_cast<bool>(tasks[1]));
  pool.WaitIdle();
}

TEST(WorkerPoolTest, APoolOfOneRunsTasksInTheOrderOfPosting) {
  WorkerPool pool(1);
  std::vector<int> order;
  std::vector<int> expected;
  int next = 0;
  for (int post = 0; post < 20; ++post) {
    std::vector<Task> tasks;
    for (int i = 0; i < 50; ++i) {
      expected.push_back(next);
      tasks.emplace_back([&order, number = next++] { order.push_back(number); });
    }
    pool.PostAll(tasks.data(), tasks.size());
  }
  pool.WaitIdle();
  EXPECT_EQ(order, expected);
}

TEST(WorkerPoolTest, AsManyTasksRunAtOnceAsThereAreThreads) {
  // Each of four tasks waits until all four have begun.
  WorkerPool pool(4);
  std::mutex mutex;
  std::condition_variable met;
  std::set<std::thread::id> threads;
  int inTime = 0;
  std::vector<Task> tasks;
  for (int i = 0; i < 4; ++i) {
    tasks.emplace_back([&] {
      std::unique_lock<std::mutex> lock(mutex);
      threads.insert(std::this_thread::get_id());
      met.notify_all();
      if (met.wait_for(lock, std::chrono::seconds(30), [&] { return threads.size() == 4; })) {
        ++inTime;
      }
    });
  }
  pool.PostAll(tasks.data(), tasks.size());
  pool.WaitIdle();
  EXPECT_EQ(inTime, 4);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
}

TEST(WorkerPoolTest, ATaskIsDestroyedBeforeItsWorkerTakesTheNext) {
  WorkerPool pool(1);
  std::vector<int> events;  // k: task k has run; -k: it has been destroyed
  std::vector<Task> tasks;
  for (int k = 1; k <= 4; ++k) {
    tasks.emplace_back(
        Probe([&events, k] { events.push_back(k); }, [&events, k] { events.push_back(-k); }));
  }
  pool.PostAll(tasks.data(), tasks.size());
  pool.WaitIdle();
  EXPECT_THAT(events, testing::ElementsAre(1, -1, 2, -2, 3, -3, 4, -4));
}

TEST(WorkerPoolTest, ATaskIsDestroyedUnderTheLock) {
  // While the destructor runs, no other thread can post; without the lock the post would succeed at
  // once.
  WorkerPool pool(2);
  std::atomic<bool> ending{false};
  std::atomic<bool> posted{false};
  bool postedMeanwhile = false;
  Post(&pool, Probe([] {},
                    [&] {
                      ending = true;
                      for (int i = 0; i < 60 && !posted; ++i) {
                        SleepMilliseconds(1);
                      }
                      postedMeanwhile = posted;
                    }));
  SpinUntil(ending);
  Post(&pool, [] {});
  posted = true;
  pool.WaitIdle();
  EXPECT_FALSE(postedMeanwhile);
}

TEST(WorkerPoolTest, ATaskRunsWithoutTheLock) {
  // A running task sees a post succeed.
  WorkerPool pool(1);
  std::atomic<bool> running{false};
  std::atomic<bool> posted{false};
  bool postedMeanwhile = false;
  Post(&pool, [&] {
    running = true;
    for (int i = 0; i < 10000 && !posted; ++i) {
      SleepMilliseconds(1);
    }
    postedMeanwhile = posted;
  });
  SpinUntil(running);
  Post(&pool, [] {});
  posted = true;
  pool.WaitIdle();
  EXPECT_TRUE(postedMeanwhile);
}

TEST(WorkerPoolTest, WaitingReturnsOnlyAfterAllTasksAreDestroyed) {
  WorkerPool pool(4);
  auto shared = std::make_shared<int>(0);
  for (int batch = 0; batch < 600; ++batch) {
    std::vector<Task> tasks;
    for (int i = 0; i < 20; ++i) {
      tasks.emplace_back([shared] {});
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
    ASSERT_EQ(shared.use_count(), 1) << "batch " << batch;
  }
}

TEST(WorkerPoolTest, AStoppedPoolLeavesTasksWithTheCaller) {
  WorkerPool pool(2);
  pool.Stop();
  int runs = 0;
  Task tasks[2] = {Task([&runs] { runs += 1; }), Task([&runs] { runs += 10; })};
  pool.PostAll(tasks, 2);
  SleepMilliseconds(20);
  EXPECT_EQ(runs, 0);
  ASSERT_TRUE(static_cast<bool>(tasks[0]));
  ASSERT_TRUE(static_cast<bool>(tasks[1]));
  tasks[0]();
  tasks[1]();
  EXPECT_EQ(runs, 11);
  pool.WaitIdle();
}

TEST(WorkerPoolTest, ASecondStopDoesNothing) {
  WorkerPool pool(2);
  int runs = 0;
  Post(&pool, [&runs] { ++runs; });
  pool.WaitIdle();
  pool.Stop();
  pool.Stop();
  EXPECT_EQ(runs, 1);
  EXPECT_TRUE(Refuses(&pool));
  EXPECT_EQ(pool.ThreadCount(), 2u);
}

TEST(WorkerPoolTest, StopLetsARunningTaskEndAndDropsTheQueuedOnesWithTheState) {
  auto pool = std::make_unique<WorkerPool>(1);
  int runs = 0;
  int destroyed = 0;
  {
    BusyUntilStop busy(pool.get());
    std::vector<Task> tasks;
    for (int i = 0; i < 10; ++i) {
      tasks.emplace_back(Probe([&runs] { ++runs; }, [&destroyed] { ++destroyed; }));
    }
    pool->PostAll(tasks.data(), tasks.size());
    busy.Watch();
    pool->Stop();
    EXPECT_TRUE(busy.Ended());
  }
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(destroyed, 0) << "the pool still holds the queue";
  pool.reset();
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(destroyed, 10);
}

TEST(WorkerPoolTest, ThePoolStopsWhenItIsDestroyed) {
  bool ended;
  {
    auto pool = std::make_unique<WorkerPool>(2);
    BusyUntilStop busy(pool.get());
    busy.Watch();
    pool.reset();
    ended = busy.Ended();
  }
  EXPECT_TRUE(ended);
}

TEST(WorkerPoolTest, StopWakesAThreadThatWaits) {
  WorkerPool pool(1);
  std::promise<void> release;
  std::atomic<bool> started{false};
  Post(&pool, [&started, future = release.get_future().share()] {
    started = true;
    future.wait();
  });
  SpinUntil(started);

  std::future<void> waiter = std::async(std::launch::async, [&pool] { pool.WaitIdle(); });
  EXPECT_EQ(waiter.wait_for(Milliseconds(50)), std::future_status::timeout) << "it waits";
  std::future<void> stopper = std::async(std::launch::async, [&pool] { pool.Stop(); });
  RequireReady(waiter, "Stop wakes the waiter, though the task still runs");
  EXPECT_EQ(stopper.wait_for(Milliseconds(20)), std::future_status::timeout)
      << "it joins the worker";
  release.set_value();
  RequireReady(stopper, "Stop returns when the task has ended");
}

TEST(WorkerPoolTest, IdleWorkersSleep) {
  WorkerPool pool(4);
  Post(&pool, [] {});
  pool.WaitIdle();
  SleepMilliseconds(20);

  const auto processorTime = [] {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000000L + usage.ru_utime.tv_usec +
           usage.ru_stime.tv_usec;
  };
  const long before = processorTime();
  SleepMilliseconds(150);
  EXPECT_LT(processorTime() - before, 50000) << "microseconds";
}

// A million tasks in sustained batches, in which each task reads what the waiting thread wrote
// before the post, and the waiting thread reads what the tasks wrote: only the pool orders these
// accesses.
TEST(WorkerPoolTest, PostingAndWaitingSynchroniseMemory) {
  constexpr size_t kTasks = 100;
  WorkerPool pool(4);
  uint64_t input = 0;
  std::vector<uint64_t> outputs(kTasks);
  std::vector<Task> tasks(kTasks);
  uint64_t wrong = 0;
  for (int batch = 0; batch < 10000; ++batch) {
    input += 3;
    for (size_t i = 0; i < kTasks; ++i) {
      tasks[i] = Task([&input, &outputs, i] { outputs[i] = input * 31 + outputs[i] + i; });
    }
    std::vector<uint64_t> expected = outputs;
    for (size_t i = 0; i < kTasks; ++i) {
      expected[i] = input * 31 + outputs[i] + i;
    }
    pool.PostAll(tasks.data(), tasks.size());
    pool.WaitIdle();
    wrong += outputs == expected ? 0 : 1;
  }
  EXPECT_EQ(wrong, 0u);
}

class WorkerPoolDeathTest : public testing::Test {
 protected:
  // The child re-executes the program: threads and fork don't mix well.
  WorkerPoolDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(WorkerPoolDeathTest, AnEmptyTaskEndsTheProcess) {
  EXPECT_EXIT(
      {
        WorkerPool pool(2);
        Task empty;
        pool.PostAll(&empty, 1);
        pool.WaitIdle();
        std::_Exit(0);
      },
      testing::KilledBySignal(SIGABRT), "bad_function_call");
}

}  // namespace
}  // namespace nq::engine
