#include "renderer/DocumentRepairs.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;
using testing::sampleLottie;

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 none{};

// A 16 x 8 composition, 30 frames, with a red square over its left half.
Json redSquare() {
  return Json::parse(sampleLottie(16, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}}}}, {0, 30, 30}));
}

Json& squareLayer(Json& document) {
  return document["layers"][0];
}

// The pixel at (x, y) of the given frame, drawn at the composition's own size.
Rgba8 pixelAt(const Json& document, float frame, std::size_t x, std::size_t y) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  if (!animation.setFrame(frame)) {
    return {1, 2, 3, 4};
  }
  const auto image = animation.tick();
  return image && x < image->width() && y < image->height() ? image->pixel(x, y) : none;
}

// Gives the square layer one mask, in the given mode, around the whole square.
void coveringMask(Json& document, const char* mode) {
  squareLayer(document)["hasMask"] = true;
  squareLayer(document)["masksProperties"] = Json::array(
      {{{"inv", false},
        {"mode", mode},
        {"pt", Json::parse(R"({"a":0,"k":{"c":true,"i":[[0,0],[0,0],[0,0],[0,0]],)"
                           R"("o":[[0,0],[0,0],[0,0],[0,0]],"v":[[0,0],[8,0],[8,8],[0,8]]}})")},
        {"o", {{"a", 0}, {"k", 100}}}}});
}

struct Case {
  const char* name;
  std::function<void(Json&)> edit;
  float frame;
  std::size_t x;
  Rgba8 expected;
};

// Each edit makes a document that rlottie refuses, draws blank or misreads unless it is repaired.
TEST(DocumentRepairsTest, DocumentsRlottieRefusesOrMisreadsAreDrawnAsMeant) {
  const Json linear = Json::parse(R"({"x":[0.5],"y":[0.5]})");
  const std::vector<Case> cases{
      {"type written as a float", [](Json& d) { squareLayer(d)["ty"] = 4.0; }, 0, 4, red},
      {"fractional composition size",
       [](Json& d) {
         d["w"] = 16.4;
         d["h"] = 7.84;
       },
       0, 4, red},
      {"rotation written ry on a 2D layer",
       [](Json& d) {
         Json& transform = squareLayer(d)["ks"];
         const Json rotation =
             Json::parse(R"({"a":1,"k":[{"t":0,"s":[0]},{"t":30,"s":[0]}],"ix":10})");
         transform = Json{{"o", transform["o"]},
                          {"ry", rotation},
                          {"p", transform["p"]},
                          {"a", transform["a"]},
                          {"s", transform["s"]}};
       },
       0, 4, red},
      {"null member", [](Json& d) { squareLayer(d)["shapes"][0]["d"] = nullptr; }, 0, 4, red},
      {"shape type after its other keys",
       [](Json& d) {
         Json& fill = squareLayer(d)["shapes"][1];
         const Json type = fill["ty"];
         fill.erase("ty");
         fill["ty"] = type;
       },
       0, 4, red},
      {"mask in mode n does nothing",
       [](Json& d) {
         squareLayer(d)["hasMask"] = true;
         squareLayer(d)["masksProperties"] = Json::parse(
             R"([{"inv":false,"mode":"n","pt":{"a":0,"k":{"c":true,"i":[[0,0],[0,0],[0,0]],)"
             R"("o":[[0,0],[0,0],[0,0]],"v":[[0,0],[1,0],[1,1]]}},"o":{"a":0,"k":100}}])");
       },
       0, 4, red},
      {"mask in mode lighten shows what it covers", [&](Json& d) { coveringMask(d, "l"); }, 0, 4,
       red},
      {"mask in mode darken shows what it covers", [&](Json& d) { coveringMask(d, "d"); }, 0, 4,
       red},
      {"layer turned without saying it is flat",
       [](Json& d) {
         squareLayer(d).erase("ddd");
         Json& transform = squareLayer(d)["ks"];
         transform["a"]["k"] = {8, 4};
         transform["p"]["k"] = {8, 4};
         transform["r"]["k"] = 180;
       },
       0, 12, red},
      {"in point just above a frame: hidden on that frame",
       [](Json& d) { squareLayer(d)["ip"] = 2.2; }, 2, 4, none},
      {"in point just above a frame: shown on the next",
       [](Json& d) { squareLayer(d)["ip"] = 2.2; }, 3, 4, red},
      {"layer opacity written as an array of one number",
       [](Json& d) { squareLayer(d)["ks"]["o"]["k"] = {100}; }, 0, 4, red},
      {"fill opacity written as an array of one number",
       [](Json& d) { squareLayer(d)["shapes"][1]["o"]["k"] = {100}; }, 0, 4, red},
      {"inverted first mask hides what it covers",
       [&](Json& d) {
         coveringMask(d, "a");
         squareLayer(d)["masksProperties"][0]["inv"] = true;
       },
       0, 4, none},
      {"solid colour in three digits",
       [](Json& d) {
         Json solid = testing::sampleLayer(1, {0, 30, 30});
         solid["sc"] = "#f00";
         solid["sw"] = 8;
         solid["sh"] = 8;
         squareLayer(d) = solid;
       },
       0, 4, red},
      {"last keyframe with an easing still moves",
       [&](Json& d) {
         Json position = Json::object();
         position["a"] = 1;
         position["k"] = Json::array({{{"t", 0}, {"s", {0, 0}}, {"i", linear}, {"o", linear}},
                                      {{"t", 10}, {"s", {8, 0}}, {"i", linear}, {"o", linear}}});
         squareLayer(d)["ks"]["p"] = position;
       },
       20, 12, red},
  };
  for (const Case& c : cases) {
    Json document = redSquare();
    c.edit(document);
    EXPECT_EQ(pixelAt(document, c.frame, c.x, 4), c.expected) << c.name;
  }
}

