#include "platform/renderer/DotLottieAnimation.h"

#include "LottieSamples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace frameloom::platform {
namespace {

using testing::bytesOf;
using testing::sampleLottie;

constexpr testing::Rgb red{1, 0, 0};
constexpr testing::Rgb green{0, 1, 0};
constexpr testing::Rgb blue{0, 0, 1};

// 200 x 100: red on the left half, blue on the right half.
std::vector<std::uint8_t> halvesDocument() {
  return bytesOf(sampleLottie(
      200, 100, {{0, 0, 100, 100, {{0, red}}}, {100, 0, 100, 100, {{0, blue}}}}, {0, 90, 30}));
}

DotLottieAnimation make(const std::vector<std::uint8_t>& bytes,
                        std::optional<std::int64_t> width = std::nullopt,
                        std::optional<std::int64_t> height = std::nullopt) {
  AnimationConfig config{};
  config.width = width;
  config.height = height;
  return DotLottieAnimation(bytes, std::move(config));
}

TEST(DotLottieAnimationTest, ReportsFramesAndDurationOfTheTimeline) {
  const auto animation =
      make(bytesOf(sampleLottie(10, 10, {{0, 0, 10, 10, {{0, red}}}}, {12.5, 72.5, 24})));
  EXPECT_TRUE(animation.isLoaded());
  EXPECT_EQ(animation.totalFrames(), 60.0f);
  EXPECT_EQ(animation.duration(), 2.5f);
}

TEST(DotLottieAnimationTest, RendersAtOwnSizeThenAtResizedSizeWithTheDefaultLayout) {
  auto animation = make(halvesDocument());
  const auto natural = animation.tick();
  ASSERT_TRUE(natural);
  EXPECT_EQ(natural->width(), 200u);
  EXPECT_EQ(natural->height(), 100u);
  EXPECT_EQ(natural->pixel(10, 50), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(natural->pixel(190, 50), (Rgba8{0, 0, 255, 255}));

  ASSERT_TRUE(animation.resize(250, 250));
  const auto square = animation.tick();
  ASSERT_TRUE(square);
  EXPECT_EQ(square->width(), 250u);
  EXPECT_EQ(square->height(), 250u);
  EXPECT_EQ(square->pixel(60, 125), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(square->pixel(190, 125), (Rgba8{0, 0, 255, 255}));
  // Letterbox bands above and below stay transparent.
  EXPECT_EQ(square->pixel(125, 20), (Rgba8{}));
  EXPECT_EQ(square->pixel(125, 230), (Rgba8{}));
}

TEST(DotLottieAnimationTest, SizeFromConfigurationAndBackground) {
  AnimationConfig config;
  config.width = 50;
  config.height = 100;
  config.backgroundColor = {0, 255, 0, 128};
  DotLottieAnimation animation(halvesDocument(), config);
  const auto image = animation.tick();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 50u);
  EXPECT_EQ(image->pixel(25, 5), (Rgba8{0, 128, 0, 128}));
  EXPECT_EQ(image->pixel(10, 50), (Rgba8{255, 0, 0, 255}));
}

TEST(DotLottieAnimationTest, FrameNumbersCountFromTheInPointAndRoundToNearest) {
  // The colour is red until frame 40, blue until 50, then green; the timeline starts at 30.
  auto animation = make(bytesOf(
      sampleLottie(8, 8, {{0, 0, 8, 8, {{0, red}, {40, blue}, {50, green}}}}, {30, 90, 30})));
  const auto colorAt = [&](float frame) {
    EXPECT_TRUE(animation.setFrame(frame)) << frame;
    return animation.tick()->pixel(4, 4);
  };
  EXPECT_EQ(colorAt(0), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(colorAt(9.4f), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(colorAt(9.6f), (Rgba8{0, 0, 255, 255}));
  EXPECT_EQ(colorAt(20), (Rgba8{0, 255, 0, 255}));
  EXPECT_EQ(colorAt(60), (Rgba8{0, 255, 0, 255}));
}

TEST(DotLottieAnimationTest, RefusesUnusableFramesAndKeepsTheCurrentOne) {
  auto animation = make(halvesDocument());
  ASSERT_TRUE(animation.setFrame(12));
  for (float bad : {-0.5f, 90.5f, std::numeric_limits<float>::quiet_NaN(),
                    std::numeric_limits<float>::infinity()}) {
    EXPECT_FALSE(animation.setFrame(bad)) << bad;
  }
  EXPECT_EQ(animation.currentFrame(), 12.0f);
  EXPECT_TRUE(animation.tick());
}

TEST(DotLottieAnimationTest, UnusableSizesGiveNoImageUntilResizedAgain) {
  auto animation = make(halvesDocument(), 0, 250);
  EXPECT_FALSE(animation.tick());
  for (auto [width, height] : std::vector<std::pair<std::int64_t, std::int64_t>>{
           {-1, 10}, {10, 0}, {16385, 10}, {std::numeric_limits<std::int64_t>::max(), 1}}) {
    EXPECT_FALSE(animation.resize(width, height));
    EXPECT_FALSE(animation.tick());
  }
  EXPECT_TRUE(animation.resize(16384, 1));
  EXPECT_TRUE(animation.resize(3, 3));
  EXPECT_TRUE(animation.tick());
}

TEST(DotLottieAnimationTest, BytesWithoutAnAnimationGiveAnEmptyAnimation) {
  const std::vector<std::vector<std::uint8_t>> inputs{
      {},
      bytesOf("not an animation"),
      bytesOf("{}"),
      bytesOf(R"({"v":"5.7.0","fr":30,"ip":0,"op":60,"w":10,"h":10,"layers":[)"),
      {'P', 'K', 3, 4, 0, 0, 0},
  };
  for (const auto& bytes : inputs) {
    auto animation = make(bytes, 250, 250);
    EXPECT_FALSE(animation.isLoaded());
    EXPECT_EQ(animation.totalFrames(), 0.0f);
    EXPECT_EQ(animation.duration(), 0.0f);
    EXPECT_FALSE(animation.setFrame(0));
    EXPECT_FALSE(animation.tick());
  }
}

TEST(DotLottieAnimationTest, DocumentsNeverShareAModel) {
  for (const auto& color : {red, blue, red}) {
    auto animation = make(bytesOf(sampleLottie(4, 4, {{0, 0, 4, 4, {{0, color}}}})));
    const Rgba8 expected{static_cast<std::uint8_t>(color[0] * 255), 0,
                         static_cast<std::uint8_t>(color[2] * 255), 255};
    EXPECT_EQ(animation.tick()->pixel(2, 2), expected);
  }
}

TEST(DotLottieAnimationTest, DestroyReleasesOnceAndStopsRendering) {
  auto animation = make(halvesDocument(), 20, 20);
  animation.destroy();
  animation.destroy();
  EXPECT_FALSE(animation.isLoaded());
  EXPECT_EQ(animation.totalFrames(), 0.0f);
  EXPECT_FALSE(animation.setFrame(0));
  EXPECT_FALSE(animation.tick());
}

} // namespace
} // namespace frameloom::platform
