#include "renderer/LottieDocument.h"
#include "renderer/LottieTiming.h"
#include "renderer/PictureInlining.h"
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/renderer/AnimationChoice.h>
#include <frameloom/renderer/DotLottieAnimation.h>

#include "LottieSamples.h"
#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <webp/encode.h>

#include <cmath>
#include <filesystem>
#include <limits>

namespace frameloom::renderer {
using namespace frameloom::platform;
namespace {

using testing::bytesOf;
using testing::sampleLottie;
using testing::zipOf;

constexpr Rgba8 r{255, 0, 0, 255};
constexpr Rgba8 g{0, 255, 0, 255};
constexpr Rgba8 b{0, 0, 255, 255};

// 200 x 100: red on the left half, blue on the right half, 60 frames.
const std::vector<std::uint8_t> halves = bytesOf(sampleLottie(
    200, 100, {{0, 0, 100, 100, {{0, {1, 0, 0}}}}, {100, 0, 100, 100, {{0, {0, 0, 1}}}}}));

DotLottieAnimation make(const std::vector<std::uint8_t>& bytes, std::optional<std::int64_t> width,
                        std::optional<std::int64_t> height, Rgba8 background = {}) {
  AnimationConfig config;
  config.width = width;
  config.height = height;
  config.backgroundColor = background;
  return DotLottieAnimation(bytes, config);
}

using Look = std::tuple<std::size_t, std::size_t, std::vector<Rgba8>>;

// The image's width and height, and its pixels at the given points.
Look look(const std::shared_ptr<const Image>& image,
          std::vector<std::pair<std::size_t, std::size_t>> points) {
  std::vector<Rgba8> pixels;
  for (auto [x, y] : points) {
    pixels.push_back(image->pixel(x, y));
  }
  return {image->width(), image->height(), pixels};
}

TEST(DotLottieAnimationTest, RendersAtOwnConfiguredAndResizedSizesWithLayoutAndBackground) {
  auto animation = make(halves, std::nullopt, std::nullopt);
  EXPECT_EQ(look(animation.tick(), {{10, 50}, {190, 50}}), Look(200, 100, {r, b}));
  ASSERT_TRUE(animation.resize(250, 250));
  // Letterbox bands above and below stay transparent.
  EXPECT_EQ(look(animation.tick(), {{60, 125}, {190, 125}, {125, 20}, {125, 230}}),
            Look(250, 250, {r, b, {}, {}}));
  EXPECT_EQ(look(make(halves, 50, 100, {0, 255, 0, 128}).tick(), {{25, 5}, {10, 50}}),
            Look(50, 100, {{0, 128, 0, 128}, r}));
}

// 16 x 8 drawn at 10 x 10 is 5 rows high with margins of 2.5 rows: the edge rows are half
// covered, and the red rectangle reaching far above and below the composition is cut at its
// edges.
TEST(DotLottieAnimationTest, CentredLetterboxKeepsItsHalfPixelMargins) {
  const auto tall = bytesOf(sampleLottie(16, 8, {{0, -8, 16, 24, {{0, {1, 0, 0}}}}}));
  const auto image = make(tall, 10, 10).tick();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixel(5, 1), Rgba8{});
  EXPECT_EQ(image->pixel(5, 5), r);
  EXPECT_EQ(image->pixel(5, 8), Rgba8{});
  for (const std::size_t edge : {2, 7}) {
    EXPECT_NEAR(image->pixel(5, edge).a, 128, 2) << edge;
    EXPECT_EQ(image->pixel(5, edge).g + image->pixel(5, edge).b, 0) << edge;
  }
}

TEST(DotLottieAnimationTest, FramesCountFromTheInPointAndRoundToNearest) {
  // Red until frame 40, blue until 50, then green; the timeline runs from 30 to 92.5 at 25 fps.
  auto animation = make(
      bytesOf(sampleLottie(8, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}, {40, {0, 0, 1}}, {50, {0, 1, 0}}}}},
                           {30, 92.5, 25})),
      std::nullopt, std::nullopt);
  EXPECT_TRUE(animation.totalFrames() == 62.5f && animation.duration() == 2.5f);
  for (const auto& [frame, color] :
       std::vector<std::pair<float, Rgba8>>{{0, r}, {9.4f, r}, {9.6f, b}, {20, g}, {62.5f, g}}) {
    ASSERT_TRUE(animation.setFrame(frame)) << frame;
    EXPECT_EQ(animation.tick()->pixel(4, 4), color) << frame;
  }
}

