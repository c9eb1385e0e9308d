#include "platform/runtime/MainLoop.h"

#include "platform/runtime/SharedExecutor.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

using namespace frameloom::platform;
using namespace std::chrono_literals;

namespace {

asio::awaitable<int> answerAfterAHopToThePool() {
  co_await runOn(sharedExecutor(), []() -> asio::awaitable<void> { co_return; }());
  co_return 42;
}

} // namespace

TEST(MainLoop, RunUntilCompleteReturnsTheValueOnTheMainThread) {
  auto& loop = MainLoop::shared();
  EXPECT_FALSE(loop.isMainThread());
  int value = loop.runUntilComplete([]() -> asio::awaitable<int> {
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    int answer = co_await answerAfterAHopToThePool();
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    co_return answer;
  }());
  EXPECT_EQ(value, 42);
}

TEST(MainLoop, RunUntilCompleteRethrows) {
  EXPECT_THROW(MainLoop::shared().runUntilComplete([]() -> asio::awaitable<void> {
    throw std::domain_error("broken");
    co_return;
  }()),
               std::domain_error);
}
