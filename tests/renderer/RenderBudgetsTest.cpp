// Documents made to take the machine: pictures that decode to more pixels than the budget,
// repeaters and precompositions that multiply what a frame draws, nesting too deep to check.
#include "renderer/DrawingBudget.h"
#include "renderer/Limits.h"
#include "renderer/PictureHeaders.h"
#include "renderer/PictureInlining.h"
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Files.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace frameloom::renderer {
namespace {

using testing::bytesOf;
using testing::Json;
using testing::sampleLottie;

std::string bigEndian32(std::uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

// The header of a PNG of that size; nothing after it.
std::string pngHeader(std::uint32_t width, std::uint32_t height) {
  return std::string("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16) + bigEndian32(width) +
         bigEndian32(height) + std::string("\x08\x06\0\0\0", 5);
}

TEST(RenderBudgetsTest, PictureExtentsComeFromTheirHeaders) {
  const std::string jpeg = std::string("\xFF\xD8\xFF\xE0\0\x04xx\xFF\xFF\xC2\0\x11\x08", 14) +
                           std::string("\x01\x02\x03\x04", 4);
  const std::string gif = std::string("GIF89a\x10\x01\x20\0", 10);
  const struct {
    const char* name;
    std::string bytes;
    std::optional<std::pair<std::uint32_t, std::uint32_t>> extent;
  } cases[] = {
      {"png", pngHeader(4096, 300), {{4096, 300}}},
      {"png cut short", pngHeader(4096, 300).substr(0, 20), std::nullopt},
      {"jpeg after an application segment and a fill byte", jpeg, {{0x0304, 0x0102}}},
      {"jpeg without a frame", std::string("\xFF\xD8\xFF\xD9", 4), std::nullopt},
      {"jpeg with a segment length below its own", std::string("\xFF\xD8\xFF\xE0\0\x01", 6),
       std::nullopt},
      {"gif", gif, {{0x110, 0x20}}},
      {"unknown", "BM\x10\0\0\0", std::nullopt},
  };
  for (const auto& c : cases) {
    const auto extent = pictureExtent(c.bytes);
    ASSERT_EQ(extent.has_value(), c.extent.has_value()) << c.name;
    if (extent) {
      EXPECT_EQ(std::make_pair(extent->width, extent->height), *c.extent) << c.name;
    }
  }
}

// Pictures of 4096 x 4096 named by file, two assets sharing one, one inlined, one of a format
// nobody reads: four assets fill the budget, the rest are left out, and the shared picture is
// decoded once, its second asset's layers (here inside a precomposition) pointed at the first.
TEST(RenderBudgetsTest, PicturesBeyondThePixelBudgetAreLeftOutAndSharedOnesMerged) {
  static_assert(limits::maxPicturePixels == 4 * 4096 * 4096);
  const auto picture = [](const std::string& id, int side, const std::string& file) {
    return Json{{"id", id}, {"w", side}, {"h", side}, {"u", "images/"}, {"p", file}, {"e", 0}};
  };
  Json assets =
      Json::array({picture("big", 4096, "big.png"), picture("same", 4096, "big.png"),
                   picture("smaller", 100, "big.png"), picture("other", 4096, "other.png"),
                   picture("over", 4096, "third.png")});
  assets.push_back({{"id", "tiny"},
                    {"w", 1},
                    {"h", 1},
                    {"u", ""},
                    {"p", "data:image/png;base64," + base64Encoded(pngHeader(1, 1))},
                    {"e", 1}});
  assets.push_back(picture("odd", 1, "odd.bmp"));
  Json layers = Json::array();
  for (const auto& asset : assets) {
    Json layer = testing::sampleLayer(2, {});
    layer["refId"] = asset["id"];
    layers.push_back(layer);
  }
  assets.push_back({{"id", "comp"}, {"layers", Json::array({layers[1]})}});
  const std::string document = sampleLottie(8, 8, {}, {}, layers, assets);
  std::map<std::string, int> lookups;
  const Json inlined = Json::parse(
      inlinePictures(document, [&](std::string_view name) -> std::optional<std::string> {
        ++lookups[std::string(name)];
        return name == "odd.bmp" ? "BM\x10\0\0\0" : pngHeader(4096, 4096) + std::string(name);
      }));

  const auto kept = [&](int i) {
    return inlined["assets"][i]["p"].get<std::string>().starts_with("data:image/png;base64,");
  };
  EXPECT_TRUE(kept(0));
  EXPECT_FALSE(kept(1)) << "shares the first";
  EXPECT_TRUE(kept(2)) << "same picture, drawn at another size";
  EXPECT_TRUE(kept(3));
  for (int i = 4; i < 7; ++i) {
    EXPECT_EQ(inlined["assets"][i]["p"], "") << i;
    EXPECT_EQ(inlined["assets"][i]["w"], 0) << i;
  }
  EXPECT_EQ(inlined["layers"][1]["refId"], "big");
  EXPECT_EQ(inlined["assets"][7]["layers"][0]["refId"], "big");
  EXPECT_EQ(inlined["layers"][2]["refId"], "smaller");
  EXPECT_EQ(lookups["big.png"], 1);
}

// A shape layer whose groups nest `depth` deep, each with a rectangle, a fill and a repeater of
// `copies`: what it draws multiplies to copies^depth.
Json nestedRepeaters(int depth, int copies) {
  Json document = Json::parse(sampleLottie(64, 64, {{0, 0, 2, 2, {{0, {1, 0, 0}}}}}));
  Json& shapes = document["layers"][0]["shapes"];
  const Json repeater = Json::parse(
      R"({"ty":"rp","c":{"a":0,"k":1},"o":{"a":0,"k":0},"m":1,"tr":{"ty":"tr","p":{"a":0,)"
      R"("k":[0.01,0.01]},"a":{"a":0,"k":[0,0]},"s":{"a":0,"k":[100,100]},"r":{"a":0,"k":0},)"
      R"("so":{"a":0,"k":100},"eo":{"a":0,"k":100}}})");
  Json items = shapes;
  for (int level = 0; level < depth; ++level) {
    Json group = Json::parse(R"({"ty":"gr","it":[]})");
    group["it"] = items;
    Json copying = repeater;
    copying["c"]["k"] = copies;
    items = Json::array({shapes[0], group, copying});
  }
  shapes = items;
  return document;
}

// Counts the copies each repeater of the document makes, multiplied through the nesting.
std::uint64_t copiesMultiplied(const Json& items) {
  std::uint64_t product = 1;
  for (const Json& item : items) {
    if (item["ty"] == "gr") {
      product *= copiesMultiplied(item["it"]);
    } else if (item["ty"] == "rp") {
      product *= item["c"]["k"].get<std::uint64_t>();
    }
  }
  return product;
}

TEST(RenderBudgetsTest, NestedRepeatersAreClampedAndStillDrawn) {
  Json document = nestedRepeaters(5, 100);
  EXPECT_LT(document.dump().size(), 4096u);
  EXPECT_EQ(fitDrawingBudget(document), BudgetFit::clamped);
  EXPECT_LE(copiesMultiplied(document["layers"][0]["shapes"]), limits::maxDrawnItems);

  DotLottieAnimation animation(bytesOf(nestedRepeaters(5, 100).dump()), AnimationConfig{});
  ASSERT_TRUE(animation.isLoaded());
  const auto image = animation.tick();
  ASSERT_NE(image, nullptr);
  EXPECT_GT(image->pixel(0, 0).r, 0);
  EXPECT_EQ(image->pixel(0, 0).g, 0);

  Json modest = nestedRepeaters(2, 10);
  const Json before = modest;
  EXPECT_EQ(fitDrawingBudget(modest), BudgetFit::fits);
  EXPECT_EQ(modest, before);
}

// Precompositions each showing the next ten times, `levels` deep; the last holds the square.
Json nestedPrecompositions(int levels) {
  Json document = Json::parse(sampleLottie(8, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}}}}));
  Json assets = Json::array();
  Json layers = document["layers"];
  for (int level = 0; level < levels; ++level) {
    const std::string id = "c" + std::to_string(level);
    assets.push_back({{"id", id}, {"layers", layers}});
    Json layer = testing::sampleLayer(0, {});
    layer["refId"] = id;
    layer["w"] = 8;
    layer["h"] = 8;
    layers = Json::array();
    for (int i = 0; i < 10; ++i) {
      layers.push_back(layer);
    }
  }
  document["assets"] = assets;
  document["layers"] = layers;
  return document;
}

