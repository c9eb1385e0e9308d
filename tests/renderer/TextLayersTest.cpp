#include "renderer/TextLayers.h"
#include "renderer/SystemFont.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::Json;
using testing::sampleLayer;
using testing::sampleLottie;

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 blue{0, 0, 255, 255};
constexpr Rgba8 none{};

// A glyph "A" of the document's own: a 40 x 40 square standing on the baseline, advancing 50
// (at size 100). The space advances 25.
Json squareGlyph() {
  return Json::parse(R"({"ch":"A","size":100,"style":"Regular","w":50,"fFamily":"Box","data":)"
                     R"({"shapes":[{"ty":"gr","it":[{"ty":"sh","ks":{"a":0,"k":{"c":true,)"
                     R"("i":[[0,0],[0,0],[0,0],[0,0]],"o":[[0,0],[0,0],[0,0],[0,0]],)"
                     R"("v":[[0,-40],[40,-40],[40,0],[0,0]]}}}]}]}})");
}

// A 200 x 200 document, 20 frames, with one text layer at (x, y) showing the given text
// documents (each {"t": frame, "s": text document}); font "Box" uses the glyph above.
Json textDocument(double x, double y, Json keyframes, bool withChars = true) {
  Json layer = sampleLayer(5, {0, 20, 30});
  layer["ks"]["p"]["k"] = {x, y};
  layer["t"] = {{"d", {{"k", std::move(keyframes)}}}, {"a", Json::array()}};
  Json document = Json::parse(sampleLottie(200, 200, {}, {0, 20, 30}, Json::array({layer})));
  document["fonts"] = Json::parse(
      R"({"list":[{"fName":"Box-Regular","fFamily":"Box","fStyle":"Regular","ascent":40}]})");
  if (withChars) {
    document["chars"] = Json::array(
        {squareGlyph(), Json::parse(R"({"ch":" ","style":"Regular","w":25,"fFamily":"Box",)"
                                    R"("data":{}})")});
  }
  return document;
}

Json text(std::string content, double size = 100) {
  return {{"s", size}, {"f", "Box-Regular"}, {"t", std::move(content)}, {"j", 0},
          {"tr", 0},   {"lh", 60},           {"fc", {1, 0, 0}}};
}

Json at(double frame, Json document) {
  return {{"t", frame}, {"s", std::move(document)}};
}

std::vector<Rgba8> pixels(const Json& document, float frame,
                          const std::vector<std::pair<std::size_t, std::size_t>>& points) {
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  animation.setFrame(frame);
  const auto image = animation.tick();
  std::vector<Rgba8> result;
  for (auto [x, y] : points) {
    result.push_back(image ? image->pixel(x, y) : Rgba8{1, 2, 3, 4});
  }
  return result;
}

struct Case {
  const char* name;
  Json document;
  float frame;
  std::vector<std::pair<std::size_t, std::size_t>> points;
  std::vector<Rgba8> expected;
};

