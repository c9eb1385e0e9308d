#include "platform/renderer/AnimationConfig.h"
#include "platform/renderer/LottieDocument.h"

#include <gtest/gtest.h>

#include <cmath>

namespace frameloom::platform {
namespace {

TEST(LayoutTest, DefaultLayoutFitsAndCentres) {
  const Layout layout = createDefaultLayout();
  EXPECT_EQ(layoutRect(layout, 200, 100, 250, 250), (PixelRect{0, 63, 250, 125}));
  EXPECT_EQ(layoutRect(layout, 100, 400, 250, 250), (PixelRect{94, 0, 63, 250}));
  EXPECT_EQ(layoutRect(layout, 512, 512, 250, 250), (PixelRect{0, 0, 250, 250}));
  // Extreme aspect ratios still cover at least one pixel.
  EXPECT_EQ(layoutRect(layout, 100000, 1, 10, 10), (PixelRect{0, 5, 10, 1}));
}

TEST(LayoutTest, AlignmentAndFill) {
  EXPECT_EQ(layoutRect({Fit::contain, 0, 1}, 200, 100, 100, 100), (PixelRect{0, 50, 100, 50}));
  EXPECT_EQ(layoutRect({Fit::contain, 7, -3}, 100, 200, 100, 100), (PixelRect{50, 0, 50, 100}));
  EXPECT_EQ(layoutRect({Fit::contain, NAN, NAN}, 200, 100, 100, 100), (PixelRect{0, 25, 100, 50}));
  EXPECT_EQ(layoutRect({Fit::fill, 0, 0}, 200, 100, 30, 70), (PixelRect{0, 0, 30, 70}));
}

TEST(LottieTimingTest, ReadsTopLevelNumbersOnly) {
  const auto timing =
      readLottieTiming(R"({"layers":[{"ip":5,"op":6,"fr":7}],"fr":29.97,"ip":10,"op":70.5,"w":1})");
  ASSERT_TRUE(timing);
  EXPECT_EQ(timing->inPoint, 10);
  EXPECT_EQ(timing->outPoint, 70.5);
  EXPECT_EQ(timing->frameRate, 29.97);
  // Everything after the three numbers is left unread.
  EXPECT_TRUE(readLottieTiming(R"({"ip":0,"op":1,"fr":1,"layers":[)"));
}

TEST(LottieTimingTest, RejectsMissingOrUnusableValues) {
  EXPECT_FALSE(readLottieTiming(R"({"ip":0,"op":60})"));
  EXPECT_FALSE(readLottieTiming(R"({"ip":0,"op":60,"fr":0})"));
  EXPECT_FALSE(readLottieTiming(R"({"ip":0,"op":"60","fr":30})"));
  EXPECT_FALSE(readLottieTiming(R"({"ip":0,"op":1e999,"fr":30})"));
  EXPECT_FALSE(readLottieTiming(R"({"ip":0,"op":60,)"));
  EXPECT_FALSE(readLottieTiming(""));
  EXPECT_FALSE(readLottieTiming(std::string(100000, '[')));
}

} // namespace
} // namespace frameloom::platform
