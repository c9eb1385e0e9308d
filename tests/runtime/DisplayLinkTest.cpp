#include "platform/runtime/DisplayLink.h"

#include "platform/runtime/MainLoop.h"

#include <gtest/gtest.h>

#include <vector>

using namespace frameloom::platform;

TEST(DisplayLink, ManualTicksRespectPauseAndInvalidation) {
  std::vector<double> ticks;
  auto link = DisplayLink::make([&](DisplayLink& link) { ticks.push_back(link.timestamp()); },
                                DisplayLink::Clock::manual);
  EXPECT_TRUE(link->isPaused());
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
}