// Glyph squares of 40 px on a 50 px advance, baseline at y 100 unless said otherwise.
TEST(TextLayersTest, TextIsLaidOutAsItsDocumentSays) {
  Json tracked = text("AA");
  tracked["tr"] = 200; // 20 px more per glyph
  Json centred = text("AA");
  centred["j"] = 2;
  Json right = text("AA");
  right["j"] = 1;
  Json lines = text("A\rA");
  Json half = text("A", 50);
  Json boxed = text("A A A");
  boxed["sz"] = {130, 200};
  boxed["ps"] = {0, 0};
  Json stroked = text("A");
  stroked["sc"] = {0, 0, 1};
  stroked["sw"] = 10;
  stroked["of"] = true;
  Json later = text("A");
  later["fc"] = {0, 0, 1};
  const std::vector<Case> cases{
      {"left at the layer position",
       textDocument(20, 100, {at(0, text("AA"))}),
       0,
       {{40, 80}, {65, 80}, {90, 80}, {40, 110}},
       {red, none, red, none}},
      {"tracking widens the advance",
       textDocument(20, 100, {at(0, tracked)}),
       0,
       {{65, 80}, {105, 80}},
       {none, red}},
      {"centred on the position",
       textDocument(100, 100, {at(0, centred)}),
       0,
       {{60, 80}, {95, 80}, {110, 80}, {135, 80}},
       {red, none, red, red}},
      {"right-aligned ends at the position",
       textDocument(120, 100, {at(0, right)}),
       0,
       {{30, 80}, {100, 80}, {115, 80}},
       {red, red, none}},
      {"second line one line height lower",
       textDocument(20, 100, {at(0, lines)}),
       0,
       {{40, 80}, {40, 140}, {40, 110}},
       {red, red, none}},
      {"size scales the glyphs",
       textDocument(20, 100, {at(0, half)}),
       0,
       {{30, 90}, {30, 75}},
       {red, none}},
      {"box text wraps and hangs from the box top",
       textDocument(0, 0, {at(0, boxed)}),
       0,
       {{20, 20}, {95, 20}, {20, 80}, {150, 20}},
       {red, red, red, none}},
      {"stroke over the fill",
       textDocument(20, 100, {at(0, stroked)}),
       0,
       {{40, 80}, {22, 80}},
       {red, blue}},
      {"document keyframes take turns",
       textDocument(20, 100, {at(0, text("A")), at(10, later)}),
       12,
       {{40, 80}},
       {blue}},
      {"the first keyframe until the second",
       textDocument(20, 100, {at(0, text("A")), at(10, later)}),
       5,
       {{40, 80}},
       {red}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(pixels(c.document, c.frame, c.points), c.expected) << c.name;
  }
}

// Without glyphs of its own the text comes from a system font: something in the fill colour
// where the text stands, nothing far from it.
TEST(TextLayersTest, SystemFontsDrawTextWithoutDocumentGlyphs) {
  Json document = textDocument(10, 120, {at(0, text("HH", 80))}, false);
  DotLottieAnimation animation(bytesOf(document.dump()), AnimationConfig{});
  const auto image = animation.tick();
  ASSERT_TRUE(image);
  // Each H is about 60 px wide: the second one stands to the right of the first.
  std::size_t filledLeft = 0;
  std::size_t filledRight = 0;
  for (std::size_t y = 0; y < 200; ++y) {
    for (std::size_t x = 0; x < 200; ++x) {
      if (image->pixel(x, y) == red) {
        ++(x < 70 ? filledLeft : filledRight);
        EXPECT_TRUE(y > 50 && y <= 120 && x >= 10 && x < 140) << x << "," << y;
      }
    }
  }
  EXPECT_GT(filledLeft, 500u);
  EXPECT_GT(filledRight, 500u);
}

std::vector<double> advances(const SystemFont& font, std::string_view line) {
  std::vector<double> result;
  for (const ShapedGlyph& glyph : font.shape(line, 100)) {
    result.push_back(glyph.advance);
  }
  return result;
}

// A family the system lacks is set in the serif browsers fall back to; a family the system knows
// under another name keeps that font.
TEST(TextLayersTest, MissingFamiliesFallBackToASerif) {
  const SystemFont missing("Family Nobody Has", "Regular");
  ASSERT_TRUE(missing.usable());
  EXPECT_EQ(advances(missing, "Hamburg"),
            advances(SystemFont("Times New Roman", "Regular"), "Hamburg"));
  EXPECT_NE(advances(missing, "Hamburg"), advances(SystemFont("sans-serif", "Regular"), "Hamburg"));
  EXPECT_EQ(advances(SystemFont("Arial", "Regular"), "Hamburg"),
            advances(SystemFont("Liberation Sans", "Regular"), "Hamburg"));
}

// Letters stand at their own advances: a kerning pair is as wide as its letters apart.
TEST(TextLayersTest, SystemFontsSetLettersWithoutKerning) {
  for (const char* family : {"DejaVu Sans", "Times New Roman"}) {
    const SystemFont font(family, "Regular");
    const auto pair = advances(font, "AV");
    ASSERT_EQ(pair.size(), 2u) << family;
    EXPECT_DOUBLE_EQ(pair[0], advances(font, "A").at(0)) << family;
  }
}

TEST(TextLayersTest, MalformedTextLayersAreSkipped) {
  Json document = Json::parse(
      R"({"layers":[{"ty":5,"t":[]},{"ty":5,"t":{"d":{"k":7}}},{"ty":5,"t":{"d":{"k":[3,)"
      R"({"s":{"s":"big","t":5,"fc":"red","sz":[1],"of":1,"f":[]}}]}}}]})");
  EXPECT_TRUE(textLayersAsShapes(document));
  EXPECT_EQ(document["layers"][0]["ty"], 5);
  EXPECT_EQ(document["layers"][2]["ty"], 4);
}

} // namespace
} // namespace frameloom::renderer
