#include "renderer/SkewRepairs.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 none{};

// A 40 x 40 composition with a red 10 x 10 square centred in it, inside a group whose transform
// has the given members on top of a centred position.
Json skewedSquare(const Json& members) {
  Json layer = testing::sampleLayer(4, {0, 30, 30});
  Json transform = Json::parse(R"({"ty":"tr","p":{"a":0,"k":[20,20]},"a":{"a":0,"k":[0,0]},)"
                               R"("s":{"a":0,"k":[100,100]},"r":{"a":0,"k":0},)"
                               R"("o":{"a":0,"k":100}})");
  transform.update(members);
  layer["shapes"] = Json::array(
      {{{"ty", "gr"},
        {"it", Json::array({Json::parse(R"({"ty":"rc","p":{"a":0,"k":[0,0]},)"
                                        R"("s":{"a":0,"k":[10,10]},"r":{"a":0,"k":0}})"),
                            Json::parse(R"({"ty":"fl","c":{"a":0,"k":[1,0,0,1]},)"
                                        R"("o":{"a":0,"k":100}})"),
                            transform})}}});
  Json document = Json::parse(testing::sampleLottie(40, 40, {}, {0, 30, 30}));
  document["layers"] = Json::array({layer});
  return document;
}

std::vector<Rgba8> pixels(const Json& document,
                          const std::vector<std::pair<std::size_t, std::size_t>>& points) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.tick();
  std::vector<Rgba8> result;
  for (auto [x, y] : points) {
    result.push_back(image ? image->pixel(x, y) : Rgba8{1, 2, 3, 4});
  }
  return result;
}

// Skewed by 45 degrees the square leans: its top row moves 5 pixels right, its bottom row 5
// left. Points just right of its top and just left of its bottom are covered, the other corners
// are not.
TEST(SkewRepairsTest, SkewedGroupsLean) {
  const std::vector<std::pair<std::size_t, std::size_t>> corners{
      {27, 16}, {12, 23}, {12, 16}, {27, 23}};
  EXPECT_EQ(pixels(skewedSquare({{"sk", {{"a", 0}, {"k", 45}}}}), corners),
            (std::vector<Rgba8>{red, red, none, none}));
  // Twice as wide first: the top row reaches 10 + 5 pixels right of the centre.
  EXPECT_EQ(
      pixels(skewedSquare({{"sk", {{"a", 0}, {"k", 45}}}, {"s", {{"a", 0}, {"k", {200, 100}}}}}),
             {{32, 16}, {7, 23}, {5, 16}}),
      (std::vector<Rgba8>{red, red, none}));
  // Turned by a quarter after the skew: the lean runs down the sides instead.
  EXPECT_EQ(pixels(skewedSquare({{"sk", {{"a", 0}, {"k", 45}}}, {"r", {{"a", 0}, {"k", 90}}}}),
                   {{23, 27}, {16, 12}, {16, 27}, {23, 12}}),
            (std::vector<Rgba8>{red, red, none, none}));
}

TEST(SkewRepairsTest, SkewsTheGroupsCannotExpressAreLeftAlone) {
  for (const Json& members :
       {Json{{"sk", {{"a", 0}, {"k", 30}}}, {"sa", {{"a", 0}, {"k", 45}}}},
        Json{{"sk",
              {{"a", 1}, {"k", Json::array({{{"t", 0}, {"s", {0}}}, {{"t", 9}, {"s", {9}}}})}}}},
        Json{{"sk", {{"a", 0}, {"k", 89}}}}, Json{{"sk", {{"a", 0}, {"k", "lots"}}}},
        Json{{"sk", {{"a", 0}, {"k", 30}}}, {"s", {{"a", 1}, {"k", Json::array()}}}}}) {
    Json document = skewedSquare(members);
    const Json before = document;
    EXPECT_FALSE(skewAsNestedGroups(document)) << members.dump();
    EXPECT_EQ(document, before);
  }
}

} // namespace
} // namespace frameloom::renderer
