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

// An animation of `frames` frames at `fps` frames per second, made from plain Lottie JSON.
inline PlayerServices::Model makeModel(float frames, float fps = 30) {
  std::string json = R"({"v":"5.7.4","fr":)" + std::to_string(fps) + R"(,"ip":0,"op":)" +
                     std::to_string(frames) + R"(,"w":8,"h":8,"layers":[]})";
  return std::make_shared<platform::DotLottieAnimation>(
      std::span(reinterpret_cast<const std::uint8_t*>(json.data()), json.size()),
      platform::AnimationConfig{});
}

// A 1 x 1 image whose red component is the frame number, so deliveries can be told apart.
inline PlayerServices::Frame frameImage(float frame) {
  return platform::Image::make(1, 1, {static_cast<std::uint8_t>(frame), 0, 0, 255});
}

inline int frameOf(const platform::Image& image) {
  return image.pixel(0, 0).r;
}

// Services that record what the player asks for. Loads run on the shared executor and are
// read by the test only after they have finished; seeks run on the main loop.
class FakeServices : public PlayerServices {
public:
  PlayerServices::Model nextModel;
  bool failLoads = false;
  std::vector<std::string> loads;
  std::vector<float> seeks;    // every frame asked for
  std::vector<float> rendered; // those not cancelled before rendering
  std::function<void()> afterRender;

  asio::awaitable<ziploom::Bytes> loadLottie(platform::Url from) override {
    record("cache " + from.absoluteString());
    co_return ziploom::Bytes(3, 1);
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    record("file " + from.absoluteString() + " " + describe(size));
    co_return modelOrFailure();
  }
  asio::awaitable<Model> load(ziploom::Bytes from, std::optional<platform::Size> size) override {
    record("bytes " + std::to_string(from.size()) + " " + describe(size));
    co_return modelOrFailure();
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
    co_return frameImage(frame);
  }
  asio::awaitable<void> destroy(Model model) override {
    {
      std::lock_guard lock(mutex_);
      destroyed_.push_back(std::move(model));
    }
    destroyedChanged_.notify_all();
    co_return;
  }

  // Waits until the player has handed an animation to destroy and returns the first not yet
  // taken.
  Model nextDestroyed() {
    std::unique_lock lock(mutex_);
    destroyedChanged_.wait(lock, [this] { return !destroyed_.empty(); });
    Model model = std::move(destroyed_.front());
    destroyed_.erase(destroyed_.begin());
    return model;
  }

private:
  void record(std::string line) {
    std::lock_guard lock(mutex_);
    loads.push_back(std::move(line));
  }
  Model modelOrFailure() {
    if (failLoads) {
      throw std::runtime_error("load failed");
    }
    return nextModel;
  }
  static std::string describe(std::optional<platform::Size> size) {
    return size ? std::to_string(int(size->width)) + "x" + std::to_string(int(size->height))
                : "none";
  }

  std::mutex mutex_;
  std::condition_variable destroyedChanged_;
  std::vector<Model> destroyed_;
};

// Records the frames delivered and whether each came on the main thread.
class RecordingDelegate : public LottiePlayerDelegate {
public:
  std::vector<int> frames;
  bool allOnMainThread = true;
  std::function<void()> onFrame;

  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    frames.push_back(frameOf(*frame));
    allOnMainThread = allOnMainThread && platform::MainLoop::shared().isMainThread();
    if (onFrame) {
      onFrame();
    }
  }
};

} // namespace frameloom::testing
