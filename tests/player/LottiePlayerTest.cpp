#include "FakeServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include <cmath>

namespace frameloom::testing {
namespace {

using platform::MainLoop;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Runs the main loop until the work queued on it so far, and what that work queues in turn,
// has run.
void settle() {
  MainLoop::shared().runUntilComplete([]() -> asio::awaitable<void> {
    for (int i = 0; i < 16; ++i) {
      co_await asio::post(MainLoop::shared().executor(), asio::use_awaitable);
    }
  }());
}

class LottiePlayerTest : public ::testing::Test {
protected:
  std::shared_ptr<FakeServices> services = std::make_shared<FakeServices>();
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::unique_ptr<LottiePlayer> player =
      std::make_unique<LottiePlayer>(60.0f, services, platform::DisplayLink::Clock::manual);

  void SetUp() override { player->setDelegate(delegate); }

  // Loads an animation of `frames` frames at 30 frames per second from a local file.
  void load(float frames = 60) {
    services->nextModel = makeModel(frames);
    MainLoop::shared().runUntilComplete(
        player->loadAnimation(*platform::Url::parse("file:///tmp/a.lottie")));
  }
};

TEST_F(LottiePlayerTest, ConstructionLeavesLinkPausedAtTheAskedRate) {
  auto range = player->displayLink()->preferredFrameRateRange();
  EXPECT_EQ(range.minimum, 5.0f);
  EXPECT_EQ(range.maximum, 60.0f);
  EXPECT_EQ(range.preferred, 60.0f);
  EXPECT_TRUE(player->displayLink()->isPaused());
  EXPECT_FALSE(player->isAnimationLoaded());
}

TEST_F(LottiePlayerTest, ClockAdvancesWrapsAndRequestsEachIndexOnce) {
  load();
  player->play();
  const auto& link = player->displayLink();
  link->fire(10.0);  // first tick: no advance, frame 0
  link->fire(10.5);  // 0.5 s: frame 15
  link->fire(10.51); // same index: no request
  link->fire(11.9);  // 1.9 s: frame 57
  EXPECT_FLOAT_EQ(player->currentTime(), 1.9f);
  link->fire(12.2); // 2.2 s wraps to 0.2 s: frame 6
  EXPECT_NEAR(player->currentTime(), 0.2f, 1e-5);
  link->fire(12.0); // backwards: no advance
  EXPECT_NEAR(player->currentTime(), 0.2f, 1e-5);
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 15, 57, 6));
  // Each request was cancelled by the next before rendering, except the last.
  EXPECT_THAT(delegate->frames, ElementsAre(6));
  EXPECT_TRUE(delegate->allOnMainThread);

  player->play(0.0f);
  link->fire(20.0);
  link->fire(22.0); // exactly the duration wraps to 0
  EXPECT_EQ(player->currentTime(), 0);
}

TEST_F(LottiePlayerTest, IndexStaysWithinFramesAndUsesTheSmallestDivisor) {
  load(60.5f);
  player->setDuration(10); // 6.05 frames per second
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(9.99); // raw index 60, highest 59
  EXPECT_EQ(player->lastSentFrameIndex(), 59);

  load(10);
  player->setDuration(0.00005f); // divisor 0.0001: 100,000 frames per second
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(0.000035);
  EXPECT_EQ(player->lastSentFrameIndex(), 3);

  load(1);
  player->play();
  for (double t : {0.0, 0.01, 0.02}) {
    player->displayLink()->fire(t);
    EXPECT_EQ(player->lastSentFrameIndex(), 0);
  }
}

TEST_F(LottiePlayerTest, TicksDoNothingWithoutAnimationOrDuration) {
  player->resume();
  EXPECT_TRUE(player->isPlaying());
  player->displayLink()->fire(1.0);
  EXPECT_FALSE(player->lastTimestamp());

  load(); // a resumed player starts playing once an animation arrives
  player->displayLink()->fire(2.0);
  EXPECT_EQ(player->lastSentFrameIndex(), 0);
  player->displayLink()->fire(2.5);
  EXPECT_EQ(player->lastSentFrameIndex(), 15);

  player->setDuration(0);
  player->displayLink()->fire(3.0);
  EXPECT_EQ(player->lastTimestamp(), 2.5);
  EXPECT_EQ(player->progress(), 0);
  EXPECT_EQ(player->currentFrame(), 0);
}

TEST_F(LottiePlayerTest, ComputedValues) {
  load();
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(1.5);
  EXPECT_FLOAT_EQ(player->currentFrame(), 45);
  EXPECT_FLOAT_EQ(player->progress(), 0.75f);
  player->setDuration(1); // not clamped until the next tick wraps the clock
  EXPECT_FLOAT_EQ(player->progress(), 1.5f);
  EXPECT_FLOAT_EQ(player->currentFrame(), 59);
}

TEST_F(LottiePlayerTest, PauseAndResumeKeepTheClockWithoutAJump) {
  load();
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(0.5);
  player->pause();
  EXPECT_TRUE(player->displayLink()->isPaused());
  player->displayLink()->fire(100); // a paused link delivers no tick
  player->resume();
  player->displayLink()->fire(200);
  player->displayLink()->fire(200.01); // same index 15
  EXPECT_NEAR(player->currentTime(), 0.51f, 1e-4);
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 15));
}

