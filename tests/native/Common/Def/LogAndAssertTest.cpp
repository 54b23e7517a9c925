// Log messages and failed assertions, as read from the process's output.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>

#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"
#include "Common/Def/WorkerPool.h"
#include "tests/native/Common/Def/ChildProcess.h"

namespace nq::engine {
namespace {

TEST(LogTest, ALineIsATagAndAMessageInOneWriteEach) {
  EXPECT_THAT(WritesOf([] { NQ_LOG("[NQ_INFO][OPV]: ", "value %d of %s\n", 7, "it"); }),
              testing::ElementsAre("[NQ_INFO][OPV]: ", "value 7 of it\n"));
}

TEST(LogTest, AMessageWithoutALineFeedGetsNone) {
  testing::internal::CaptureStdout();
  NQ_LOG("[NQ_WARN][Engine]: ", "no more");
  NQ_LOG("[NQ_WARN][Engine]: ", "the end\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[NQ_WARN][Engine]: no more[NQ_WARN][Engine]: the end\n");
}

TEST(LogTest, APercentSignInATagIsText) {
  testing::internal::CaptureStdout();
  NQ_LOG("[100%d]: ", "%d%%\n", 5);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[100%d]: 5%\n");
}

TEST(AssertTest, ATrueExpressionIsEvaluatedOnceAndPrintsNothing) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  int evaluated = 0;
  NQ_ASSERT(++evaluated == 1, "Common/Def/Nowhere");
  NQ_ASSERT_AT(++evaluated == 2, "Common/Def/Nowhere", 1);
  EXPECT_EQ(evaluated, 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(AssertDeathTest, AFailedAssertionNamesExpressionFileAndLineOnStandardErrorAndAborts) {
  const uint32_t index = 14;
  const uint32_t kCount = 14;
  const ChildResult child = RunInChild([&] {
    std::printf("%d", __LINE__ + 1);
    NQ_ASSERT(index < kCount, "Common/Def/Some.Name");
  });
  EXPECT_TRUE(child.Aborted()) << child.status;
  EXPECT_EQ(child.err, "Assertion failed: index < kCount, file Common/Def/Some.Name, line " +
                           child.out + "\n");
}

TEST(AssertDeathTest, TheLineCanBeGiven) {
  const ChildResult child = RunInChild([] { NQ_ASSERT_AT(0, "..\\Some\\File", 4321); });
  EXPECT_TRUE(child.Aborted()) << child.status;
  EXPECT_EQ(child.err, "Assertion failed: 0, file ..\\Some\\File, line 4321\n");
  EXPECT_EQ(child.out, "");
}

TEST(AssertDeathTest, TextPrintedBeforeArrivesThroughAPipe) {
  const ChildResult child = RunInChild([] {
    NQ_LOG("[NQ_FATAL][Engine]: ", "it is broken");
    NQ_ASSERT_AT(0, "Common/Def/Here", 5);
  });
  EXPECT_TRUE(child.Aborted()) << child.status;
  EXPECT_EQ(child.out, "[NQ_FATAL][Engine]: it is broken");
  EXPECT_EQ(child.err, "Assertion failed: 0, file Common/Def/Here, line 5\n");
}

TEST(AssertDeathTest, TextPrintedBeforeArrivesAlsoFromAWorkerThread) {
  const ChildResult child = RunInChild([] {
    NQ_LOG("[NQ_INFO][Engine]: ", "posted\n");
    WorkerPool pool(2);
    Task task([] {
      NQ_LOG("[NQ_FATAL][Engine]: ", "it is broken\n");
      NQ_ASSERT_AT(0, "Common/Def/Here", 6);
    });
    pool.PostAll(&task, 1);
    pool.WaitIdle();
  });
  EXPECT_TRUE(child.Aborted()) << child.status;
  EXPECT_EQ(child.out, "[NQ_INFO][Engine]: posted\n[NQ_FATAL][Engine]: it is broken\n");
  EXPECT_EQ(child.err, "Assertion failed: 0, file Common/Def/Here, line 6\n");
}

TEST(AssertDeathTest, OtherwiseBufferedTextIsLostWithTheProcess) {
  // A precondition of the tests above: the child's standard output is buffered until it is flushed.
  const ChildResult child = RunInChild([] {
    NQ_LOG("[NQ_INFO][Engine]: ", "lost\n");
    std::raise(SIGKILL);
  });
  EXPECT_TRUE(WIFSIGNALED(child.status));
  EXPECT_EQ(child.out, "");
}

}  // namespace
}  // namespace nq::engine
