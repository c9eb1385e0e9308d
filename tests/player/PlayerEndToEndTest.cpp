#include "FakeServices.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>

namespace frameloom::testing {
namespace {

// The shared cache and actor, noting which frame number each rendered image is.
class NumberingServices final : public PlayerServices {
public:
  std::map<const platform::Image*, float> frameOf;

  asio::awaitable<ziploom::Bytes> loadLottie(platform::Url from) override {
    co_return co_await inner_->loadLottie(std::move(from));
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    co_return co_await inner_->load(std::move(from), size);
  }
  asio::awaitable<Model> load(ziploom::Bytes from, std::optional<platform::Size> size) override {
    co_return co_await inner_->load(std::move(from), size);
  }
  asio::awaitable<Frame> seek(float frame, Model model) override {
    auto image = co_await inner_->seek(frame, std::move(model));
    if (image) {
      frameOf[image.get()] = frame;
    }
    co_return image;
  }
  asio::awaitable<void> destroy(Model model) override {
    co_await inner_->destroy(std::move(model));
  }

private:
  std::shared_ptr<PlayerServices> inner_ = PlayerServices::shared();
};

class OrderDelegate final : public LottiePlayerDelegate {
public:
  explicit OrderDelegate(NumberingServices& services) : services_(services) {}
  std::vector<float> frames;
  bool allOnMainThread = true;

  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    allOnMainThread = allOnMainThread && platform::MainLoop::shared().isMainThread();
    frames.push_back(services_.frameOf.at(frame.get()));
  }

private:
  NumberingServices& services_;
};

TEST(PlayerEndToEndTest, PlaysTheShippedAnimationOnTheMainLoop) {
  auto services = std::make_shared<NumberingServices>();
  auto delegate = std::make_shared<OrderDelegate>(*services);
  LottiePlayer player(30, services, platform::DisplayLink::Clock::mainLoop);
  player.setDelegate(delegate);
  auto asset = std::filesystem::path(FRAMELOOM_SOURCE_DIR) / "assets/demo-animation.json";
  platform::MainLoop::shared().runUntilComplete(
      player.loadAnimation(platform::Url::fromFilePath(asset)));
  ASSERT_TRUE(player.isAnimationLoaded());
  EXPECT_FLOAT_EQ(player.duration(), 2.0f);

  player.play();
  platform::MainLoop::shared().runFor(std::chrono::seconds(1)); // half of one loop
  player.stop();

  EXPECT_TRUE(delegate->allOnMainThread);
  ASSERT_GE(delegate->frames.size(), 2u);
  EXPECT_EQ(delegate->frames.front(), 0);
  for (std::size_t i = 1; i < delegate->frames.size(); ++i) {
    EXPECT_LT(delegate->frames[i - 1], delegate->frames[i]);
  }
}

} // namespace
} // namespace frameloom::testing