TEST_F(LottiePlayerTest, FramesRenderedAfterPauseReachOnlyTimeRequests) {
  load();
  services->afterRender = [this] { player->pause(); };
  player->play();
  player->displayLink()->fire(0);
  settle();
  EXPECT_THAT(services->rendered, ElementsAre(0));
  EXPECT_TRUE(delegate->frames.empty());

  player->play(10.0f); // clamped to the duration: one past the last frame
  EXPECT_FLOAT_EQ(player->currentTime(), 2.0f);
  settle();
  EXPECT_THAT(delegate->frames, ElementsAre(60));

  services->afterRender = nullptr;
  player->play(-1.0f);
  EXPECT_EQ(player->currentTime(), 0);
  player->displayLink()->fire(5.0); // the tick's own request supersedes the time request
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 60, 0, 0));
  EXPECT_THAT(delegate->frames, ElementsAre(60, 0));
}

TEST_F(LottiePlayerTest, StopDestroysTheAnimationAndSilencesTheLinkForGood) {
  load();
  auto model = player->lottieModel();
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(0.5);
  player->stop();
  EXPECT_EQ(services->nextDestroyed(), model);
  EXPECT_FALSE(player->isAnimationLoaded());
  EXPECT_EQ(player->currentTime(), 0);
  EXPECT_EQ(player->lastSentFrameIndex(), -1);
  EXPECT_FALSE(player->displayLink()->isValid());

  load();
  player->play();
  player->displayLink()->fire(1.0);
  settle();
  EXPECT_EQ(player->lastSentFrameIndex(), -1);
  EXPECT_TRUE(delegate->frames.empty());
}

TEST_F(LottiePlayerTest, EndOfLifeWhilePlayingDestroysAndDropsPendingFrames) {
  load();
  auto model = player->lottieModel();
  auto link = player->displayLink();
  player->play();
  link->fire(0);
  ::testing::internal::CaptureStdout();
  player.reset();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "LottiePlayer did deint successfully\n");
  EXPECT_EQ(services->nextDestroyed(), model);
  EXPECT_FALSE(link->isValid());
  link->fire(1.0);
  settle();
  EXPECT_TRUE(delegate->frames.empty());
}

TEST_F(LottiePlayerTest, LoadsGoThroughTheCacheOnlyForRemoteUrls) {
  services->nextModel = makeModel(60);
  for (auto text : {"https://example.com/a.lottie", "http://h/b", "HTTPS://h/c", "file:///x"}) {
    MainLoop::shared().runUntilComplete(player->loadAnimation(*platform::Url::parse(text)));
  }
  EXPECT_THAT(services->loads, ElementsAre("cache https://example.com/a.lottie", "bytes 3 250x250",
                                           "cache http://h/b", "bytes 3 250x250",
                                           "file HTTPS://h/c 250x250", "file file:///x 250x250"));
}

TEST_F(LottiePlayerTest, LoadsThatFailOrFindNothingLeaveAPlayingAnimationAlone) {
  load();
  auto model = player->lottieModel();
  player->play();
  player->displayLink()->fire(0);
  player->displayLink()->fire(1.0);

  services->nextModel = nullptr;
  MainLoop::shared().runUntilComplete(
      player->loadAnimation(*platform::Url::parse("file:///missing.lottie")));
  services->failLoads = true;
  EXPECT_THROW(MainLoop::shared().runUntilComplete(
                   player->loadAnimation(*platform::Url::parse("https://h/x.lottie"))),
               std::runtime_error);
  EXPECT_EQ(player->lottieModel(), model);
  EXPECT_FLOAT_EQ(player->currentTime(), 1.0f);
  EXPECT_TRUE(player->isPlaying());

  // A successful load while playing restarts the clock on the new animation.
  services->failLoads = false;
  services->nextModel = makeModel(90);
  MainLoop::shared().runUntilComplete(
      player->loadAnimation(*platform::Url::parse("file:///b.lottie")));
  EXPECT_EQ(player->currentTime(), 0);
  EXPECT_TRUE(player->isPlaying());
  player->displayLink()->fire(2.5);
  EXPECT_EQ(player->lastSentFrameIndex(), 45);
}

TEST_F(LottiePlayerTest, LogLines) {
  ::testing::internal::CaptureStdout();
  player->play();
  player->resume();
  load(60);
  player->play();
  player->play(0.2f);
  player->play(5.0f);
  player->pause();
  player->stop();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "LottiePlayer: No animation loaded\n"
            "LottiePlayer: Resumed\n"
            "LottiePlayer: Loaded animation with 60.0 frames, duration: 2.0s\n"
            "LottiePlayer: Started playing\n"
            "LottiePlayer: Playing from time 0.2s\n"
            "LottiePlayer: Playing from time 2.0s\n"
            "LottiePlayer: Paused\n"
            "LottiePlayer: Stopped\n");

  ::testing::internal::CaptureStdout();
  load(61.5f);
  player->play(1.0f / 3);
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              HasSubstr("61.5 frames, duration: 2.05s\nLottiePlayer: Playing from time "
                        "0.33333334s\n"));
}

} // namespace
} // namespace frameloom::testing