// A precomposition that shows itself.
Json selfShowingPrecomposition() {
  Json document = nestedPrecompositions(1);
  document["assets"][0]["layers"].push_back(document["layers"][0]);
  return document;
}

TEST(RenderBudgetsTest, DocumentsBeyondTheDrawingBudgetAreRefusedSayingWhy) {
  const struct {
    const char* name;
    std::string document;
    std::optional<Refusal> refusal;
  } cases[] = {
      {"two levels of ten precompositions", nestedPrecompositions(2).dump(), std::nullopt},
      {"six levels of ten precompositions", nestedPrecompositions(6).dump(),
       Refusal::tooManyDrawnItems},
      {"a precomposition showing itself", selfShowingPrecomposition().dump(),
       Refusal::tooManyDrawnItems},
      {"nesting beyond what is checked",
       "{\"x\":" + std::string(limits::maxNesting, '[') + std::string(limits::maxNesting, ']') +
           "}",
       Refusal::nestedTooDeep},
  };
  for (const auto& c : cases) {
    DotLottieAnimation animation(bytesOf(c.document), AnimationConfig{});
    EXPECT_EQ(animation.isLoaded(), !c.refusal) << c.name;
    EXPECT_EQ(animation.tick() != nullptr, !c.refusal) << c.name;
    EXPECT_EQ(animation.refusal(), c.refusal) << c.name;
  }
}

} // namespace
} // namespace frameloom::renderer
