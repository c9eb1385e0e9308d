#include "renderer/MatteRepairs.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <vector>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;

// A 16 x 8 composition: a white matte over x 0 to 4, then a red square over x 0 to 8 under a
// track matte of the given type.
Json mattedSquare(int matteType) {
  Json document = Json::parse(testing::sampleLottie(
      16, 8, {{0, 0, 4, 8, {{0, {1, 1, 1}}}}, {0, 0, 8, 8, {{0, {1, 0, 0}}}}}, {0, 30, 30}));
  document["layers"][0]["td"] = 1;
  document["layers"][1]["tt"] = matteType;
  return document;
}

// Whether the red square shows at each x of the middle row (a matte may leave it a little less
// than opaque).
std::vector<bool> row(const Json& document, std::vector<std::size_t> xs) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.tick();
  std::vector<bool> result;
  for (auto x : xs) {
    const Rgba8 pixel = image ? image->pixel(x, 4) : Rgba8{};
    result.push_back(pixel.a > 240 && pixel.r == pixel.a && pixel.g == 0);
  }
  return result;
}

TEST(MatteRepairsTest, MattedShapesShowWhereTheirMatteSays) {
  EXPECT_EQ(row(mattedSquare(1), {2, 6, 12}), (std::vector<bool>{true, false, false}));
  EXPECT_EQ(row(mattedSquare(2), {2, 6, 12}), (std::vector<bool>{false, true, false}));

  // A parent's move still applies: the square and its matte both move 8 to the right.
  Json parented = mattedSquare(1);
  Json parent = testing::sampleLayer(3, {0, 30, 30});
  parent["ind"] = 7;
  parent["ks"]["p"]["k"] = {8, 0};
  for (auto& layer : parented["layers"]) {
    layer["parent"] = 7;
  }
  parented["layers"].push_back(parent);
  EXPECT_EQ(row(parented, {2, 10, 14}), (std::vector<bool>{false, true, false}));
}

TEST(MatteRepairsTest, MattedPicturesShowWhereTheirMatteSays) {
  // A one-pixel red picture scaled up to the 8 x 8 square that the matte halves.
  Json document = mattedSquare(1);
  Json picture = testing::sampleLayer(2, {0, 30, 30});
  picture["refId"] = "red";
  picture["ks"]["s"]["k"] = {800, 800};
  picture["tt"] = 1;
  document["layers"][1] = picture;
  document["assets"].push_back(
      {{"id", "red"},
       {"w", 1},
       {"h", 1},
       {"u", ""},
       {"p", "data:image/"
             "png;base64,iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR4nGP4z8DwHwAFAAH/"
             "iZk9HQAAAABJRU5ErkJggg=="},
       {"e", 1}});
  EXPECT_EQ(row(document, {2, 6, 12}), (std::vector<bool>{true, false, false}));
}

TEST(MatteRepairsTest, OnlyMattedShapesThatNoLayerFollowsMove) {
  Json plain = Json::parse(testing::sampleLottie(16, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}}}}));
  EXPECT_FALSE(mattedShapesAsPrecompositions(plain));

  Json followed = mattedSquare(1);
  followed["layers"][1]["ind"] = 3;
  Json child = testing::sampleLayer(3, {0, 30, 30});
  child["parent"] = 3;
  followed["layers"].push_back(child);
  EXPECT_FALSE(mattedShapesAsPrecompositions(followed));

  Json moved = mattedSquare(1);
  moved["assets"] = Json::array({{{"id", "frameloom-matted-0"}, {"layers", Json::array()}}});
  ASSERT_TRUE(mattedShapesAsPrecompositions(moved));
  EXPECT_EQ(moved["layers"][1]["ty"], 0);
  EXPECT_EQ(moved["layers"][1]["refId"], "frameloom-matted-1");
  EXPECT_EQ(moved["assets"][1]["layers"][0]["ty"], 4);
  EXPECT_FALSE(moved["assets"][1]["layers"][0].contains("tt"));
}

} // namespace
} // namespace frameloom::renderer
