#include "platform/runtime/MainLoop.h"

#include "platform/runtime/SharedExecutor.h"

#include <asio/post.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

using namespace frameloom::platform;

namespace {

asio::awaitable<void> nothing() {
  co_return;
}

asio::awaitable<int> answerAfterAHopToThePool() {
  co_await runOn(sharedExecutor(), nothing());
  co_return 42;
}

} // namespace

TEST(MainLoop, RunUntilCompleteReturnsTheValueOrFailureOnTheMainThread) {
  auto& loop = MainLoop::shared();
  EXPECT_FALSE(loop.isMainThread());
  int value = loop.runUntilComplete([]() -> asio::awaitable<int> {
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    int answer = co_await answerAfterAHopToThePool();
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    co_return answer;
  }());
  EXPECT_EQ(value, 42);
  EXPECT_FALSE(loop.isMainThread());

  EXPECT_THROW(loop.runUntilComplete([]() -> asio::awaitable<void> {
    // A nested run is refused.
    EXPECT_THROW(MainLoop::shared().runFor(std::chrono::milliseconds(1)), RuntimeError);
    throw std::domain_error("broken");
    co_return;
  }()),
               std::domain_error);
}

// Stopping the loop while work is pending keeps that work for the next run.
TEST(MainLoop, AwaitedWorkInterruptedByStopFinishesOnTheNextRun) {
  auto& loop = MainLoop::shared();
  auto task = spawn(loop.executor(), []() -> asio::awaitable<int> {
    MainLoop::shared().stop();
    co_await runOn(sharedExecutor(), nothing());
    co_return 5;
  }());
  try {
    loop.runUntilComplete(task.value());
    ADD_FAILURE() << "the run should have been stopped";
  } catch (const RuntimeError& error) {
    EXPECT_EQ(error.code(), RuntimeError::Code::loopStopped);
  }
  EXPECT_EQ(loop.runUntilComplete(task.value()), 5);
}

// Work submitted while the process exits, before and after the pool's threads are joined, is
// accepted and dropped; the process still exits normally.
TEST(SharedExecutorDeathTest, SubmittingWorkDuringExitIsHarmless) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::atexit([] {
          asio::post(sharedExecutor(), [] {});
          asio::post(MainLoop::shared().executor(), [] {});
        });
        struct Busy {
          static void again() { asio::post(sharedExecutor(), again); }
        };
        for (int i = 0; i < 4; ++i) {
          asio::post(sharedExecutor(), Busy::again);
        }
        std::atexit([] { spawnDetached(sharedExecutor(), nothing()); });
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}
