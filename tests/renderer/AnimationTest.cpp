#include "platform/renderer/DotLottieAnimation.h"
#include "platform/renderer/LottieDocument.h"

#include "LottieSamples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace frameloom::platform {
namespace {

using testing::bytesOf;
using testing::sampleLottie;
using Pixels = std::vector<Rgba8>;

constexpr testing::Rgb red{1, 0, 0};
constexpr testing::Rgb blue{0, 0, 1};
constexpr Rgba8 r{255, 0, 0, 255};
constexpr Rgba8 g{0, 255, 0, 255};
constexpr Rgba8 b{0, 0, 255, 255};
constexpr Rgba8 clear{};

// 200 x 100: red on the left half, blue on the right half, 60 frames.
const std::vector<std::uint8_t> halves = bytesOf(
    sampleLottie(200, 100, {{0, 0, 100, 100, {{0, red}}}, {100, 0, 100, 100, {{0, blue}}}}));

DotLottieAnimation make(const std::vector<std::uint8_t>& bytes, std::optional<std::int64_t> width,
                        std::optional<std::int64_t> height, Rgba8 background = {}) {
  AnimationConfig config;
  config.width = width;
  config.height = height;
  config.backgroundColor = background;
  return DotLottieAnimation(bytes, config);
}

using Look = std::tuple<std::size_t, std::size_t, Pixels>;

// The image's width and height, and its pixels at the given points.
Look look(const std::shared_ptr<const Image>& image,
          std::vector<std::pair<std::size_t, std::size_t>> points) {
  Pixels pixels;
  for (auto [x, y] : points) {
    pixels.push_back(image->pixel(x, y));
  }
  return {image->width(), image->height(), pixels};
}

TEST(DotLottieAnimationTest, RendersAtOwnConfiguredAndResizedSizesWithLayoutAndBackground) {
  auto animation = make(halves, std::nullopt, std::nullopt);
  EXPECT_EQ(look(animation.tick(), {{10, 50}, {190, 50}}), Look(200, 100, {r, b}));
  ASSERT_TRUE(animation.resize(250, 250));
  // Letterbox bands above and below stay transparent.
  EXPECT_EQ(look(animation.tick(), {{60, 125}, {190, 125}, {125, 20}, {125, 230}}),
            Look(250, 250, {r, b, clear, clear}));
  EXPECT_EQ(look(make(halves, 50, 100, {0, 255, 0, 128}).tick(), {{25, 5}, {10, 50}}),
            Look(50, 100, {{0, 128, 0, 128}, r}));
}

TEST(DotLottieAnimationTest, FramesCountFromTheInPointAndRoundToNearest) {
  // Red until frame 40, blue until 50, then green; the timeline runs from 30 to 92.5 at 25 fps.
  auto animation =
      make(bytesOf(sampleLottie(8, 8, {{0, 0, 8, 8, {{0, red}, {40, blue}, {50, {0, 1, 0}}}}},
                                {30, 92.5, 25})),
           std::nullopt, std::nullopt);
  EXPECT_EQ(animation.totalFrames(), 62.5f);
  EXPECT_EQ(animation.duration(), 2.5f);
  for (const auto& [frame, color] :
       std::vector<std::pair<float, Rgba8>>{{0, r}, {9.4f, r}, {9.6f, b}, {20, g}, {62.5f, g}}) {
    ASSERT_TRUE(animation.setFrame(frame)) << frame;
    EXPECT_EQ(animation.tick()->pixel(4, 4), color) << frame;
  }
}

TEST(DotLottieAnimationTest, HostileFramesAndSizesAreRefused) {
  auto animation = make(halves, 0, 250);
  EXPECT_FALSE(animation.tick());
  ASSERT_TRUE(animation.setFrame(12));
  for (float bad : {-0.5f, 60.5f, NAN, INFINITY}) {
    EXPECT_FALSE(animation.setFrame(bad)) << bad;
  }
  EXPECT_EQ(animation.currentFrame(), 12.0f);
  for (auto [width, height] : std::vector<std::pair<std::int64_t, std::int64_t>>{
           {-1, 10}, {10, 0}, {16385, 10}, {std::numeric_limits<std::int64_t>::max(), 1}}) {
    EXPECT_FALSE(animation.resize(width, height));
    EXPECT_FALSE(animation.tick());
  }
  EXPECT_TRUE(animation.resize(16384, 1));
  EXPECT_TRUE(animation.resize(3, 3));
  EXPECT_TRUE(animation.tick());
}

TEST(DotLottieAnimationTest, EmptyAndDestroyedAnimationsRenderNothing) {
  for (const auto& bytes :
       std::vector<std::vector<std::uint8_t>>{{},
                                              bytesOf("no animation"),
                                              bytesOf("{}"),
                                              bytesOf(R"({"w":10,"h":10,"layers":[)"),
                                              {'P', 'K', 3, 4, 0, 0, 0},
                                              halves}) {
    auto animation = make(bytes, 250, 250);
    if (bytes == halves) {
      animation.destroy();
      animation.destroy();
    }
    EXPECT_FALSE(animation.isLoaded());
    EXPECT_EQ(animation.totalFrames() + animation.duration(), 0.0f);
    EXPECT_FALSE(animation.setFrame(0));
    EXPECT_FALSE(animation.tick());
  }
}

TEST(LayoutTest, FitsAlignsAndFills) {
  EXPECT_EQ(layoutRect(createDefaultLayout(), 100, 400, 250, 250), (PixelRect{94, 0, 63, 250}));
  // Extreme aspect ratios still cover at least one pixel.
  EXPECT_EQ(layoutRect(createDefaultLayout(), 100000, 1, 10, 10), (PixelRect{0, 5, 10, 1}));
  EXPECT_EQ(layoutRect({Fit::contain, 7, -3}, 100, 200, 100, 100), (PixelRect{50, 0, 50, 100}));
  EXPECT_EQ(layoutRect({Fit::contain, NAN, NAN}, 200, 100, 100, 100), (PixelRect{0, 25, 100, 50}));
  EXPECT_EQ(layoutRect({Fit::fill, 0, 0}, 200, 100, 30, 70), (PixelRect{0, 0, 30, 70}));
}

TEST(LottieTimingTest, ReadsTopLevelNumbersAndRejectsUnusableOnes) {
  // Nested values do not count, and what follows the three numbers is never read.
  const auto timing = readLottieTiming(R"({"layers":[{"ip":5,"op":6,"fr":7}],"fr":29.97,"ip":10,)"
                                       R"("op":70.5,"w":1,"assets":[)");
  ASSERT_TRUE(timing);
  EXPECT_EQ(std::tuple(timing->inPoint, timing->outPoint, timing->frameRate),
            std::tuple(10, 70.5, 29.97));
  for (const std::string& bad : std::vector<std::string>{
           R"({"ip":0,"op":60})", R"({"ip":0,"op":60,"fr":0})", R"({"ip":0,"op":"60","fr":30})",
           R"({"ip":0,"op":1e999,"fr":30})", R"({"ip":0,"op":60,)", "", std::string(100000, '[')}) {
    EXPECT_FALSE(readLottieTiming(bad)) << bad.substr(0, 30);
  }
}

} // namespace
} // namespace frameloom::platform
