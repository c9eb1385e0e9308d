#include "frameloom/DotLottieActor.h"
#include "frameloom/DotLottieError.h"
#include "platform/runtime/MainLoop.h"
#include "platform/runtime/SharedExecutor.h"
#include "platform/runtime/Task.h"
#include "platform/system/Directories.h"

#include "../renderer/ArchiveSamples.h"
#include "../renderer/LottieSamples.h"

#include <gtest/gtest.h>

#include <thread>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

namespace frameloom {
namespace {

using platform::MainLoop;
using platform::Rgba8;
using platform::Size;
using platform::Url;

template <class T>
T run(asio::awaitable<T> work) {
  return MainLoop::shared().runUntilComplete(std::move(work));
}

// 100 x 100: a red left half and a blue right half, 60 frames at 30 per second.
std::string halves() {
  return testing::sampleLottie(
      100, 100, {{0, 0, 50, 100, {{0, {1, 0, 0}}}}, {50, 0, 50, 100, {{0, {0, 0, 1}}}}});
}

class DotLottieActorTest : public ::testing::Test {
protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() /
              ("frameloom-actor-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  Url write(const std::string& name, const std::vector<std::uint8_t>& bytes) const {
    std::ofstream(folder_ / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return Url::fromFilePath(folder_ / name);
  }

  std::filesystem::path folder_;
};

TEST_F(DotLottieActorTest, ConfigurationAndTruncatingSizes) {
  const auto config = DotLottieActor::configuration(Size{250, 250});
  EXPECT_FALSE(config.autoplay);
  EXPECT_TRUE(config.loop);
  EXPECT_EQ(config.mode, platform::Mode::forward);
  EXPECT_EQ(config.speed, 1.0f);
  EXPECT_TRUE(config.useFrameInterpolation);
  EXPECT_FALSE(config.segments || config.marker || config.themeId);
  EXPECT_EQ(config.backgroundColor, Rgba8{});
  EXPECT_EQ(config.layout, platform::createDefaultLayout());
  EXPECT_EQ(config.width, 250);
  EXPECT_EQ(config.height, 250);

  const auto small = DotLottieActor::configuration(Size{99.99, 0.4});
  EXPECT_EQ(small.width, 99);
  EXPECT_EQ(small.height, 0);
  const auto none = DotLottieActor::configuration(std::nullopt);
  EXPECT_FALSE(none.width || none.height);

  EXPECT_EQ(DotLottieActor::pixels(250.9), 250);
  EXPECT_EQ(DotLottieActor::pixels(-1.9), -1);
  EXPECT_EQ(DotLottieActor::pixels(NAN), 0);
  EXPECT_EQ(DotLottieActor::pixels(1e300), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(DotLottieActor::pixels(-INFINITY), std::numeric_limits<std::int64_t>::min());
}

TEST_F(DotLottieActorTest, LoadsBytesAtTheRequestedSizeAndRendersFrames) {
  auto animation = run(DotLottieActor::load(testing::bytesOf(halves()), Size{250.9, 125.2}));
  ASSERT_TRUE(animation);
  EXPECT_EQ(animation->totalFrames(), 60.0f);
  EXPECT_EQ(animation->duration(), 2.0f);
  const auto image = run(DotLottieActor::shared().seek(30, animation));
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 250u);
  EXPECT_EQ(image->height(), 125u);
  EXPECT_EQ(image->pixel(100, 60), (Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(image->pixel(150, 60), (Rgba8{0, 0, 255, 255}));
  EXPECT_EQ(image->pixel(20, 60), Rgba8{});
  EXPECT_EQ(animation->currentFrame(), 30.0f);
  run(DotLottieActor::shared().destroy(animation));
  EXPECT_FALSE(animation->isLoaded());
  run(DotLottieActor::shared().destroy(nullptr));
}

TEST_F(DotLottieActorTest, BytesWithoutAnAnimationStillGiveAnAnimationThatRendersNothing) {
  for (const auto& bytes : {testing::bytesOf("garbage"), testing::bytesOf(halves())}) {
    const bool usable = bytes.size() > 10;
    const auto animation = run(DotLottieActor::load(bytes, Size{0.5, 250}));
    ASSERT_TRUE(animation);
    EXPECT_EQ(animation->totalFrames() > 0, usable);
    EXPECT_FALSE(run(DotLottieActor::shared().seek(0, animation)));
    run(DotLottieActor::shared().destroy(animation));
  }
}

TEST_F(DotLottieActorTest, MissingOrUnreadableFilesPrintALineAndGiveNoAnimation) {
  for (const auto& path : {folder_ / "missing.lottie", folder_}) {
    const Url url = Url::fromFilePath(path);
    ::testing::internal::CaptureStdout();
    const auto animation = run(DotLottieActor::load(url, Size{250, 250}, std::nullopt));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Failed to load .lottie data from " + url.description() + "\n");
    EXPECT_FALSE(animation);
  }
}

TEST_F(DotLottieActorTest, AbsentOrEmptyColoursLoadTheFileItself) {
  const Url url = write("plain.lottie", testing::makeZip({{"animations/a.json", halves()}}));
  for (const auto& colors : {std::optional<std::vector<platform::Color>>(),
                             std::optional(std::vector<platform::Color>())}) {
    ::testing::internal::CaptureStdout();
    const auto animation = run(DotLottieActor::load(url, Size{100, 100}, colors));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    ASSERT_TRUE(animation);
    EXPECT_EQ(run(DotLottieActor::shared().seek(0, animation))->pixel(10, 50),
              (Rgba8{255, 0, 0, 255}));
    run(DotLottieActor::shared().destroy(animation));
  }
}

TEST_F(DotLottieActorTest, RecolouredLoadsRenderTheNewColoursFromACopyLeftBehind) {
  const Url url = write("source.lottie", testing::makeZip({{"animations/a.json", halves()}}));
  const auto copies = [] {
    std::set<std::filesystem::path> found;
    for (const auto& item : std::filesystem::directory_iterator(platform::temporaryDirectory())) {
      if (item.path().filename().string().starts_with("modified_")) {
        found.insert(item.path());
      }
    }
    return found;
  };
  const auto before = copies();
  const auto animation = run(DotLottieActor::load(
      url, Size{100, 100}, std::vector<platform::Color>{{0, 1, 0}, {1, 1, 0}}));
  ASSERT_TRUE(animation);
  const auto image = run(DotLottieActor::shared().seek(0, animation));
  EXPECT_EQ(image->pixel(10, 50), (Rgba8{0, 255, 0, 255}));
  EXPECT_EQ(image->pixel(90, 50), (Rgba8{255, 255, 0, 255}));
  run(DotLottieActor::shared().destroy(animation));

  std::set<std::filesystem::path> made;
  for (const auto& copy : copies()) {
    if (!before.contains(copy)) {
      made.insert(copy);
    }
  }
  ASSERT_EQ(made.size(), 1u);
  std::filesystem::remove(*made.begin());
}

TEST_F(DotLottieActorTest, RecolouringAFileThatIsNotAnArchiveThrows) {
  const Url url = write("text.lottie", testing::bytesOf(halves()));
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(
      run(DotLottieActor::load(url, Size{10, 10}, std::vector<platform::Color>{{1, 0, 0}})),
      DotLottieError);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(DotLottieActorTest, SeekFromACancelledTaskLeavesTheAnimationAlone) {
  const auto animation = run(DotLottieActor::load(testing::bytesOf(halves()), Size{10, 10}));
  // The task's own executor starts running only after the cancel, so the cancel always comes
  // before the seek begins.
  asio::io_context held;
  auto keepRunning = asio::make_work_guard(held);
  auto task = platform::spawn(held.get_executor(), DotLottieActor::shared().seek(20, animation));
  task.cancel();
  std::thread runner([&] { held.run(); });
  const auto frame = run(task.value());
  keepRunning.reset();
  runner.join();
  EXPECT_FALSE(frame);
  EXPECT_EQ(animation->currentFrame(), 0.0f);
  run(DotLottieActor::shared().destroy(animation));
}

TEST_F(DotLottieActorTest, ManyTasksShareTheActor) {
  std::vector<DotLottieActor::Animation> animations;
  for (int i = 0; i < 4; ++i) {
    animations.push_back(run(DotLottieActor::load(testing::bytesOf(halves()), Size{20, 20})));
  }
  const auto rendered = run([&]() -> asio::awaitable<int> {
    std::vector<platform::Task<DotLottieActor::Frame>> tasks;
    for (int i = 0; i < 40; ++i) {
      tasks.push_back(
          platform::spawn(platform::sharedExecutor(),
                          DotLottieActor::shared().seek(static_cast<float>(i), animations[i % 4])));
    }
    int images = 0;
    for (auto& task : tasks) {
      images += (co_await task.value()) != nullptr;
    }
    co_return images;
  }());
  EXPECT_EQ(rendered, 40);
  for (const auto& animation : animations) {
    run(DotLottieActor::shared().destroy(animation));
  }
}

} // namespace
} // namespace frameloom