// Frames at or a hair below a fractional out point still show the animation's last picture.
TEST(DotLottieAnimationTest, FramesAtTheOutPointAreDrawn) {
  for (const double outPoint : {24.0, 24.000001, 23.99998}) {
    auto animation =
        make(bytesOf(sampleLottie(8, 8, {{0, 0, 8, 8, {{0, {1, 0, 0}}}}}, {0, outPoint, 30})),
             std::nullopt, std::nullopt);
    const float last = std::floor(animation.totalFrames());
    ASSERT_TRUE(animation.setFrame(last)) << outPoint;
    EXPECT_EQ(animation.tick()->pixel(4, 4), r) << outPoint;
  }
}

TEST(DotLottieAnimationTest, HostileFramesAndSizesAreRefused) {
  auto animation = make(halves, 0, 250);
  ASSERT_TRUE(!animation.tick() && animation.setFrame(12));
  for (float bad : {-0.5f, 60.5f, NAN, INFINITY}) {
    EXPECT_FALSE(animation.setFrame(bad)) << bad;
  }
  EXPECT_EQ(animation.currentFrame(), 12.0f);
  for (auto [width, height] : std::vector<std::pair<std::int64_t, std::int64_t>>{
           {-1, 10}, {10, 0}, {16385, 10}, {std::numeric_limits<std::int64_t>::max(), 1}}) {
    EXPECT_FALSE(animation.resize(width, height));
    EXPECT_FALSE(animation.tick());
  }
  EXPECT_TRUE(animation.resize(16384, 1));
  EXPECT_TRUE(animation.resize(3, 3) && animation.tick());
}

TEST(DotLottieAnimationTest, BytesWithoutAnAnimationRenderNothing) {
  for (const std::string text :
       {"", "no animation", "{}", R"({"w":10,"h":10,"layers":[)", "PK\3\4"}) {
    auto animation = make(bytesOf(text), 250, 250);
    EXPECT_FALSE(animation.isLoaded() || animation.totalFrames() || animation.duration() ||
                 animation.setFrame(0) || animation.tick())
        << text;
  }
}

TEST(LottieTimingTest, TakesTopLevelNumbersOnlyAndRejectsUnusableOnes) {
  const auto timing = readLottieTiming(R"({"layers":[{"ip":5,"fr":7}],"fr":2,"ip":1,"op":3})");
  EXPECT_TRUE(timing && timing->inPoint == 1 && timing->outPoint == 3 && timing->frameRate == 2);
  for (const std::string& bad : std::vector<std::string>{
           R"({"ip":0,"op":60})", R"({"ip":0,"op":60,"fr":0})", R"({"ip":0,"op":"60","fr":30})",
           R"({"ip":0,"op":1e999,"fr":30})", R"({"ip":0,"op":60,)", std::string(100000, '[')}) {
    EXPECT_FALSE(readLottieTiming(bad)) << bad.substr(0, 30);
  }
}

using Entries = testing::ArchiveEntries;

const std::string red = sampleLottie(4, 4, {{0, 0, 4, 4, {{0, {1, 0, 0}}}}});
const std::string blue = sampleLottie(4, 4, {{0, 0, 4, 4, {{0, {0, 0, 1}}}}});
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
       r},
      {{{manifest, R"({"version":"2","animations":[{"id":"Main"}]})"},
        {"a/Other.json", blue},
        {"a/Main.json", red}},
       r},
      {{{manifest, R"({"animations":[{"id":7}]})"},
        {"__MACOSX/animations/._x.json", "junk"},
        {"animations/notes.txt", "text"},
        {"a/First.JSON", red},
        {"a/b.json", blue}},
       r},
      {{{manifest, R"({"animations":[{"id":"a"}]})"}, {"images/a.json", red}}, nothing},
      {{{"animations/a.json", "this is not JSON"}}, nothing},
  };
  for (const auto& [entries, expected] : cases) {
    EXPECT_EQ(centreOf(zipOf(entries)), expected) << entries.front().second;
  }
  auto truncated = zipOf({{"animations/a.json", red}});
  truncated.resize(truncated.size() - 30);
  EXPECT_EQ(centreOf(truncated), nothing);
}

