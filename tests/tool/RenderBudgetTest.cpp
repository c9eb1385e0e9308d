// Small animations made to take the machine when rendered: a .lottie of some 100 KB whose
// pictures decode to gigabytes, and a document of 2 KB whose nested repeaters multiply what a
// frame draws. Each render must end with a frame (what fits the budget), or with one line naming
// the budget a document passes, and stay below 1 GB.
#include "support/PeakMemory.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <frameloom/platform/graphics/Png.h>
#include <frameloom/ziploom/Archive.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace frameloom::testing {
namespace {

using Json = nlohmann::ordered_json;
using ziploom::Archive;

constexpr long residentBudgetKiB = 1024 * 1024;

void addBytes(Archive& archive, const std::string& path, const std::string& bytes) {
  archive.addEntry(path, ziploom::Entry::EntryType::file, static_cast<std::int64_t>(bytes.size()),
                   std::chrono::system_clock::now(), 0644, ziploom::CompressionMethod::deflate,
                   1 << 20, nullptr, [&](std::int64_t position, std::int64_t count) {
                     const auto begin = bytes.begin() + position;
                     return platform::Bytes(begin, begin + count);
                   });
}

// A layer of type `type` over the animation's 30 frames, with `key` set to `value`.
Json layerOfType(int type, const char* key, Json value) {
  Json layer = Json::parse(R"({"ty":0,"ip":0,"op":30,"st":0,"ks":{"o":{"a":0,"k":100},"r":{"a":0,)"
                           R"("k":0},"p":{"a":0,"k":[0,0]},"a":{"a":0,"k":[0,0]},"s":{"a":0,"k":)"
                           R"([100,100]}}})");
  layer["ty"] = type;
  layer[key] = std::move(value);
  return layer;
}

Json document(Json layers, Json assets) {
  return Json{{"v", "5.7.0"}, {"fr", 30},  {"ip", 0},          {"op", 30},
              {"w", 4096},    {"h", 4096}, {"assets", assets}, {"layers", layers}};
}

void writeLottie(const std::filesystem::path& path, const Json& animation,
                 const std::string& picture = {}) {
  Archive archive(path, Archive::AccessMode::create);
  addBytes(archive, "manifest.json", R"({"animations":[{"id":"a"}]})");
  addBytes(archive, "animations/a.json", animation.dump());
  if (!picture.empty()) {
    addBytes(archive, "images/p.png", picture);
  }
}

class RenderBudget : public ::testing::Test {
protected:
  void expectFrameWithinBudget(const std::string& name) {
    const ToolRun result = runTool("render " + name + " --output f.png", folder.path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(std::filesystem::exists(folder / "f.png"));
    if (residentSizeIsMeaningful) {
      EXPECT_LT(childrensPeakKiB(), residentBudgetKiB);
    }
  }

  TemporaryFolder folder;
};

TEST_F(RenderBudget, PicturesBeyondThePixelBudgetAreLeftOut) {
  const std::vector<std::uint8_t> png = platform::encodePng(*platform::Image::make(
      4096, 4096, std::vector<std::uint8_t>(std::size_t{4096} * 4096 * 4, 0x80)));
  Json layers = Json::array();
  Json assets = Json::array();
  for (int i = 0; i < 200; ++i) {
    const std::string id = "p" + std::to_string(i);
    assets.push_back(
        {{"id", id}, {"w", 4096}, {"h", 4096}, {"u", "images/"}, {"p", "p.png"}, {"e", 0}});
    layers.push_back(layerOfType(2, "refId", id));
  }
  writeLottie(folder / "pictures.lottie", document(layers, assets),
              std::string(png.begin(), png.end()));
  EXPECT_LT(std::filesystem::file_size(folder / "pictures.lottie"), 200'000u);
  expectFrameWithinBudget("pictures.lottie");
}

TEST_F(RenderBudget, NestedRepeatersAreClamped) {
  Json items = Json::parse(R"([{"ty":"rc","p":{"a":0,"k":[2048,2048]},"s":{"a":0,"k":[4096,)"
                           R"(4096]},"r":{"a":0,"k":0}},{"ty":"fl","c":{"a":0,"k":[1,0,0,1]},)"
                           R"("o":{"a":0,"k":10}}])");
  const Json repeater = Json::parse(
      R"({"ty":"rp","c":{"a":0,"k":1000},"o":{"a":0,"k":0},"m":1,"tr":{"ty":"tr","p":{"a":0,)"
      R"("k":[1,1]},"a":{"a":0,"k":[0,0]},"s":{"a":0,"k":[100,100]},"r":{"a":0,"k":1},)"
      R"("so":{"a":0,"k":100},"eo":{"a":0,"k":100}}})");
  for (int level = 0; level < 6; ++level) {
    items = Json::array({{{"ty", "gr"}, {"it", items}}, repeater});
  }
  const Json animation = document(Json::array({layerOfType(4, "shapes", items)}), {});
  EXPECT_LT(animation.dump().size(), 4096u);
  writeLottie(folder / "repeaters.lottie", animation);
  expectFrameWithinBudget("repeaters.lottie");
}

// Documents that no clamping brings within the budgets are refused, saying which budget.
TEST_F(RenderBudget, RefusalsNameTheBudget) {
  // Six levels of precompositions, each showing the next ten times: a million layers.
  Json layers = Json::array({layerOfType(4, "shapes", Json::array())});
  Json assets = Json::array();
  for (int level = 0; level < 6; ++level) {
    const std::string id = "c" + std::to_string(level);
    assets.push_back({{"id", id}, {"layers", layers}});
    layers = Json::array();
    for (int i = 0; i < 10; ++i) {
      layers.push_back(layerOfType(0, "refId", id));
    }
  }
  writeLottie(folder / "precompositions.lottie", document(layers, assets));
  std::ofstream(folder / "deep.json") << R"({"v":"5.7.0","fr":30,"ip":0,"op":30,"w":8,"h":8,"x":)"
                                      << std::string(300, '[') << std::string(300, ']') << "}";
  const struct {
    const char* name;
    const char* message;
  } cases[] = {
      {"precompositions.lottie", "animation refused: more than 2000 drawn items per frame"},
      {"deep.json", "animation refused: values nested more than 256 levels deep"},
  };
  for (const auto& c : cases) {
    const ToolRun result =
        runTool("render " + std::string(c.name) + " --output f.png", folder.path());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "frameloom: " + std::string(c.name) + ": " + c.message + "\n");
    EXPECT_FALSE(std::filesystem::exists(folder / "f.png"));
  }
}

} // namespace
} // namespace frameloom::testing
