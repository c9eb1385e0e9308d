#include "platform/graphics/Png.h"
#include "platform/renderer/DotLottieAnimation.h"
#include "platform/renderer/PictureInlining.h"

#include "ArchiveSamples.h"
#include "LottieSamples.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace frameloom::platform {
namespace {

using testing::makeZip;
using testing::sampleLottie;

std::string solid(testing::Rgb color, double frames = 60) {
  return sampleLottie(4, 4, {{0, 0, 4, 4, {{0, color}}}}, {0, frames, 30});
}

Rgba8 centreOf(const std::vector<std::uint8_t>& bytes) {
  DotLottieAnimation animation(bytes, AnimationConfig{});
  const auto image = animation.tick();
  return image ? image->pixel(2, 2) : Rgba8{1, 2, 3, 4};
}

constexpr Rgba8 opaqueRed{255, 0, 0, 255};
constexpr Rgba8 opaqueBlue{0, 0, 255, 255};

TEST(DotLottieArchiveTest, ManifestChoosesTheAnimationInEitherLayout) {
  EXPECT_EQ(
      centreOf(makeZip({{"animations/blue.json", solid({0, 0, 1})},
                        {"animations/red.json", solid({1, 0, 0})},
                        {"manifest.json", R"({"animations":[{"id":"red"},{"id":"blue"}]})"}})),
      opaqueRed);
  EXPECT_EQ(centreOf(makeZip({{"manifest.json", R"({"version":"2","animations":[{"id":"Main"}]})"},
                              {"a/Other.json", solid({0, 0, 1})},
                              {"a/Main.json", solid({1, 0, 0})}})),
            opaqueRed);
}

TEST(DotLottieArchiveTest, WithoutAUsableManifestTheFirstJsonUnderEitherFolderIsTaken) {
  const std::vector<std::string> unusable{R"({"animations":[{"id":"missing"}]})", "not json",
                                          R"({"animations":[]})", R"({"animations":[{"id":7}]})"};
  for (const std::string& manifest : unusable) {
    EXPECT_EQ(centreOf(makeZip({{"manifest.json", manifest},
                                {"__MACOSX/animations/._x.json", "junk"},
                                {"animations/notes.txt", "text"},
                                {"animations/First.JSON", solid({0, 0, 1})},
                                {"animations/second.json", solid({1, 0, 0})}})),
              opaqueBlue)
        << manifest;
  }
  EXPECT_EQ(centreOf(makeZip({{"a/x.json", solid({1, 0, 0})}})), opaqueRed);
}

TEST(DotLottieArchiveTest, ArchivesWithoutAUsableAnimationGiveAnEmptyAnimation) {
  const std::vector<std::vector<std::uint8_t>> inputs{
      makeZip({{"manifest.json", R"({"animations":[{"id":"a"}]})"}, {"images/a.json", "{}"}}),
      makeZip({{"animations/a.json", "this is not JSON"}}),
      makeZip({}),
  };
  for (const auto& bytes : inputs) {
    DotLottieAnimation animation(bytes, AnimationConfig{});
    EXPECT_FALSE(animation.isLoaded());
    EXPECT_EQ(animation.totalFrames(), 0.0f);
    EXPECT_FALSE(animation.tick());
  }
  auto truncated = makeZip({{"animations/a.json", solid({1, 0, 0})}});
  truncated.resize(truncated.size() - 30);
  EXPECT_FALSE(DotLottieAnimation(truncated, AnimationConfig{}).isLoaded());
}

// A 4 x 4 document showing the picture `fileName` found under `folder`.
std::string pictureDocument(const std::string& folder, const std::string& fileName) {
  nlohmann::ordered_json transform{{"o", {{"a", 0}, {"k", 100}}},
                                   {"r", {{"a", 0}, {"k", 0}}},
                                   {"p", {{"a", 0}, {"k", {0, 0}}}},
                                   {"a", {{"a", 0}, {"k", {0, 0}}}},
                                   {"s", {{"a", 0}, {"k", {100, 100}}}}};
  return nlohmann::ordered_json{
      {"v", "5.7.0"},
      {"fr", 30},
      {"ip", 0},
      {"op", 30},
      {"w", 4},
      {"h", 4},
      {"assets", {{{"id", "pic"}, {"w", 4}, {"h", 4}, {"u", folder}, {"p", fileName}, {"e", 0}}}},
      {"layers",
       {{{"ty", 2}, {"refId", "pic"}, {"ip", 0}, {"op", 30}, {"st", 0}, {"ks", transform}}}}}
      .dump();
}

std::string greenPicture() {
  std::vector<std::uint8_t> pixels;
  for (int i = 0; i < 16; ++i) {
    pixels.insert(pixels.end(), {0, 255, 0, 255});
  }
  const auto png = encodePng(*Image::make(4, 4, std::move(pixels)));
  return {png.begin(), png.end()};
}

TEST(DotLottieArchiveTest, PicturesOfTheArchiveAreDrawn) {
  for (const char* folder : {"images/", "i/"}) {
    // rlottie filters pictures as it scales them: near enough to the opaque green drawn.
    const Rgba8 centre =
        centreOf(makeZip({{"animations/a.json", pictureDocument("/images/", "pic.png")},
                          {std::string(folder) + "pic.png", greenPicture()}}));
    EXPECT_EQ(centre.r, 0) << folder;
    EXPECT_GT(centre.g, 240) << folder;
    EXPECT_EQ(centre.g, centre.a) << folder;
  }
}

TEST(DotLottieArchiveTest, PicturesOutsideTheArchiveAreNeverRead) {
  const auto folder = std::filesystem::temp_directory_path() / "frameloom-outside-picture";
  std::filesystem::create_directories(folder);
  const std::string picture = greenPicture();
  std::ofstream(folder / "pic.png", std::ios::binary) << picture;
  const std::string document = pictureDocument(folder.string() + "/", "pic.png");
  EXPECT_EQ(centreOf(testing::bytesOf(document)), (Rgba8{}));
  EXPECT_EQ(centreOf(makeZip({{"animations/a.json", document}, {"images/other.png", picture}})),
            (Rgba8{}));
  std::filesystem::remove_all(folder);
}

// Under AddressSanitizer this shows that every rlottie model is released, whether the owner
// destroys it or only lets go of it.
TEST(DotLottieArchiveTest, HundredsOfAnimationsComeAndGo) {
  const auto archive = makeZip({{"manifest.json", R"({"animations":[{"id":"a"}]})"},
                                {"animations/a.json", pictureDocument("", "pic.png")},
                                {"images/pic.png", greenPicture()}});
  const auto json = testing::bytesOf(solid({1, 0, 0}));
  for (int i = 0; i < 300; ++i) {
    AnimationConfig config;
    config.width = 16 + i % 5;
    config.height = 16;
    DotLottieAnimation animation(i % 2 ? archive : json, config);
    ASSERT_TRUE(animation.setFrame(static_cast<float>(i % 30)));
    ASSERT_TRUE(animation.tick());
    if (i % 3) {
      animation.destroy();
    }
  }
}

TEST(PictureInliningTest, Base64) {
  const std::vector<std::pair<std::string, std::string>> vectors{{"", ""},
                                                                 {"f", "Zg=="},
                                                                 {"fo", "Zm8="},
                                                                 {"foo", "Zm9v"},
                                                                 {"foob", "Zm9vYg=="},
                                                                 {"foobar", "Zm9vYmFy"},
                                                                 {"\xff\xfe", "//4="}};
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(base64Encoded(plain), encoded);
  }
}

TEST(PictureInliningTest, RewritesOnlyAssetsWhosePictureIsFound) {
  const std::string json =
      R"({"z":1,"assets":[{"id":"a","u":"x/","p":"sub/one.png","e":0},)"
      R"({"id":"b","p":"data:image/png;base64,AA==","e":1},{"id":"c","p":"two.png"},)"
      R"({"id":"d","layers":[]}],"a":2})";
  const std::string inlined = inlinePictures(json, [](std::string_view name) {
    return name == "one.png" ? std::optional<std::string>("\x89PNGxy") : std::nullopt;
  });
  EXPECT_EQ(inlined, R"({"z":1,"assets":[{"id":"a","u":"","p":"data:image/png;base64,iVBOR3h5",)"
                     R"("e":1},{"id":"b","p":"data:image/png;base64,AA==","e":1},)"
                     R"({"id":"c","p":"two.png"},{"id":"d","layers":[]}],"a":2})");
  const auto nothing = [](std::string_view) { return std::optional<std::string>(); };
  EXPECT_EQ(inlinePictures(json, nothing), json);
  EXPECT_EQ(inlinePictures("[1,2", nothing), "[1,2");
}

} // namespace
} // namespace frameloom::platform
