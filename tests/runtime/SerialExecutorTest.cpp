#include "platform/runtime/SerialExecutor.h"

#include "platform/runtime/MainLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace frameloom::platform;

// Several threads submit numbered jobs at once: the executor must run one job at a time and
// each producer's jobs in the order it submitted them.
TEST(SerialExecutor, RunsJobsOneAtATimeInSubmissionOrder) {
  SerialExecutor serial;
  constexpr int producers = 4;
  constexpr int jobsEach = 500;
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::vector<std::pair<int, int>> order; // only touched on the serial executor
  std::atomic<int> done{0};

  std::vector<std::thread> threads;
  for (int producer = 0; producer < producers; ++producer) {
    threads.emplace_back([&, producer] {
      for (int job = 0; job < jobsEach; ++job) {
        asio::post(serial.executor(), [&, producer, job] {
          if (inside.fetch_add(1) != 0) {
            overlapped = true;
          }
          order.emplace_back(producer, job);
          inside.fetch_sub(1);
          done.fetch_add(1);
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
  ASSERT_EQ(done.load(), producers * jobsEach);
  std::map<int, int> next;
  for (auto [producer, job] : order) {
    EXPECT_EQ(job, next[producer]++) << "producer " << producer;
  }
}

TEST(SerialExecutor, AwaitedWorkHopsOnAndBackAndPassesFailuresThrough) {
  SerialExecutor serial;
  MainLoop::shared().runUntilComplete([](SerialExecutor serial) -> asio::awaitable<void> {
    int value = co_await serial.run([&] {
      EXPECT_TRUE(serial.isCurrent());
      EXPECT_FALSE(MainLoop::shared().isMainThread());
      return 7;
    });
    EXPECT_EQ(value, 7);
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    EXPECT_FALSE(serial.isCurrent());

    EXPECT_THROW(co_await serial.run([]() -> int { throw std::range_error("out"); }),
                 std::range_error);
    EXPECT_TRUE(MainLoop::shared().isMainThread());
  }(serial));
}