TEST(DocumentRepairsTest, RoundCornersRoundRectangles) {
  Json document = redSquare();
  squareLayer(document)["shapes"].insert(squareLayer(document)["shapes"].begin() + 1,
                                         Json::parse(R"({"ty":"rd","r":{"a":0,"k":4}})"));
  EXPECT_EQ(pixelAt(document, 0, 0, 0), none);
  EXPECT_EQ(pixelAt(document, 0, 4, 4), red);

  // A rectangle after the round-corners item, or with its own roundness, is left as it is.
  Json after = redSquare();
  squareLayer(after)["shapes"].insert(squareLayer(after)["shapes"].begin(),
                                      Json::parse(R"({"ty":"rd","r":{"a":0,"k":4}})"));
  EXPECT_FALSE(roundCornersOnRectangles(after));
  Json rounded = redSquare();
  squareLayer(rounded)["shapes"][0]["r"]["k"] = 1;
  squareLayer(rounded)["shapes"].insert(squareLayer(rounded)["shapes"].begin() + 1,
                                        Json::parse(R"({"ty":"rd","r":{"a":0,"k":4}})"));
  EXPECT_FALSE(roundCornersOnRectangles(rounded));
}

// A 32 x 8 composition showing, through a precomposition layer, a red square that moves right by
// `speed` pixels a frame from the left edge.
Json movingSquareInPrecomposition(double speed) {
  Json document = Json::parse(sampleLottie(32, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}}}}, {0, 60, 30}));
  Json inner = document["layers"][0];
  const Json linear = Json::parse(R"({"x":[0.5],"y":[0.5]})");
  inner["ks"]["p"] =
      Json{{"a", 1},
           {"k", Json::array({{{"t", 0}, {"s", {0, 0}}, {"i", linear}, {"o", linear}},
                              {{"t", 8}, {"s", {8 * speed, 0}}}})}};
  document["assets"] = Json::array({{{"id", "moving"}, {"layers", Json::array({inner})}}});
  Json layer = testing::sampleLayer(0, {0, 60, 30});
  layer["refId"] = "moving";
  layer["w"] = 32;
  layer["h"] = 8;
  document["layers"] = Json::array({layer});
  return document;
}

// A mask over the whole square at half opacity, fixed or on its way from 100 to 0, halves the
// square's alpha, the layer's own opacity of 50 halves it again.
TEST(DocumentRepairsTest, TheOpacityOfALayersOnlyMaskApplies) {
  const Json linear = Json::parse(R"({"x":[0.5],"y":[0.5]})");
  const Json fading = {{"a", 1},
                       {"k", Json::array({{{"t", 0}, {"s", {100}}, {"i", linear}, {"o", linear}},
                                          {{"t", 10}, {"s", {0}}}})}};
  const std::vector<std::tuple<Json, double, int>> cases{
      {{{"a", 0}, {"k", 50}}, 100, 128}, {fading, 100, 128}, {{{"a", 0}, {"k", 50}}, 50, 64}};
  for (const auto& [maskOpacity, layerOpacity, alpha] : cases) {
    Json document = redSquare();
    squareLayer(document)["hasMask"] = true;
    squareLayer(document)["ks"]["o"]["k"] = layerOpacity;
    squareLayer(document)["masksProperties"] = Json::parse(
        R"([{"inv":false,"mode":"a","pt":{"a":0,"k":{"c":true,"i":[[0,0],[0,0],[0,0],[0,0]],)"
        R"("o":[[0,0],[0,0],[0,0],[0,0]],"v":[[0,0],[16,0],[16,8],[0,8]]}}}])");
    squareLayer(document)["masksProperties"][0]["o"] = maskOpacity;
    EXPECT_NEAR(pixelAt(document, 5, 4, 4).a, alpha, 2) << maskOpacity.dump() << layerOpacity;
  }
}

