#include "platform/runtime/Task.h"

#include "platform/runtime/MainLoop.h"
#include "platform/runtime/SerialExecutor.h"
#include "platform/runtime/SharedExecutor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

using namespace frameloom::platform;

namespace {

// Blocks its pool thread until `gate` opens, then reads the flag inside an actor call.
asio::awaitable<bool> waitThenHop(SerialExecutor serial, std::shared_future<void> gate) {
  gate.wait();
  co_return co_await serial.run([] { return isCancelled(); });
}

// Inside an actor call, reports that it got there and waits for `gate`; reads the flag there and
// again after returning to its own executor.
asio::awaitable<std::pair<bool, bool>> hopThenWait(SerialExecutor serial,
                                                   std::shared_ptr<std::promise<void>> entered,
                                                   std::shared_future<void> gate) {
  auto waitInside = [entered, gate] {
    entered->set_value();
    gate.wait();
    return isCancelled();
  };
  bool inside = co_await serial.run(waitInside);
  co_return std::pair{inside, isCancelled()};
}

} // namespace

TEST(Task, CancellationIsSeenInActorCallsMadeAfterItAndInOnesUnderWay) {
  SerialExecutor serial;
  {
    std::promise<void> open;
    auto task = spawn(sharedExecutor(), waitThenHop(serial, open.get_future().share()));
    task.cancel();
    open.set_value();
    EXPECT_TRUE(MainLoop::shared().runUntilComplete(task.value()));
  }
  auto entered = std::make_shared<std::promise<void>>();
  std::future<void> inside = entered->get_future();
  std::promise<void> open;
  auto task = spawn(sharedExecutor(), hopThenWait(serial, entered, open.get_future().share()));
  inside.wait();
  task.cancel();
  open.set_value();
  auto [sawInside, sawAfter] = MainLoop::shared().runUntilComplete(task.value());
  EXPECT_TRUE(sawInside);
  EXPECT_TRUE(sawAfter);
  EXPECT_FALSE(isCancelled());
}

TEST(Task, ValueRethrowsAndCancellingAFinishedTaskIsHarmless) {
  auto failing = spawn(sharedExecutor(), []() -> asio::awaitable<int> {
    throw std::logic_error("no");
    co_return 0;
  }());
  EXPECT_THROW(MainLoop::shared().runUntilComplete(failing.value()), std::logic_error);
  failing.cancel();
  EXPECT_TRUE(failing.isCancelled());
  EXPECT_THROW(MainLoop::shared().runUntilComplete(failing.value()), std::logic_error);
}

TEST(Task, DetachedFailuresAreDropped) {
  std::atomic<int> finished{0};
  for (int i = 0; i < 10; ++i) {
    spawnDetached(sharedExecutor(), [](std::atomic<int>& finished) -> asio::awaitable<void> {
      finished.fetch_add(1);
      throw std::runtime_error("dropped");
      co_return;
    }(finished));
  }
  // Their failures reach nobody, and the pool's workers carry on.
  while (finished.load() < 10) {
    std::this_thread::yield();
  }
  auto task = spawn(sharedExecutor(), []() -> asio::awaitable<int> { co_return 1; }());
  EXPECT_EQ(MainLoop::shared().runUntilComplete(task.value()), 1);
}
