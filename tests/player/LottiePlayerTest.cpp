#include "RequestRecorder.h"
#include <frameloom/platform/runtime/Cancellation.h>

#include <asio/post.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <stdexcept>

namespace frameloom::testing {
namespace {

using platform::MainLoop;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Services that record what the player asks for; each image is 1 x 1 with the frame number as
// its red component. Seeks hop away and back as a render on the actor would, and give nothing if
// cancelled meanwhile; destroys run on the shared executor and are waited for.
class FakeServices : public PlayerServices {
public:
  Model nextModel;
  bool failLoads = false;
  std::vector<std::string> loads;
  std::vector<float> seeks;    // every frame asked for
  std::vector<float> rendered; // those not cancelled before rendering
  std::function<void()> afterRender;

  asio::awaitable<frameloom::platform::Bytes> loadLottie(platform::Url from) override {
    loads.push_back("cache " + from.absoluteString());
    co_return frameloom::platform::Bytes(3, 1);
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    co_return loaded("file " + from.absoluteString(), size);
  }
  asio::awaitable<Model> load(frameloom::platform::Bytes from,
                              std::optional<platform::Size> size) override {
    co_return loaded("bytes " + std::to_string(from.size()), size);
  }
  asio::awaitable<Frame> seek(float frame, Model) override {
    seeks.push_back(frame);
    co_await asio::post(co_await asio::this_coro::executor, asio::use_awaitable);
    if (platform::isCancelled()) {
      co_return nullptr;
    }
    rendered.push_back(frame);
    if (afterRender) {
      afterRender();
    }
    co_return platform::Image::make(1, 1, {static_cast<std::uint8_t>(frame), 0, 0, 255});
  }
  asio::awaitable<void> destroy(Model model) override {
    std::lock_guard lock(mutex_);
    destroyed_.push_back(std::move(model));
    destroyedChanged_.notify_all();
    co_return;
  }
  // Waits until the player has handed an animation to destroy and takes the first one left.
  Model nextDestroyed() {
    std::unique_lock lock(mutex_);
    destroyedChanged_.wait(lock, [this] { return !destroyed_.empty(); });
    Model model = std::move(destroyed_.front());
    destroyed_.erase(destroyed_.begin());
    return model;
  }

private:
  Model loaded(std::string line, std::optional<platform::Size> size) {
    loads.push_back(line + " " + std::to_string(int(size.value().width)) + "x" +
                    std::to_string(int(size.value().height)));
    if (failLoads) {
      throw std::runtime_error("load failed");
    }
    return nextModel;
  }
  std::mutex mutex_;
  std::condition_variable destroyedChanged_;
  std::vector<Model> destroyed_;
};

// Records the frame number of each delivered image.
struct RecordingDelegate : LottiePlayerDelegate {
  std::vector<int> frames;
  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    frames.push_back(frame->pixel(0, 0).r);
  }
};

// Runs the main loop until the work queued on it so far, and what that work queues, has run.
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
  std::shared_ptr<LottiePlayer> player =
      LottiePlayer::create(60.0f, services, platform::DisplayLink::Clock::manual);

  void SetUp() override { player->setDelegate(delegate); }
  void TearDown() override {
    if (player) {
      player->stop();
    }
  }
  // Loads an animation of `frames` frames at 30 frames per second, or none for 0 frames.
  void load(float frames = 60, const char* url = "file:///tmp/a.lottie") {
    std::string json = R"({"v":"5.7.4","fr":30,"ip":0,"op":)" + std::to_string(frames) +
                       R"(,"w":8,"h":8,"layers":[]})";
    auto bytes = std::span(reinterpret_cast<const std::uint8_t*>(json.data()), json.size());
    services->nextModel =
        frames > 0
            ? std::make_shared<renderer::DotLottieAnimation>(bytes, renderer::AnimationConfig{})
            : nullptr;
    MainLoop::shared().runUntilComplete(player->loadAnimation(*platform::Url::parse(url)));
  }
  void fire(std::initializer_list<double> timestamps) {
    for (double timestamp : timestamps) {
      player->displayLink()->fire(timestamp);
    }
  }
};

TEST_F(LottiePlayerTest, ClockAdvancesWrapsAndRequestsEachIndexOnce) {
  auto range = player->displayLink()->preferredFrameRateRange();
  EXPECT_EQ(std::tuple(range.minimum, range.maximum, range.preferred), std::tuple(5, 60, 60));
  load();
  player->play();
  // First tick: no advance, frame 0; 0.5 s: 15; same index: no request; 1.9 s: 57.
  fire({10.0, 10.5, 10.51, 11.9});
  EXPECT_FLOAT_EQ(player->currentTime(), 1.9f);
  fire({12.2, 12.0}); // 2.2 s wraps to 0.2 s: frame 6; backwards: no advance
  EXPECT_NEAR(player->currentTime(), 0.2f, 1e-5);
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 15, 57, 6));
  // Each request was cancelled by the next before rendering, except the last.
  EXPECT_THAT(delegate->frames, ElementsAre(6));
  player->play(0.0f);
  fire({20.0, 22.0}); // exactly the duration wraps to 0
  EXPECT_EQ(player->currentTime(), 0);
}

