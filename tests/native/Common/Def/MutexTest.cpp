// The condition variable: who is woken, and that no wake-up is lost.
#include "Common/Def/Mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>
#include <vector>

namespace nq::engine {
namespace {

// State shared by the waiting threads.
struct Shared {
  Mutex mutex;
  ConditionVariable changed;
  uint32_t value NQ_GUARDED_BY(mutex) = 0;

  void WaitFor(uint32_t wanted) NQ_EXCLUDES(mutex) {
    MutexLock lock(mutex);
    while (value != wanted) {
      changed.Wait(mutex);
    }
  }

  void Set(uint32_t to) NQ_EXCLUDES(mutex) {
    {
      MutexLock lock(mutex);
      value = to;
    }
    changed.Broadcast();
  }

  void SetWithin(uint32_t to) NQ_EXCLUDES(mutex) {
    MutexLock lock(mutex);
    value = to;
    changed.Broadcast();
  }
};

TEST(ConditionVariableTest, ABroadcastWakesAllWaiters) {
  constexpr int kThreads = 8;
  Shared shared;
  std::atomic<int> woken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      shared.WaitFor(1);
      ++woken;
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(woken, 0);
  shared.Set(1);
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(woken, kThreads);
}

TEST(ConditionVariableTest, ABroadcastDoesNotWakeLaterWaiters) {
  Shared shared;
  shared.changed.Broadcast();
  shared.changed.Broadcast();
  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    shared.WaitFor(1);
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(returned);
  shared.Set(1);
  waiter.join();
}

// A mutex in whose Unlock another thread locks it, changes the state and broadcasts, before the
// waiting thread sleeps.
class NQ_CAPABILITY("mutex") OvertakenMutex {
 public:
  explicit OvertakenMutex(ConditionVariable* changed) : changed(changed) {}
  void Lock() NQ_ACQUIRE() NQ_NO_THREAD_SAFETY_ANALYSIS { held = true; }
  void Unlock() NQ_RELEASE() NQ_NO_THREAD_SAFETY_ANALYSIS {
    held = false;
    changed->Broadcast();
  }

  bool held = false;

 private:
  ConditionVariable* const changed;
};

TEST(ConditionVariableTest, ABroadcastBetweenUnlockAndSleepIsNotLost) {
  ConditionVariable changed;
  OvertakenMutex mutex(&changed);
  std::promise<bool> heldAgain;
  std::future<bool> end = heldAgain.get_future();
  std::thread waiter([&] {
    mutex.Lock();
    changed.Wait(mutex);
    heldAgain.set_value(mutex.held);
    mutex.Unlock();
  });
  if (end.wait_for(std::chrono::seconds(30)) != std::future_status::ready) {
    std::fprintf(stderr, "the broadcast was lost\n");
    std::abort();
  }
  EXPECT_TRUE(end.get());
  waiter.join();
}

// Ping-pong between two threads as fast as possible, with and without the mutex held.
TEST(ConditionVariableTest, PingPongBetweenThreadsNeverDeadlocks) {
  constexpr uint32_t kRounds = 20000;
  Shared shared;
  std::thread answering([&] {
    for (uint32_t i = 0; i < kRounds; ++i) {
      shared.WaitFor(2 * i + 1);
      if (i % 2 == 0) {
        shared.Set(2 * i + 2);
      } else {
        shared.SetWithin(2 * i + 2);
      }
    }
  });
  for (uint32_t i = 0; i < kRounds; ++i) {
    if (i % 3 == 0) {
      shared.SetWithin(2 * i + 1);
    } else {
      shared.Set(2 * i + 1);
    }
    shared.WaitFor(2 * i + 2);
  }
  answering.join();
}

// Each thread waits for the next number and increments it, so that broadcasts follow each other
// while threads woken by the last one are still waking up.
TEST(ConditionVariableTest, ABroadcastDoesNotWaitForThreadsStillWakingUp) {
  constexpr uint32_t kThreads = 5;
  constexpr uint32_t kRounds = 2000;
  Shared shared;
  std::vector<std::thread> threads;
  for (uint32_t id = 0; id < kThreads; ++id) {
    threads.emplace_back([&shared, id] {
      for (uint32_t round = 0; round < kRounds; ++round) {
        const uint32_t turn = round * kThreads + id;
        shared.WaitFor(turn);
        shared.Set(turn + 1);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  MutexLock lock(shared.mutex);
  EXPECT_EQ(shared.value, kThreads * kRounds);
}

}  // namespace
}  // namespace nq::engine
