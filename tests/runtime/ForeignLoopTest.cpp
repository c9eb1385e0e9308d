#include <frameloom/platform/runtime/DisplayLink.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/system/Log.h>

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <gtest/gtest.h>

#include <poll.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace frameloom::platform {
namespace {

bool readable(int fd, int timeoutMilliseconds) {
  pollfd watched{fd, POLLIN, 0};
  return ::poll(&watched, 1, timeoutMilliseconds) == 1;
}

// The loop a foreign host would write: wait on the descriptor, then poll.
void pollOnce(MainLoop& loop) {
  ASSERT_TRUE(readable(loop.fileDescriptor(), -1));
  loop.poll();
}

TEST(ForeignLoop, WorkPostedFromAnotherThreadWakesTheDescriptorAndRunsOnThePollingThread) {
  auto& loop = MainLoop::shared();
  loop.poll();
  EXPECT_FALSE(readable(loop.fileDescriptor(), 0));

  bool ranOnMainThread = false;
  std::thread([&] {
    asio::post(loop.executor(), [&] { ranOnMainThread = loop.isMainThread(); });
  }).join();
  ASSERT_TRUE(readable(loop.fileDescriptor(), -1));
  EXPECT_EQ(loop.poll(), 1u);
  EXPECT_TRUE(ranOnMainThread);
  EXPECT_FALSE(readable(loop.fileDescriptor(), 0));
}

TEST(ForeignLoop, DisplayLinkTicksArriveThroughTheDescriptor) {
  auto& loop = MainLoop::shared();
  int ticks = 0;
  auto link = DisplayLink::make([&](DisplayLink&) { ++ticks; });
  link->setPreferredFrameRateRange({60, 60, 60});
  link->addToMainLoop();
  link->setPaused(false);
  while (ticks < 3) {
    pollOnce(loop);
  }
  link->invalidate();
  loop.poll();
  EXPECT_EQ(ticks, 3);
}

TEST(ForeignLoop, ATimerFallingDueAfterItsWakeTimeStillWakesTheHost) {
  using namespace std::chrono_literals;
  auto& loop = MainLoop::shared();
  loop.poll();
  // As when asio arms its timer late: the host is woken before the timer is due.
  const auto due = std::chrono::steady_clock::now() + 30ms;
  const auto wake = due - 20ms;
  asio::steady_timer timer(loop.executor(), due);
  bool ran = false;
  loop.wakeAt(wake);
  timer.async_wait([&](const std::error_code&) {
    ran = true;
    loop.wakeDone(wake);
  });
  while (!ran) {
    ASSERT_TRUE(readable(loop.fileDescriptor(), 2000)) << "the host was never woken again";
    loop.poll();
  }
  // Handed to the loop's executor, the timer's completion woke the host once more; after that
  // poll, nothing is left to wake it for.
  loop.poll();
  EXPECT_FALSE(readable(loop.fileDescriptor(), 20));
}

TEST(ForeignLoop, PollDuringARunIsRefused) {
  auto& loop = MainLoop::shared();
  bool refused = false;
  loop.runUntilComplete([&]() -> asio::awaitable<void> {
    try {
      loop.poll();
    } catch (const RuntimeError& error) {
      refused = error.code() == RuntimeError::Code::loopAlreadyRunning;
    }
    co_return;
  }());
  EXPECT_TRUE(refused);
}

TEST(LogSink, LinesGoToTheHostsSinkAndBackToStandardOutputWhenCleared) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  logLine("one");
  setLogSink([](std::string_view) { throw std::runtime_error("sink failed"); });
  logLine("lost");
  setLogSink({});
  ::testing::internal::CaptureStdout();
  logLine("two");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "two\n");
  EXPECT_EQ(lines, std::vector<std::string>{"one"});
}

} // namespace
} // namespace frameloom::platform
