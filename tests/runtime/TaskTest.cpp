#include "platform/runtime/Task.h"

#include "platform/runtime/MainLoop.h"
#include "platform/runtime/SerialExecutor.h"
#include "platform/runtime/SharedExecutor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>

using namespace frameloom::platform;

namespace {

// Reads the caller's cancelled flag on the serial executor, before and after `gate` opens.
asio::awaitable<std::pair<bool, bool>> flagAcrossHop(SerialExecutor serial,
                                                     std::shared_future<void> gate) {
  bool before = co_await serial.run([] { return isCancelled(); });
  auto waitThenRead = [gate] {
    gate.wait();
    return isCancelled();
  };
  bool after = co_await serial.run(waitThenRead);
  co_return std::pair{before, after};
}

} // namespace

TEST(Task, CancellationIsSeenInsideActorCallsMadeBeforeAndAfterIt) {
  SerialExecutor serial;
  std::promise<void> open;
  std::shared_future<void> gate = open.get_future().share();

  auto task = spawn(sharedExecutor(), flagAcrossHop(serial, gate));
  auto cancelled = spawn(sharedExecutor(), [](SerialExecutor serial) -> asio::awaitable<bool> {
    co_return co_await serial.run([] { return isCancelled(); });
  }(serial));
  cancelled.cancel();
  // The first task's second actor call is now blocked on the gate; cancel while it waits.
  task.cancel();
  open.set_value();

  auto [before, after] = MainLoop::shared().runUntilComplete(task.value());
  EXPECT_TRUE(after);
  (void)before;
  EXPECT_TRUE(MainLoop::shared().runUntilComplete(cancelled.value()));
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
