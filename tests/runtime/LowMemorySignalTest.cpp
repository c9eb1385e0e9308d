#include "platform/system/LowMemorySignal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

using frameloom::platform::LowMemorySignal;

// Calls reach current subscribers only; a callback may end its own subscription and subscribe
// another (which hears from the next post on) while it is being called.
TEST(LowMemorySignal, DeliversToCurrentSubscribersOnly) {
  LowMemorySignal signal;
  std::vector<int> calls;
  auto first = signal.subscribe([&] { calls.push_back(1); });
  std::optional<LowMemorySignal::Subscription> second;
  LowMemorySignal::Subscription late;
  second = signal.subscribe([&] {
    calls.push_back(2);
    second.reset();
    late = signal.subscribe([&] { calls.push_back(3); });
  });
  signal.post();
  signal.post();
  first = {};
  signal.post();
  EXPECT_EQ(calls, (std::vector<int>{1, 2, 1, 3, 3}));
}

// Once unsubscribing has returned, the callback must not be running on another thread: the
// subscriber's state it uses may be gone.
TEST(LowMemorySignal, UnsubscribeWaitsForCallsInProgressOnOtherThreads) {
  LowMemorySignal signal;
  std::atomic<bool> stop{false};
  std::thread poster([&] {
    while (!stop.load()) {
      signal.post();
    }
  });
  for (int round = 0; round < 200; ++round) {
    auto alive = std::make_unique<std::atomic<int>>(0);
    auto subscription = signal.subscribe([counter = alive.get()] { counter->fetch_add(1); });
    std::this_thread::yield();
    subscription.reset();
    alive.reset();
  }
  stop = true;
  poster.join();
}