TEST_F(LottiePlayerTest, IndexStaysWithinFramesAndUsesTheSmallestDivisor) {
  load(60.5f);
  player->setDuration(10); // 6.05 frames per second
  player->play();
  fire({0, 9.99}); // raw index 60, highest 59
  EXPECT_EQ(player->lastSentFrameIndex(), 59);
  EXPECT_FLOAT_EQ(player->currentFrame(), 59.5f);
  player->setDuration(5); // progress is not clamped until the next tick wraps the clock
  EXPECT_FLOAT_EQ(player->progress(), 9.99f / 5);
  load(10);
  player->setDuration(0.00005f); // divisor 0.0001: 100,000 frames per second
  player->play();
  fire({0, 0.000035});
  EXPECT_EQ(player->lastSentFrameIndex(), 3);
  load(1);
  player->play();
  fire({0.0, 0.01, 0.02});
  EXPECT_EQ(player->lastSentFrameIndex(), 0);
}

TEST_F(LottiePlayerTest, TicksDoNothingWithoutAnimationOrDuration) {
  player->resume();
  fire({1.0});
  EXPECT_FALSE(player->lastTimestamp());
  load(); // a resumed player starts playing once an animation arrives
  fire({2.0, 2.5});
  EXPECT_EQ(player->lastSentFrameIndex(), 15);
  EXPECT_FLOAT_EQ(player->progress(), 0.25f);
  player->setDuration(0);
  fire({3.0});
  EXPECT_EQ(player->lastTimestamp(), 2.5);
  EXPECT_EQ(player->progress(), 0);
  EXPECT_EQ(player->currentFrame(), 0);
}

TEST_F(LottiePlayerTest, PauseKeepsTheClockAndDropsFramesOfTickRequestsOnly) {
  load();
  player->play();
  fire({0, 0.5});
  player->pause();
  fire({100}); // a paused link delivers no tick
  player->resume();
  fire({200, 200.01}); // no jump for the pause; same index 15
  EXPECT_NEAR(player->currentTime(), 0.51f, 1e-4);
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 15));
  // Frames rendered once the player is paused reach the delegate only for time requests.
  services->afterRender = [this] { player->pause(); };
  player->play();
  fire({300});
  settle();
  EXPECT_THAT(services->rendered, ElementsAre(15));
  EXPECT_THAT(delegate->frames, IsEmpty());
  player->play(10.0f); // clamped to the duration: one past the last frame
  EXPECT_FLOAT_EQ(player->currentTime(), 2.0f);
  settle();
  EXPECT_THAT(delegate->frames, ElementsAre(60));
  services->afterRender = nullptr;
  player->play(-1.0f);
  EXPECT_EQ(player->currentTime(), 0);
  fire({400}); // the tick's own request supersedes the time request
  settle();
  EXPECT_THAT(services->seeks, ElementsAre(0, 15, 15, 60, 0, 0));
  EXPECT_THAT(delegate->frames, ElementsAre(60, 0));
}

// The link keeps a playing player its host let go of. stop() destroys the animation, silences
// the link for good and lets the player end; a frame still in flight then finds it gone.
TEST_F(LottiePlayerTest, LivesUntilStoppedAndReleased) {
  load();
  auto model = player->lottieModel();
  player->play();
  std::weak_ptr<LottiePlayer> weak = player;
  auto link = player->displayLink();
  player.reset();
  link->fire(0);
  settle();
  ASSERT_FALSE(weak.expired());
  EXPECT_THAT(delegate->frames, ElementsAre(0));
  player = weak.lock();
  link->fire(0.5);
  player->stop();
  EXPECT_EQ(services->nextDestroyed(), model);
  EXPECT_FALSE(player->isAnimationLoaded());
  EXPECT_EQ(player->currentTime(), 0);
  EXPECT_EQ(player->lastSentFrameIndex(), -1);
  EXPECT_FALSE(link->isValid());

  load();
  model = player->lottieModel();
  player->play(1.0f); // a time request: delivered while the player lives, whatever its state
  link->fire(1.0);
  EXPECT_EQ(player->lastSentFrameIndex(), -1);
  ::testing::internal::CaptureStdout();
  player.reset();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "LottiePlayer did deint successfully\n");
  EXPECT_EQ(services->nextDestroyed(), model);
  settle();
  EXPECT_THAT(delegate->frames, ElementsAre(0));
}

