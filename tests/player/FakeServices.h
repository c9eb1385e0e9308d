#pragma once

#include "frameloom/LottiePlayer.h"
#include "platform/runtime/Cancellation.h"
#include "platform/runtime/MainLoop.h"

#include <asio/post.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace frameloom::testing {

// An animation of `frames` frames at 30 frames per second, made from plain Lottie JSON.
inline PlayerServices::Model makeModel(float frames) {
  std::string json = R"({"v":"5.7.4","fr":30,"ip":0,"op":)" + std::to_string(frames) +
                     R"(,"w":8,"h":8,"layers":[]})";
  return std::make_shared<platform::DotLottieAnimation>(
      std::span(reinterpret_cast<const std::uint8_t*>(json.data()), json.size()),
      platform::AnimationConfig{});
}

// Services that record what the player asks for; each image is 1 x 1 with the frame number as
// its red component. Loads run on the shared executor and are read by the test once finished;
// seeks run on the main loop; destroys run on the shared executor and are waited for.
class FakeServices : public PlayerServices {
public:
  PlayerServices::Model nextModel;
  bool failLoads = false;
  std::vector<std::string> loads;
  std::vector<float> seeks;    // every frame asked for
  std::vector<float> rendered; // those not cancelled before rendering
  std::function<void()> afterRender;

  asio::awaitable<ziploom::Bytes> loadLottie(platform::Url from) override {
    loads.push_back("cache " + from.absoluteString());
    co_return ziploom::Bytes(3, 1);
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    co_return loaded("file " + from.absoluteString(), size);
  }
  asio::awaitable<Model> load(ziploom::Bytes from, std::optional<platform::Size> size) override {
    co_return loaded("bytes " + std::to_string(from.size()), size);
  }
  asio::awaitable<Frame> seek(float frame, Model) override {
    seeks.push_back(frame);
    // A hop away and back, as a render on the actor would make.
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

// Records the frame number of each delivered image and whether each came on the main thread.
class RecordingDelegate : public LottiePlayerDelegate {
public:
  std::vector<int> frames;
  bool allOnMainThread = true;

  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    frames.push_back(frame->pixel(0, 0).r);
    allOnMainThread = allOnMainThread && platform::MainLoop::shared().isMainThread();
  }
};

} // namespace frameloom::testing