// Times rlottie reads differently: a precomposition stretched in time lands between its own
// frames, and a time remap that never changes pins the precomposition to one time.
TEST(DocumentRepairsTest, PrecompositionTimesAreDrawnAsMeant) {
  Json stretched = movingSquareInPrecomposition(8);
  stretched["layers"][0]["sr"] = 2;
  // Outer frame 1 is inner frame 0.5: the square has moved by 4, not 0 or 8.
  EXPECT_EQ(pixelAt(stretched, 1, 2, 4), none);
  EXPECT_EQ(pixelAt(stretched, 1, 10, 4), red);
  EXPECT_EQ(pixelAt(stretched, 1, 13, 4), none);

  // 0.21 s at 30 frames a second: inner frame 6.3, the square moved by 12 and more. Written
  // with and without the animated flag, which the repair adds.
  for (const Json& remap : {Json{{"a", 0}, {"k", 0.21}}, Json{{"k", 0.21}}}) {
    Json remapped = movingSquareInPrecomposition(2);
    remapped["layers"][0]["tm"] = remap;
    EXPECT_EQ(pixelAt(remapped, 0, 10, 4), none) << remap;
    EXPECT_EQ(pixelAt(remapped, 0, 16, 4), red) << remap;
    EXPECT_EQ(pixelAt(remapped, 20, 16, 4), red) << remap;
  }
}

// Sized 99999 by its exporter, a precomposition layer means no clip; a large but real size
// still clips.
TEST(DocumentRepairsTest, UnboundedPrecompositionsAreNotClippedAway) {
  Json unbounded = movingSquareInPrecomposition(1);
  unbounded["layers"][0]["w"] = 99999;
  unbounded["layers"][0]["h"] = 99999;
  EXPECT_EQ(pixelAt(unbounded, 0, 4, 4), red);

  Json bounded = movingSquareInPrecomposition(1);
  bounded["layers"][0]["w"] = 4;
  bounded["layers"][0]["h"] = 16000;
  EXPECT_FALSE(unclipHugePrecompositions(bounded));
  EXPECT_EQ(pixelAt(bounded, 0, 2, 4), red);
  EXPECT_EQ(pixelAt(bounded, 0, 6, 4), none);
}

// A stretch is baked into a precomposition only when nothing else shares it, and a
// precomposition holding itself ends the rewrite.
TEST(DocumentRepairsTest, StretchesOfSharedOrSelfHoldingPrecompositionsAreKept) {
  Json shared = movingSquareInPrecomposition(1);
  shared["layers"][0]["sr"] = 2;
  shared["layers"].push_back(shared["layers"][0]);
  const Json before = shared;
  EXPECT_FALSE(stretchIntoKeyframes(shared));
  EXPECT_EQ(shared, before);

  // Shown by nothing but itself, stretched: baked once, not again for the stretch it hands on.
  Json selfHolding = movingSquareInPrecomposition(1);
  Json& inner = selfHolding["assets"][0]["layers"][0];
  inner = Json{{"ty", 0}, {"ip", 0}, {"op", 60}, {"st", 0}, {"refId", "moving"}, {"sr", 2}};
  selfHolding["layers"][0]["refId"] = "elsewhere";
  EXPECT_TRUE(stretchIntoKeyframes(selfHolding));
  EXPECT_EQ(inner["op"], 120.0);
}

// A repair touches nothing it need not: documents that need none come back unchanged, and each
// repair changes only what it is about.
TEST(DocumentRepairsTest, RepairsLeaveOtherValuesAndKeyOrderAlone) {
  Json untouched = redSquare();
  EXPECT_FALSE(repairDocument(untouched, false));
  EXPECT_EQ(untouched, redSquare());

  Json document = Json::parse(
      R"({"w":10.0,"h":9.5,"x":[1.5,2.0,null],"layers":[{"a":1,"ty":4,"ip":1.25,"op":7,)"
      R"("ks":{"r":{"k":5},"rz":{"k":6}},"nm":null},{"ddd":1,"ty":4,"ks":{"rx":{"k":1}}}]})");
  EXPECT_TRUE(repairDocument(document, true));
  EXPECT_EQ(document.dump(),
            R"({"w":10,"h":10,"x":[1.5,2,null],"layers":[{"ty":4,"ddd":0,"a":1,"ip":2,"op":7,)"
            R"("ks":{"r":{"k":5}}},{"ty":4,"ddd":1,"ks":{"rx":{"k":1}}}]})");
}

// Hostile shapes of values are skipped, not trusted.
TEST(DocumentRepairsTest, ValuesOfUnexpectedTypesAreLeftAlone) {
  Json document = Json::parse(
      R"({"w":"wide","layers":[{"ddd":"yes","ks":[],"masksProperties":[{"mode":7}],"ip":"x"},)"
      R"(5],"assets":[3,{"layers":{"ty":1}}]})");
  const Json before = document;
  EXPECT_FALSE(repairDocument(document, false));
  EXPECT_EQ(document, before);
  EXPECT_FALSE(planeRotations(document));
}

} // namespace
} // namespace frameloom::renderer
