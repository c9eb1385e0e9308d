#pragma once

#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/player/LottiePlayer.h>
#include <frameloom/player/PlayerServices.h>

#include <chrono>
#include <map>
#include <vector>

namespace frameloom::testing {

// The shared services, noting every frame the player asks for with the timestamp of the tick
// that asked; as the player's delegate, it notes which request each delivered image answers and
// when (on the monotonic clock, like tick timestamps) and where it arrived.
class RequestRecorder final : public PlayerServices, public LottiePlayerDelegate {
public:
  struct Request {
    float frame;
    double tick;
  };
  struct Delivery {
    Request request;
    double time;
    bool onMainThread;
  };
  const LottiePlayer* player = nullptr; // whose display link stamps the requests; none: 0
  std::vector<Request> requests;
  std::vector<Delivery> deliveries;

  static double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  asio::awaitable<frameloom::platform::Bytes> loadLottie(platform::Url from) override {
    co_return co_await inner_->loadLottie(std::move(from));
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    co_return co_await inner_->load(std::move(from), size);
  }
  asio::awaitable<Model> load(frameloom::platform::Bytes from,
                              std::optional<platform::Size> size) override {
    co_return co_await inner_->load(std::move(from), size);
  }
  asio::awaitable<Frame> seek(float frame, Model model) override {
    const Request request{frame, player ? player->displayLink()->timestamp() : 0};
    requests.push_back(request);
    auto image = co_await inner_->seek(frame, std::move(model));
    if (image) {
      requestOf_[image.get()] = request;
    }
    co_return image;
  }
  asio::awaitable<void> destroy(Model model) override {
    co_await inner_->destroy(std::move(model));
  }
  void lottiePlayer(LottiePlayer&, Frame frame) override {
    if (auto found = requestOf_.find(frame.get()); found != requestOf_.end()) {
      deliveries.push_back({found->second, now(), platform::MainLoop::shared().isMainThread()});
      requestOf_.erase(found);
    }
  }

private:
  std::shared_ptr<PlayerServices> inner_ = PlayerServices::shared();
  std::map<const platform::Image*, Request> requestOf_;
};

} // namespace frameloom::testing
