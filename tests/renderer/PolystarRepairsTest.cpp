#include "renderer/PolystarRepairs.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 none{};

// A 40 x 40 composition, 30 frames, with a thin red star of four points centred in it: points
// 18 pixels out, notches 6 pixels in. `points` and `rotation` are the star's "pt" and "r" values.
Json star(const Json& points, const Json& rotation) {
  Json layer = testing::sampleLayer(4, {0, 30, 30});
  Json polystar = Json::parse(R"({"ty":"sr","sy":1,"d":1,"p":{"a":0,"k":[20,20]},)"
                              R"("ir":{"a":0,"k":6},"is":{"a":0,"k":0},)"
                              R"("or":{"a":0,"k":18},"os":{"a":0,"k":0}})");
  polystar["pt"] = points;
  polystar["r"] = rotation;
  layer["shapes"] = Json::array(
      {polystar, Json::parse(R"({"ty":"fl","c":{"a":0,"k":[1,0,0,1]},"o":{"a":0,"k":100}})")});
  Json document = Json::parse(testing::sampleLottie(40, 40, {}, {0, 30, 30}));
  document["layers"] = Json::array({layer});
  return document;
}

Json fixed(double value) {
  return {{"a", 0}, {"k", value}};
}

// From `from` at frame 0 to `to` at frame 10, evenly.
Json linear(double from, double to) {
  const Json even = Json::parse(R"({"x":[0.5],"y":[0.5]})");
  return {{"a", 1},
          {"k", Json::array({{{"t", 0}, {"s", {from}}, {"e", {to}}, {"i", even}, {"o", even}},
                             {{"t", 10}}})}};
}

std::vector<std::uint8_t> frameOf(const Json& document, float frame) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.setFrame(frame) ? animation.tick() : nullptr;
  return image ? std::vector<std::uint8_t>(image->pixels().begin(), image->pixels().end())
               : std::vector<std::uint8_t>{};
}

Rgba8 pixelAt(const Json& document, std::size_t x, std::size_t y) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.tick();
  return image ? image->pixel(x, y) : Rgba8{1, 2, 3, 4};
}

// Turned by 45 degrees the points face the corners: one lies on the diagonal towards the top
// right, none straight up.
TEST(PolystarRepairsTest, StarTurnsByItsRotationOnce) {
  const Json turned = star(fixed(4), fixed(45));
  EXPECT_EQ(pixelAt(turned, 27, 13), red);
  EXPECT_EQ(pixelAt(turned, 20, 8), none);
  EXPECT_EQ(frameOf(star(fixed(4), linear(0, 90)), 5), frameOf(turned, 0));
}

TEST(PolystarRepairsTest, StarHasTheWholePartOfItsPointCount) {
  const std::vector<std::uint8_t> fourPoints = frameOf(star(fixed(4), fixed(0)), 0);
  ASSERT_FALSE(fourPoints.empty());
  EXPECT_EQ(frameOf(star(fixed(4.6), fixed(0)), 0), fourPoints);
  // Halfway from 4 to 5 points, then from 4 to 4.999 (eased to a hair below 5 just before the
  // last keyframe), then held at the last keyframe's 5.
  EXPECT_EQ(frameOf(star(linear(4, 5), fixed(0)), 5), fourPoints);
  EXPECT_EQ(frameOf(star(linear(4, 5), fixed(0)), 9), fourPoints);
  EXPECT_EQ(frameOf(star(linear(4, 5), fixed(0)), 20), frameOf(star(fixed(5), fixed(0)), 0));
}

TEST(PolystarRepairsTest, OddCountsAndSpansAreLeftAlone) {
  Json document = Json::parse(
      R"({"layers":[{"shapes":[{"ty":"sr","pt":{"a":1,"k":[{"t":5,"s":[4]},{"t":1,"s":[6]}]},)"
      R"("r":{"a":1,"k":[{"t":0},"x"]}},{"ty":"sr","pt":{"a":1,"k":[{"t":0,"s":[4]},)"
      R"({"t":1e9,"s":[6]}]},"r":"x"},{"ty":"sr","pt":{"k":"x"}},{"ty":"sr","pt":{"a":1,"k":)"
      R"([{"t":1e300,"s":[4]},{"t":1e300,"s":[6]}]}}]}]})");
  const Json before = document;
  EXPECT_FALSE(wholePolystarPoints(document));
  EXPECT_FALSE(polystarRotationOnce(document));
  EXPECT_EQ(document, before);
}

} // namespace
} // namespace frameloom::renderer