// A 4 x 4 document showing the picture `path` of folder `u`.
std::string pictureDocument(const std::string& u, const std::string& path) {
  testing::Json layer = testing::sampleLayer(2, {});
  layer["refId"] = "pic";
  const testing::Json asset{{"id", "pic"}, {"w", 4}, {"h", 4}, {"u", u}, {"p", path}, {"e", 0}};
  return sampleLottie(4, 4, {}, {}, {layer}, {asset});
}

// 4 x 4 opaque green pixels.
const std::vector<std::uint8_t> greenPixels{
    0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255,
    0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255,
    0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255};

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
  const testing::TemporaryFolder outside;
  testing::writeFile(outside / "pic.png", greenPng());
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
      {{animation(outside.path().string() + "/", "pic.png"), {"images/other.png", greenPng()}},
       false},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    // rlottie filters pictures as it scales them: near enough to the opaque green drawn.
    const Rgba8 centre = centreOf(zipOf(cases[i].first));
    EXPECT_TRUE(cases[i].second ? centre.r == 0 && centre.g > 240 && centre.g == centre.a
                                : centre == Rgba8{})
        << i;
  }
  // A plain document reads no picture beside it, but its inlined WebP is converted all the same.
  EXPECT_EQ(centreOf(bytesOf(pictureDocument(outside.path().string() + "/", "pic.png"))), Rgba8{});
  EXPECT_GT(centreOf(bytesOf(pictureDocument("", uri("image/webp", webp)))).g, 240);
}

// Under AddressSanitizer this shows that every rlottie model is released once, whether the owner
// destroys it (once or twice) or only lets go of it; the colours show that documents never share
// a model.
TEST(DotLottieArchiveTest, HundredsOfAnimationsComeAndGo) {
  const auto archive = zipOf(
      {{"animations/a.json", pictureDocument("", "pic.png")}, {"images/pic.png", greenPng()}});
  for (int i = 0; i < 300; ++i) {
    DotLottieAnimation animation(i % 3 ? bytesOf(i % 3 == 1 ? red : blue) : archive, {});
    ASSERT_TRUE(animation.setFrame(static_cast<float>(i % 30)));
    const Rgba8 centre = animation.tick()->pixel(2, 2);
    ASSERT_EQ(std::pair(centre.r == 255, centre.b == 255), std::pair(i % 3 == 1, i % 3 == 2)) << i;
    for (int times = 0; times < i % 3; ++times) {
      animation.destroy();
    }
    ASSERT_EQ(animation.isLoaded(), i % 3 == 0) << i;
  }
}

} // namespace
} // namespace frameloom::renderer

// The three readers of a .lottie each pick "the animation" by a rule of their own.
TEST(AnimationChoice, EachReaderKeepsItsOwnRule) {
  using frameloom::renderer::isRecolouringAnimation;
  using frameloom::renderer::isSizeReaderAnimation;
  struct Case {
    const char* path;
    bool sizeReader;
    bool recolouring;
  };
  const Case cases[] = {{"animations/a.json", true, true}, {"Animations/A.JSON", true, false},
                        {"animations/A.JSON", true, true}, {"x/animations/a.json", false, true},
                        {"a/a.json", false, false},        {"animations/a.txt", false, false},
                        {"animations/", false, false}};
  for (const Case& c : cases) {
    EXPECT_EQ(isSizeReaderAnimation(c.path), c.sizeReader) << c.path;
    EXPECT_EQ(isRecolouringAnimation(c.path), c.recolouring) << c.path;
  }

  using frameloom::renderer::rendererAnimation;
  const std::vector<std::string> paths{"x/animations/b.json", "a/c.JSON", "animations/d.json"};
  EXPECT_EQ(rendererAnimation(paths, std::nullopt), 1u);
  EXPECT_EQ(rendererAnimation(paths, R"({"animations":[{"id":"d"}]})"), 2u);
  EXPECT_EQ(rendererAnimation(paths, R"({"animations":[{"id":"gone"}]})"), 1u);
  EXPECT_EQ(rendererAnimation(paths, "not json"), 1u);
  EXPECT_EQ(rendererAnimation(std::vector<std::string>{"b.json"}, std::nullopt), std::nullopt);
}
