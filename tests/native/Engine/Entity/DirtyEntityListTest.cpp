// The dirty list as words of shared memory.
#include "Engine/Entity/DirtyEntityList.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>
#include <vector>

#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

namespace {

constexpr uint32_t kPoison = 0xCDCDCDCDu;
constexpr uint32_t kThreads = 4;
constexpr uint32_t kRounds = 20;

// A list in poisoned memory, with some words after the end.
class DirtyEntityListTest : public ::testing::Test {
 protected:
  DirtyEntityListTest() : words(12288 + 16, kPoison) {
    words[0] = 0;
    list.Attach(words.data());
  }

  // Runs `append`, with the number of the thread, on some threads that begin together: one that
  // begins alone is done before the next one exists.
  template <typename Appender>
  static void AtOnce(Appender append) {
    std::atomic<uint32_t> waiting{kThreads};
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&waiting, append, thread] {
        --waiting;
        while (waiting != 0) {
          std::this_thread::yield();
        }
        append(thread);
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  std::vector<uint32_t> words;
  DirtyEntityList list;
};

}  // namespace

TEST_F(DirtyEntityListTest, EntriesFollowTheCount) {
  list.Append(0x1000);
  list.Append(0x2003);
  list.Append(0x1000);
  EXPECT_EQ(3u, words[0]);
  EXPECT_EQ(0x1000u, words[1]);
  EXPECT_EQ(0x2003u, words[2]);
  EXPECT_EQ(0x1000u, words[3]);
  EXPECT_EQ(kPoison, words[4]);
  EXPECT_EQ(3u, list.Count());
  EXPECT_EQ(0x2003u, list.Entry(2));
}

TEST_F(DirtyEntityListTest, NativeEntriesFollowTheScripts) {
  words[1] = 0x7000;
  words[2] = 0x7001;
  words[0] = 2;
  list.Append(0x1000);
  EXPECT_EQ(3u, words[0]);
  EXPECT_EQ(0x7001u, words[2]);
  EXPECT_EQ(0x1000u, words[3]);
}

TEST_F(DirtyEntityListTest, ClearOnlySetsTheCountTo0) {
  list.Append(0x1000);
  EXPECT_TRUE(list.NotEmpty());
  list.Clear();
  EXPECT_FALSE(list.NotEmpty());
  EXPECT_EQ(0u, words[0]);
  EXPECT_EQ(0x1000u, words[1]);
}

TEST_F(DirtyEntityListTest, TheLastWordOfTheBufferIsUsed) {
  words[0] = 12286;
  list.Append(0x1234);
  EXPECT_EQ(12287u, words[0]);
  EXPECT_EQ(0x1234u, words[12287]);
  EXPECT_EQ(kPoison, words[12288]);
}

TEST_F(DirtyEntityListTest, AFullListDropsEntries) {
  words[0] = 12287;
  words[12287] = 0x1111;
  const std::vector<uint32_t> before = words;
  list.Append(0x2222);
  list.Append(0x3333);
  EXPECT_EQ(before, words);
}

TEST_F(DirtyEntityListTest, ConcurrentAppendsAreAllStored) {
  constexpr uint32_t kEach = 3000;
  for (uint32_t round = 0; round < kRounds; ++round) {
    list.Clear();
    AtOnce([this](uint32_t thread) {
      for (uint32_t i = 0; i < kEach; ++i) {
        list.Append(thread << 16 | i);
      }
    });
    ASSERT_EQ(kThreads * kEach, words[0]) << "round " << round;
    // Each thread's entries are in its order.
    std::map<uint32_t, uint32_t> next;
    for (uint32_t i = 1; i <= words[0]; ++i) {
      ASSERT_EQ(next[words[i] >> 16]++, words[i] & 0xFFFF);
    }
    EXPECT_EQ(kThreads, next.size());
    EXPECT_EQ(kPoison, words[words[0] + 1]);
  }
}

TEST_F(DirtyEntityListTest, ConcurrentAppendsNeverOverflowTheList) {
  AtOnce([this](uint32_t) {
    for (uint32_t i = 0; i < 4000; ++i) {
      list.Append(7);
    }
  });
  EXPECT_EQ(12287u, words[0]);
  EXPECT_EQ(std::vector<uint32_t>(12287, 7),
            std::vector<uint32_t>(words.begin() + 1, words.begin() + 12288));
  EXPECT_EQ(kPoison, words[12288]);
}

}  // namespace nq::engine
