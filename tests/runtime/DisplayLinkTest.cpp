#include "platform/runtime/DisplayLink.h"

#include "platform/runtime/MainLoop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <thread>
#include <vector>

using namespace frameloom::platform;
using namespace std::chrono_literals;

namespace {

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Whether `later - earlier` is a positive whole number of periods.
bool isWholePeriodsApart(double earlier, double later, double period) {
  double periods = (later - earlier) / period;
  return periods > 0.5 && std::abs(periods - std::round(periods)) < 1e-3;
}

} // namespace

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
  link->setPaused(true);
  link->fire(1.0);
  link->setPaused(false);
  link->fire(2.0);
  link->fire(2.5);
  link->setPaused(true);
  link->fire(3.0);
  link->setPaused(false);
  link->invalidate();
  link->fire(4.0);
  EXPECT_EQ(ticks, (std::vector<double>{2.0, 2.5}));
  EXPECT_FALSE(link->isValid());
}

// Real time: ticks arrive only while unpaused, on the main thread, with timestamps on a grid of
// whole periods; a slow tick is followed by the next grid point ahead, not by a burst.
TEST(DisplayLink, TicksOnAFixedGridWithoutBursts) {
  struct Tick {
    double timestamp;
    double finished;
  };
  std::vector<Tick> ticks;
  auto link = DisplayLink::make([&](DisplayLink& link) {
    EXPECT_TRUE(MainLoop::shared().isMainThread());
    if (ticks.size() == 3) {
      std::this_thread::sleep_for(45ms); // several periods late
    }
    ticks.push_back({link.timestamp(), now()});
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
    EXPECT_TRUE(isWholePeriodsApart(ticks[i - 1].timestamp, ticks[i].timestamp, 0.01))
        << "tick " << i << " is off the grid";
    EXPECT_GT(ticks[i].timestamp, ticks[i - 1].finished) << "tick " << i << " is a burst";
  }
  EXPECT_GE(ticks[4].timestamp - ticks[3].timestamp, 0.04);
}

// The main loop holds an attached link and the link its target, whoever else lets go of them,
// until the link is invalidated (here by its own target, which may do so while it runs).
TEST(DisplayLink, LoopHoldsAnAttachedLinkUntilItIsInvalidated) {
  int ticks = 0;
  auto owner = std::make_shared<int>(0);
  std::weak_ptr<int> target = owner;
  auto link = DisplayLink::make([&ticks, owner = std::move(owner)](DisplayLink& link) {
    if (++ticks == 3) {
      link.invalidate();
    }
  });
  std::weak_ptr<DisplayLink> watched = link;
  link->setPreferredFrameRateRange({5, 200, 200});
  link->addToMainLoop();
  link->setPaused(false);
  link.reset();
  while (!watched.expired()) {
    MainLoop::shared().runFor(20ms);
  }
  EXPECT_EQ(ticks, 3);
  EXPECT_TRUE(target.expired()) << "the target is still held";
}
