#include <frameloom/platform/runtime/DisplayLink.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/SerialExecutor.h>
#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/runtime/Task.h>

#include <asio/post.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace frameloom::platform;
using namespace std::chrono_literals;

namespace {

asio::awaitable<void> nothing() {
  co_return;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

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

// Several threads submit numbered jobs at once: the executor must run one job at a time and
// each producer's jobs in the order it submitted them.
TEST(SerialExecutor, RunsJobsOneAtATimeInSubmissionOrder) {
  SerialExecutor serial;
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::pair<int, int>> order; // only touched on the serial executor
  std::vector<std::thread> threads;
  for (int producer = 0; producer < 4; ++producer) {
    threads.emplace_back([&, producer] {
      for (int job = 0; job < 500; ++job) {
        asio::post(serial.executor(), [&, producer, job] {
          overlapped = overlapped || inside.fetch_add(1) != 0;
          order.emplace_back(producer, job);
          inside.fetch_sub(1);
        });
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  // Waiting for the queue to drain through the executor itself orders the reads below after it.
  MainLoop::shared().runUntilComplete(serial.run([] {}));
  EXPECT_FALSE(overlapped);
  ASSERT_EQ(order.size(), 2000u);
  std::map<int, int> next;
  for (auto [producer, job] : order) {
    EXPECT_EQ(job, next[producer]++) << "producer " << producer;
  }
}

// Awaited work runs on the executor and resumes on the main thread; its failures and the value
// come back through runUntilComplete, which refuses to nest.
TEST(SerialExecutor, AwaitedWorkHopsOnAndBackAndPassesFailuresThrough) {
  SerialExecutor serial;
  EXPECT_FALSE(MainLoop::shared().isMainThread());
  MainLoop::shared().runUntilComplete([](SerialExecutor serial) -> asio::awaitable<void> {
    EXPECT_EQ(co_await serial.run([&] {
      EXPECT_TRUE(serial.isCurrent());
      EXPECT_FALSE(MainLoop::shared().isMainThread());
      return 7;
    }),
              7);
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    EXPECT_FALSE(serial.isCurrent());
    EXPECT_THROW(MainLoop::shared().runFor(1ms), RuntimeError) << "a nested run";
    EXPECT_THROW(co_await serial.run([]() -> int { throw std::range_error("out"); }),
                 std::range_error);
    EXPECT_TRUE(MainLoop::shared().isMainThread());
  }(serial));
  EXPECT_FALSE(MainLoop::shared().isMainThread());
}

// A task cancelled before its actor call sees the flag inside it; one cancelled during the call
// sees it inside and again after returning to its own executor.
TEST(Task, CancellationIsSeenInActorCallsMadeAfterItAndInOnesUnderWay) {
  SerialExecutor serial;
  for (bool duringCall : {false, true}) {
    std::promise<void> entered, open;
    std::shared_future<void> gate = open.get_future().share();
    auto body = [](SerialExecutor serial, bool duringCall, std::promise<void>* entered,
                   std::shared_future<void> gate) -> asio::awaitable<std::pair<bool, bool>> {
      if (!duringCall) {
        gate.wait();
      }
      bool inside = co_await serial.run([&] {
        if (duringCall) {
          entered->set_value();
          gate.wait();
        }
        return isCancelled();
      });
      co_return std::pair{inside, isCancelled()};
    };
    auto task = spawn(sharedExecutor(), body(serial, duringCall, &entered, gate));
    if (duringCall) {
      entered.get_future().wait();
    }
    task.cancel();
    open.set_value();
    auto [sawInside, sawAfter] = MainLoop::shared().runUntilComplete(task.value());
    EXPECT_TRUE(sawInside) << duringCall;
    EXPECT_TRUE(sawAfter) << duringCall;
  }
  EXPECT_FALSE(isCancelled());
}

TEST(Task, FailuresReachValueEvenAfterCancelAndDetachedOnesAreDropped) {
  auto failing = spawn(sharedExecutor(), []() -> asio::awaitable<int> {
    throw std::logic_error("no");
    co_return 0;
  }());
  EXPECT_THROW(MainLoop::shared().runUntilComplete(failing.value()), std::logic_error);
  failing.cancel();
  EXPECT_THROW(MainLoop::shared().runUntilComplete(failing.value()), std::logic_error);

  std::atomic<int> finished{0};
  for (int i = 0; i < 10; ++i) {
    spawnDetached(sharedExecutor(), [](std::atomic<int>& finished) -> asio::awaitable<void> {
      finished.fetch_add(1);
      throw std::runtime_error("dropped");
      co_return;
    }(finished));
  }
  while (finished.load() < 10) {
    std::this_thread::yield();
  }
  // The pool's workers carry on.
  auto task = spawn(sharedExecutor(), []() -> asio::awaitable<int> { co_return 1; }());
  EXPECT_EQ(MainLoop::shared().runUntilComplete(task.value()), 1);
}

TEST(DisplayLink, ManualTicksRespectPauseAndInvalidationAndTheRateFollowsTheRange) {
  std::vector<double> ticks;
  auto link = DisplayLink::make([&](DisplayLink& link) { ticks.push_back(link.timestamp()); },
                                DisplayLink::Clock::manual);
  EXPECT_TRUE(link->isPaused());
  EXPECT_DOUBLE_EQ(link->duration(), 1.0 / 60);
  for (auto [range, rate] : {std::pair<FrameRateRange, double>{{5, 30, 30}, 30},
                             {{20, 30, 10}, 20},
                             {{0, NAN, -3}, 60}}) {
    link->setPreferredFrameRateRange(range);
    EXPECT_DOUBLE_EQ(link->duration(), 1.0 / rate);
  }
  link->addToMainLoop();
  link->setPaused(false);
  MainLoop::shared().runFor(30ms);
  EXPECT_TRUE(ticks.empty()) << "a manual link ticked by itself";
  for (auto [paused, timestamp] : {std::pair{true, 1.0}, {false, 2.0}, {false, 2.5}, {true, 3.0}}) {
    link->setPaused(paused);
    link->fire(timestamp);
  }
  link->setPaused(false);
  link->invalidate();
  link->fire(4.0);
  EXPECT_EQ(ticks, (std::vector<double>{2.0, 2.5}));
  EXPECT_FALSE(link->isValid());
}

// Real time: ticks arrive only while unpaused, on the main thread, with timestamps on a grid of
// whole periods; a slow tick is followed by the next grid point ahead, not by a burst.
TEST(DisplayLink, TicksOnAFixedGridWithoutBursts) {
  std::vector<std::pair<double, double>> ticks; // timestamp, time the tick finished
  auto link = DisplayLink::make([&](DisplayLink& link) {
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    if (ticks.size() == 3) {
      std::this_thread::sleep_for(45ms); // several periods late
    }
    ticks.emplace_back(link.timestamp(), now());
  });
  link->setPreferredFrameRateRange({5, 100, 100});
  link->addToMainLoop();
  MainLoop::shared().runFor(30ms);
  EXPECT_TRUE(ticks.empty()) << "a paused link must not tick";
  link->setPaused(false);
  while (ticks.size() < 8) {
    MainLoop::shared().runFor(50ms);
  }
  link->setPaused(true);
  std::size_t count = ticks.size();
  MainLoop::shared().runFor(30ms);
  EXPECT_EQ(ticks.size(), count) << "ticks after pausing";
  link->invalidate();
  for (std::size_t i = 1; i < count; ++i) {
    double periods = (ticks[i].first - ticks[i - 1].first) / 0.01;
    EXPECT_TRUE(periods > 0.5 && std::abs(periods - std::round(periods)) < 1e-3) << i;
    EXPECT_GT(ticks[i].first, ticks[i - 1].second) << "tick " << i << " is a burst";
  }
  EXPECT_GE(ticks[4].first - ticks[3].first, 0.04);
}
