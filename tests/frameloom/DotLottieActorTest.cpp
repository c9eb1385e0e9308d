#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieError.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/runtime/Task.h>

#include "../renderer/LottieSamples.h"
#include "support/Archives.h"
#include "support/Corpus.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

namespace frameloom {
namespace {

using platform::Rgba8;
using platform::Size;
using platform::Url;
using Colors = std::optional<std::vector<platform::Color>>;
namespace fs = std::filesystem;

// Loads leave recoloured copies and work folders in the temporary directory: one of this program's
// own, removed at its end.
const testing::TemporaryFolder temporary;
[[maybe_unused]] const int privateTemporaryDirectory =
    setenv("TMPDIR", temporary.path().c_str(), 1);

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

TEST(DotLottieActorTest, SizesTruncateToWholePixels) {
  const auto config = DotLottieActor::configuration(Size{99.99, 0.4});
  EXPECT_TRUE(config.width == 99 && config.height == 0);
  const auto pixels = &DotLottieActor::pixels;
  EXPECT_EQ(
      std::vector({pixels(250.9), pixels(-1.9), pixels(NAN), pixels(1e300), pixels(-INFINITY)}),
      std::vector<std::int64_t>({250, -1, 0, std::numeric_limits<std::int64_t>::max(),
                                 std::numeric_limits<std::int64_t>::min()}));
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
  testing::writeArchive(source.path(), {{"animations/a.json", {halves.begin(), halves.end()}}});
  const Rgba8 red{255, 0, 0, 255}, blue{0, 0, 255, 255};
  const std::vector<std::tuple<Colors, Rgba8, Rgba8>> cases{
      {std::nullopt, red, blue},
      {std::vector<platform::Color>{}, red, blue},
      {std::vector<platform::Color>{{0, 1, 0}, {1, 1, 0}}, {0, 255, 0, 255}, {255, 255, 0, 255}}};
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
  EXPECT_THROW(
      run(DotLottieActor::load(source, Size{10, 10}, std::vector<platform::Color>{{1, 0, 0}})),
      DotLottieError);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

// Recolouring rewrites the first animation in archive order while the manifest names the second;
// a recoloured load still shows what was recoloured, and a plain load what the manifest names.
TEST(DotLottieActorTest, RecolouredLoadShowsTheRecolouredAnimation) {
  const Url source = Url::fromFilePath(fs::temp_directory_path() / "two.lottie");
  const auto red = testing::sampleLottie(100, 100, {{0, 0, 100, 100, {{0, {1, 0, 0}}}}});
  const auto blue = testing::sampleLottie(100, 100, {{0, 0, 100, 100, {{0, {0, 0, 1}}}}});
  testing::writeArchive(source.path(), {{"animations/first.json", red},
                                        {"animations/second.json", blue},
                                        {"manifest.json", R"({"animations":[{"id":"second"}]})"}});
  const std::vector<std::pair<Colors, Rgba8>> cases{
      {std::nullopt, {0, 0, 255, 255}},
      {std::vector<platform::Color>{{0, 1, 0}}, {0, 255, 0, 255}}};
  for (const auto& [colors, shown] : cases) {
    const auto animation = run(DotLottieActor::load(source, Size{100, 100}, colors));
    EXPECT_EQ(run(actor().seek(0, animation))->pixel(50, 50), shown);
    run(actor().destroy(animation));
  }
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

// The real animations of the corpus draw something at start, middle and end.
TEST(ActorCorpusTest, EveryDotLottieLoadsAndRenders) {
  const auto archives = testing::corpusFiles(".lottie");
  if (archives.empty()) {
    GTEST_SKIP() << "no corpus";
  }
  for (const auto& archive : archives) {
    SCOPED_TRACE(archive.filename().string());
    const auto animation =
        run(DotLottieActor::load(Url::fromFilePath(archive), Size{250, 250}, {}));
    ASSERT_TRUE(animation && animation->totalFrames() > 0 && animation->duration() > 0);
    for (const float frame : {0.0f, animation->totalFrames() / 2, animation->totalFrames() - 1}) {
      const auto image = run(actor().seek(frame, animation));
      ASSERT_TRUE(image && image->width() == 250 && image->height() == 250) << frame;
      EXPECT_FALSE(image->isFullyTransparent()) << frame;
    }
  }
}

} // namespace
} // namespace frameloom
