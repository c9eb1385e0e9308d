#include "frameloom/DotLottieActor.h"
#include "frameloom/DotLottieError.h"
#include "platform/renderer/LottieDocument.h"
#include "platform/runtime/MainLoop.h"
#include "platform/runtime/SharedExecutor.h"
#include "platform/runtime/Task.h"

#include "../renderer/ArchiveSamples.h"
#include "../renderer/LottieSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <thread>

namespace frameloom {
namespace {

using platform::Rgba8;
using platform::Size;
using platform::Url;
using Colors = std::optional<std::vector<platform::Color>>;
namespace fs = std::filesystem;

// Points TMPDIR at a folder of the test program's own for its whole run: the recoloured copies and
// work folders that loads leave in the temporary directory go with it at the end.
class PrivateTemporaryDirectory : public ::testing::Environment {
public:
  void SetUp() override {
    folder_ =
        fs::temp_directory_path() / ("frameloom-actor-" + std::to_string(std::random_device()()));
    fs::create_directories(folder_);
    setenv("TMPDIR", folder_.c_str(), 1);
  }
  void TearDown() override { fs::remove_all(folder_); }

private:
  fs::path folder_;
};
const auto* const privateTemporaryDirectory =
    ::testing::AddGlobalTestEnvironment(new PrivateTemporaryDirectory);

template <class T>
T run(asio::awaitable<T> work) {
  return platform::MainLoop::shared().runUntilComplete(std::move(work));
}

DotLottieActor& actor() {
  return DotLottieActor::shared();
}

// 100 x 100: a red left half and a blue right half, 60 frames at 30 per second.
const auto halves = testing::bytesOf(testing::sampleLottie(
    100, 100, {{0, 0, 50, 100, {{0, {1, 0, 0}}}}, {50, 0, 50, 100, {{0, {0, 0, 1}}}}}));

std::size_t recolouredCopies() {
  std::size_t count = 0;
  for (const auto& item : fs::directory_iterator(fs::temp_directory_path())) {
    count += item.path().filename().string().starts_with("modified_");
  }
  return count;
}

TEST(DotLottieActorTest, ConfigurationAndTruncatingSizes) {
  const auto config = DotLottieActor::configuration(Size{99.99, 0.4});
  EXPECT_TRUE(!config.autoplay && config.loop && config.useFrameInterpolation && !config.segments);
  EXPECT_TRUE(config.width == 99 && config.height == 0);
  EXPECT_FALSE(DotLottieActor::configuration(std::nullopt).width);
  const auto pixels = &DotLottieActor::pixels;
  EXPECT_EQ(std::vector({pixels(250.9), pixels(-1.9), pixels(NAN)}),
            std::vector<std::int64_t>({250, -1, 0}));
  EXPECT_EQ(pixels(1e300), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(pixels(-INFINITY), std::numeric_limits<std::int64_t>::min());
}

TEST(DotLottieActorTest, LoadsBytesAtTheRequestedSizeRendersAndDestroys) {
  auto animation = run(DotLottieActor::load(halves, Size{250.9, 125.2}));
  EXPECT_TRUE(animation->totalFrames() == 60 && animation->duration() == 2);
  const auto image = run(actor().seek(30, animation));
  EXPECT_TRUE(image->width() == 250 && image->height() == 125);
  EXPECT_EQ(std::vector({image->pixel(100, 60), image->pixel(150, 60), image->pixel(20, 60)}),
            std::vector<Rgba8>({{255, 0, 0, 255}, {0, 0, 255, 255}, {}}));
  run(actor().destroy(animation));
  EXPECT_FALSE(animation->isLoaded());
  run(actor().destroy(nullptr));
  // Bytes without an animation, or an unusable size, still give an animation; it renders nothing.
  EXPECT_FALSE(
      run(actor().seek(0, run(DotLottieActor::load(testing::bytesOf("junk"), Size{9, 9})))));
  EXPECT_FALSE(run(actor().seek(0, run(DotLottieActor::load(halves, Size{0.5, 250})))));
}

TEST(DotLottieActorTest, FileLoadsWithAndWithoutColours) {
  const Url source = Url::fromFilePath(fs::temp_directory_path() / "source.lottie");
  const auto archive = testing::makeZip({{"animations/a.json", {halves.begin(), halves.end()}}});
  std::ofstream(source.path(), std::ios::binary) << std::string(archive.begin(), archive.end());
  const std::vector<std::tuple<Colors, Rgba8, Rgba8>> cases{
      {std::nullopt, {255, 0, 0, 255}, {0, 0, 255, 255}},
      {std::vector<platform::Color>{}, {255, 0, 0, 255}, {0, 0, 255, 255}},
      {std::vector<platform::Color>{{0, 1, 0}, {1, 1, 0}}, {0, 255, 0, 255}, {255, 255, 0, 255}},
  };
  for (const auto& [colors, left, right] : cases) {
    const std::size_t copiesBefore = recolouredCopies();
    ::testing::internal::CaptureStdout();
    const auto animation = run(DotLottieActor::load(source, Size{100, 100}, colors));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    const auto image = run(actor().seek(0, animation));
    EXPECT_EQ(std::pair(image->pixel(10, 50), image->pixel(90, 50)), std::pair(left, right));
    // A recoloured load leaves its copy behind; a plain one writes none.
    EXPECT_EQ(recolouredCopies() - copiesBefore, colors && !colors->empty() ? 1u : 0u);
  }
  // Missing and unreadable files give no animation and a line; recolouring what is not an archive
  // throws and prints nothing.
  for (const fs::path& path :
       {fs::temp_directory_path() / "missing.lottie", fs::temp_directory_path()}) {
    ::testing::internal::CaptureStdout();
    EXPECT_FALSE(run(DotLottieActor::load(Url::fromFilePath(path), Size{250, 250}, std::nullopt)));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Failed to load .lottie data from " + Url::fromFilePath(path).description() + "\n");
  }
  std::ofstream(source.path()) << "{}";
  ::testing::internal::CaptureStdout();
  const auto red = std::vector<platform::Color>{{1, 0, 0}};
  EXPECT_THROW(run(DotLottieActor::load(source, Size{10, 10}, red)), DotLottieError);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(DotLottieActorTest, SeeksFromManyTasksAndNoneFromACancelledOne) {
  std::vector<DotLottieActor::Animation> animations;
  for (int i = 0; i < 4; ++i) {
    animations.push_back(run(DotLottieActor::load(halves, Size{20, 20})));
  }
  const auto rendered = run([&]() -> asio::awaitable<int> {
    std::vector<platform::Task<DotLottieActor::Frame>> tasks;
    for (int i = 0; i < 40; ++i) {
      auto seek = actor().seek(static_cast<float>(i), animations[i % 4]);
      tasks.push_back(platform::spawn(platform::sharedExecutor(), std::move(seek)));
    }
    int images = 0;
    for (auto& task : tasks) {
      images += (co_await task.value()) != nullptr;
    }
    co_return images;
  }());
  EXPECT_EQ(rendered, 40);

  // The task's own executor starts running only after the cancel, so the cancel always comes
  // before the seek begins; the animation's frame stays where it was.
  const float frameBefore = animations[0]->currentFrame();
  asio::io_context held;
  auto keepRunning = asio::make_work_guard(held);
  auto task = platform::spawn(held.get_executor(), actor().seek(1, animations[0]));
  task.cancel();
  std::thread runner([&] { held.run(); });
  const auto frame = run(task.value());
  keepRunning.reset();
  runner.join();
  EXPECT_TRUE(!frame && animations[0]->currentFrame() == frameBefore);
}

// Loads `path` at 250 x 250: the document's timeline, and something drawn at start, middle, end.
void checkAnimation(const fs::path& path) {
  SCOPED_TRACE(path.filename().string());
  std::ifstream in(path, std::ios::binary);
  const auto document =
      platform::lottieDocument(std::vector<std::uint8_t>{std::istreambuf_iterator<char>(in), {}});
  ASSERT_TRUE(document);
  const auto json = nlohmann::json::parse(*document);
  const double frames = json["op"].get<double>() - json["ip"].get<double>();
  const auto animation = run(DotLottieActor::load(Url::fromFilePath(path), Size{250, 250}, {}));
  ASSERT_TRUE(animation);
  EXPECT_FLOAT_EQ(animation->totalFrames(), static_cast<float>(frames));
  EXPECT_FLOAT_EQ(animation->duration(), static_cast<float>(frames / json["fr"].get<double>()));
  for (const float frame : {0.0f, animation->totalFrames() / 2, animation->totalFrames() - 1}) {
    const auto image = run(DotLottieActor::shared().seek(frame, animation));
    ASSERT_TRUE(image && image->width() == 250 && image->height() == 250) << frame;
    EXPECT_FALSE(image->isFullyTransparent()) << "frame " << frame;
  }
}

// The real animations of the shared corpus, when it is present.
TEST(ActorCorpusTest, EveryDotLottieLoadsAndRenders) {
  const fs::path corpus = "/work/shared/corpus";
  if (!fs::is_directory(corpus)) {
    GTEST_SKIP() << "no corpus at " << corpus;
  }
  for (const auto& item : fs::directory_iterator(corpus)) {
    if (item.path().extension() == ".lottie") {
      checkAnimation(item.path());
    }
  }
}

} // namespace
} // namespace frameloom