TEST_F(LottiePlayerTest, FailedOrEmptyLoadsLeaveAPlayingAnimationAlone) {
  load(60, "https://example.com/a.lottie");
  load(60, "HTTPS://h/c");
  auto model = player->lottieModel();
  player->play();
  fire({0, 1.0});
  load(0, "http://h/b");
  services->failLoads = true;
  EXPECT_THROW(load(60, "file:///x"), std::runtime_error);
  EXPECT_THAT(services->loads, ElementsAre("cache https://example.com/a.lottie", "bytes 3 250x250",
                                           "file HTTPS://h/c 250x250", "cache http://h/b",
                                           "bytes 3 250x250", "file file:///x 250x250"));
  EXPECT_EQ(player->lottieModel(), model);
  EXPECT_FLOAT_EQ(player->currentTime(), 1.0f);
  EXPECT_TRUE(player->isPlaying());
  // A successful load while playing restarts the clock on the new animation.
  services->failLoads = false;
  load(90);
  EXPECT_EQ(player->currentTime(), 0);
  fire({2.5});
  EXPECT_EQ(player->lastSentFrameIndex(), 45);
}

TEST_F(LottiePlayerTest, LogLines) {
  ::testing::internal::CaptureStdout();
  player->play();
  player->resume();
  load(61.5f);
  for (float time : {-1.0f, 1.0f / 3, 1.0f, 5.0f}) {
    time < 0 ? player->play() : player->play(time);
  }
  player->pause();
  player->stop();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "LottiePlayer: No animation loaded\n"
            "LottiePlayer: Resumed\n"
            "LottiePlayer: Loaded animation with 61.5 frames, duration: 2.05s\n"
            "LottiePlayer: Started playing\n"
            "LottiePlayer: Playing from time 0.33333334s\n"
            "LottiePlayer: Playing from time 1.0s\n"
            "LottiePlayer: Playing from time 2.05s\n"
            "LottiePlayer: Paused\n"
            "LottiePlayer: Stopped\n");
}

// The shared cache and actor, the real display clock and main loop; the host lets go of the
// player while it plays and it carries on until stopped.
TEST(PlayerEndToEndTest, PlaysTheShippedAnimationOnTheMainLoop) {
  auto recorder = std::make_shared<RequestRecorder>();
  auto player = LottiePlayer::create(30, recorder, platform::DisplayLink::Clock::mainLoop);
  player->setDelegate(recorder);
  auto asset = std::filesystem::path(FRAMELOOM_SOURCE_DIR) / "assets/demo-animation.json";
  MainLoop::shared().runUntilComplete(player->loadAnimation(platform::Url::fromFilePath(asset)));
  EXPECT_FLOAT_EQ(player->duration(), 2.0f);
  player->play();
  std::weak_ptr<LottiePlayer> playing = player;
  player.reset();
  MainLoop::shared().runFor(std::chrono::seconds(1)); // half of one loop
  ASSERT_FALSE(playing.expired());
  playing.lock()->stop();
  EXPECT_TRUE(playing.expired());
  const auto& frames = recorder->deliveries;
  ASSERT_GE(frames.size(), 2u);
  EXPECT_EQ(frames.front().request.frame, 0);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_TRUE(frames[i].onMainThread);
    EXPECT_TRUE(i == 0 || frames[i - 1].request.frame < frames[i].request.frame) << i;
  }
}

} // namespace
} // namespace frameloom::testing

namespace frameloom::testing {
namespace {

// Services that also record the colours of recoloured loads.
class RecoloringServices : public FakeServices {
public:
  std::vector<std::vector<platform::Color>> recolored;

  asio::awaitable<Model> loadRecolored(platform::Url from, std::optional<platform::Size> size,
                                       std::vector<platform::Color> colors) override {
    recolored.push_back(std::move(colors));
    co_return co_await load(std::move(from), size);
  }
};

TEST(LottiePlayerHost, RenderSizeAndColoursReachTheLoads) {
  auto services = std::make_shared<RecoloringServices>();
  auto player = LottiePlayer::create(60.0f, services, platform::DisplayLink::Clock::manual);
  const auto loadFrom = [&](const char* url) {
    MainLoop::shared().runUntilComplete(player->loadAnimation(*platform::Url::parse(url)));
  };
  player->setRenderSize({1080, 720});
  loadFrom("file:///tmp/a.lottie");
  player->setColors({platform::Color::fromHex("#f00")});
  loadFrom("https://example.com/b.lottie");

  EXPECT_THAT(services->loads, ElementsAre("file file:///tmp/a.lottie 1080x720",
                                           "file https://example.com/b.lottie 1080x720"));
  EXPECT_EQ(services->recolored,
            std::vector<std::vector<platform::Color>>{{platform::Color(1, 0, 0)}});
  player->stop();
}

} // namespace
} // namespace frameloom::testing
