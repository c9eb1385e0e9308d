#include "platform/graphics/Png.h"
#include "platform/renderer/DotLottieAnimation.h"
#include "platform/renderer/PictureInlining.h"

#include "ArchiveSamples.h"
#include "LottieSamples.h"

#include <gtest/gtest.h>
#include <webp/encode.h>

#include <filesystem>
#include <fstream>

namespace frameloom::platform {
namespace {

using testing::makeZip;
using Entries = std::vector<std::pair<std::string, std::string>>;

std::string solid(testing::Rgb color) {
  return testing::sampleLottie(4, 4, {{0, 0, 4, 4, {{0, color}}}});
}
const std::string red = solid({1, 0, 0});
const std::string blue = solid({0, 0, 1});
constexpr Rgba8 opaqueRed{255, 0, 0, 255};
constexpr Rgba8 opaqueBlue{0, 0, 255, 255};
constexpr Rgba8 nothing{1, 2, 3, 4};

Rgba8 centreOf(const std::vector<std::uint8_t>& bytes) {
  const auto image = DotLottieAnimation(bytes, AnimationConfig{}).tick();
  return image ? image->pixel(2, 2) : nothing;
}

TEST(DotLottieArchiveTest, ManifestOrElseTheFirstJsonUnderEitherFolderIsTheAnimation) {
  const std::string manifest = "manifest.json";
  const std::vector<std::pair<Entries, Rgba8>> cases{
      {{{"animations/blue.json", blue},
        {"animations/red.json", red},
        {manifest, R"({"animations":[{"id":"red"},{"id":"blue"}]})"}},
       opaqueRed},
      {{{manifest, R"({"version":"2","animations":[{"id":"Main"}]})"},
        {"a/Other.json", blue},
        {"a/Main.json", red}},
       opaqueRed},
      {{{manifest, R"({"animations":[{"id":7}]})"},
        {"__MACOSX/animations/._x.json", "junk"},
        {"animations/notes.txt", "text"},
        {"a/First.JSON", red},
        {"a/b.json", blue}},
       opaqueRed},
      {{{manifest, "not json"}, {"animations/a.json", red}}, opaqueRed},
      {{{manifest, R"({"animations":[{"id":"a"}]})"}, {"images/a.json", red}}, nothing},
      {{{"animations/a.json", "this is not JSON"}}, nothing},
  };
  for (const auto& [entries, expected] : cases) {
    EXPECT_EQ(centreOf(makeZip(entries)), expected) << entries.front().second;
  }
  auto truncated = makeZip({{"animations/a.json", red}});
  truncated.resize(truncated.size() - 30);
  EXPECT_EQ(centreOf(truncated), nothing);
}

// A 4 x 4 document showing the picture `path` of folder `u`.
std::string pictureDocument(const std::string& u, const std::string& path) {
  testing::Json layer = testing::sampleLayer(2, {});
  layer["refId"] = "pic";
  const testing::Json asset{{"id", "pic"}, {"w", 4}, {"h", 4}, {"u", u}, {"p", path}, {"e", 0}};
  return testing::sampleLottie(4, 4, {}, {}, {layer}, {asset});
}

// 4 x 4 opaque green pixels: every second byte, green and alpha, is 255.
const std::vector<std::uint8_t> greenPixels = [] {
  std::vector<std::uint8_t> pixels(64);
  for (std::size_t i = 1; i < 64; i += 2) {
    pixels[i] = 255;
  }
  return pixels;
}();

std::string greenPng() {
  const auto png = encodePng(*Image::make(4, 4, greenPixels));
  return {png.begin(), png.end()};
}

std::string greenWebp() {
  std::uint8_t* output = nullptr;
  const std::size_t size = WebPEncodeLosslessRGBA(greenPixels.data(), 4, 4, 16, &output);
  const std::string webp(reinterpret_cast<const char*>(output), size);
  WebPFree(output);
  return webp;
}

TEST(DotLottieArchiveTest, PicturesOfTheArchiveAreDrawnAndWebpIsConverted) {
  const std::string webp = greenWebp();
  const std::string badWebp = webp.substr(0, 20);
  const auto outside =
      std::filesystem::temp_directory_path() / ("frameloom-pic-" + std::to_string(::getpid()));
  std::filesystem::create_directories(outside);
  std::ofstream(outside / "pic.png", std::ios::binary) << greenPng();
  const auto uri = [](const char* type, const std::string& bytes) {
    return "data:" + std::string(type) + ";base64," + base64Encoded(bytes);
  };
  const auto animation = [](const std::string& u, const std::string& p) {
    return std::pair{std::string("animations/a.json"), pictureDocument(u, p)};
  };
  const std::vector<std::pair<Entries, bool>> cases{
      {{animation("/images/", "pic.png"), {"images/pic.png", greenPng()}}, true},
      {{animation("", "pic.png"), {"i/pic.png", greenPng()}}, true},
      {{animation("images/", "pic.png"), {"images/pic.png", webp}}, true},
      {{animation("", uri("image/webp", webp))}, true},
      {{animation("", uri("image/png", webp))}, true},
      {{animation("", "pic.webp"), {"images/pic.webp", badWebp}}, false},
      {{animation("", uri("image/webp", badWebp))}, false},
      {{animation(outside.string() + "/", "pic.png"), {"images/other.png", greenPng()}}, false},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    // rlottie filters pictures as it scales them: near enough to the opaque green drawn.
    const Rgba8 centre = centreOf(makeZip(cases[i].first));
    EXPECT_TRUE(cases[i].second ? centre.r == 0 && centre.g > 240 && centre.g == centre.a
                                : centre == Rgba8{})
        << i;
  }
  // A plain document reads no picture beside it, but its inlined WebP is converted all the same.
  EXPECT_EQ(centreOf(testing::bytesOf(pictureDocument(outside.string() + "/", "pic.png"))),
            Rgba8{});
  EXPECT_GT(centreOf(testing::bytesOf(pictureDocument("", uri("image/webp", webp)))).g, 240);
  std::filesystem::remove_all(outside);
}

// Under AddressSanitizer this shows that every rlottie model is released, whether the owner
// destroys it or only lets go of it; the colours show that documents never share a model.
TEST(DotLottieArchiveTest, HundredsOfAnimationsComeAndGo) {
  const auto archive = makeZip(
      {{"animations/a.json", pictureDocument("", "pic.png")}, {"images/pic.png", greenPng()}});
  for (int i = 0; i < 300; ++i) {
    AnimationConfig config;
    config.width = 16 + i % 5;
    config.height = 16;
    DotLottieAnimation animation(i % 3 ? testing::bytesOf(i % 3 == 1 ? red : blue) : archive,
                                 config);
    ASSERT_TRUE(animation.setFrame(static_cast<float>(i % 30)));
    const Rgba8 centre = animation.tick()->pixel(8, 8);
    ASSERT_EQ(std::pair(centre.r == 255, centre.b == 255), std::pair(i % 3 == 1, i % 3 == 2)) << i;
    if (i % 2) {
      animation.destroy();
    }
  }
}

TEST(PictureInliningTest, Base64DecodingRefusesWhatEncodingNeverMakes) {
  for (const std::string plain : {"", "f", "fo", "foo", "\xff\xfe\x00"}) {
    EXPECT_EQ(base64Decoded(base64Encoded(plain)), plain);
  }
  for (const char* bad : {"Zg=", "Z===", "Zm9v!A==", "Zg==Zg=="}) {
    EXPECT_FALSE(base64Decoded(bad)) << bad;
  }
}

} // namespace
} // namespace frameloom::platform
