#include "RequestRecorder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

namespace frameloom::testing {
namespace {

// The shared cache and actor, the real display clock and main loop; the host lets go of the
// player while it plays and it carries on until stopped.
TEST(PlayerEndToEndTest, PlaysTheShippedAnimationOnTheMainLoop) {
  auto recorder = std::make_shared<RequestRecorder>();
  auto player = LottiePlayer::create(30, recorder, platform::DisplayLink::Clock::mainLoop);
  player->setDelegate(recorder);
  auto asset = std::filesystem::path(FRAMELOOM_SOURCE_DIR) / "assets/demo-animation.json";
  platform::MainLoop::shared().runUntilComplete(
      player->loadAnimation(platform::Url::fromFilePath(asset)));
  ASSERT_TRUE(player->isAnimationLoaded());
  EXPECT_FLOAT_EQ(player->duration(), 2.0f);

  player->play();
  std::weak_ptr<LottiePlayer> playing = player;
  player.reset();
  platform::MainLoop::shared().runFor(std::chrono::seconds(1)); // half of one loop
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
