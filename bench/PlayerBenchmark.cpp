// Plays animations through LottiePlayer on the real display clock and main loop, and renders the
// same animations back to back through the animation actor as the peer that bounds what the
// player can do. For each animation it prints the frames per second delivered to the delegate,
// the dropped indices (index changes the clock asked for that never reached the delegate), the
// mean and worst time from a tick to the delegate, the actor's mean render time, and the ratio of
// that render time to half the display period (below 1: no index should be dropped).
//
// Figures are taken on a shared machine; compare them within one run.
//
// Usage: player_benchmark [--fps N] [--seconds S] [FILE.lottie ...]
//   (default: 60 fps, 10 s, three animations of /work/shared/corpus when present)

#include "frameloom/DotLottieActor.h"
#include "frameloom/LottiePlayer.h"
#include "frameloom/PlayerServices.h"
#include "platform/runtime/MainLoop.h"

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace frameloom;
using Clock = std::chrono::steady_clock;

namespace {

double now() {
  return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

// Forwards to the shared services and notes, for every frame asked for, the timestamp of the
// tick that asked (the request starts on the main loop right after its tick).
class TimingServices final : public PlayerServices {
public:
  const LottiePlayer* player = nullptr;
  std::map<const platform::Image*, std::pair<std::int64_t, double>> requestOf;
  std::set<std::int64_t> requested;

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
    const auto index = static_cast<std::int64_t>(frame);
    const double tick = player->displayLink()->timestamp();
    requested.insert(index);
    auto image = co_await inner_->seek(frame, std::move(model));
    if (image) {
      requestOf[image.get()] = {index, tick};
    }
    co_return image;
  }
  asio::awaitable<void> destroy(Model model) override {
    co_await inner_->destroy(std::move(model));
  }

private:
  std::shared_ptr<PlayerServices> inner_ = PlayerServices::shared();
};

class TimingDelegate final : public LottiePlayerDelegate {
public:
  explicit TimingDelegate(TimingServices& services) : services_(services) {}

  std::set<std::int64_t> delivered;
  std::size_t frames = 0;
  double totalLatency = 0;
  double worstLatency = 0;

  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    auto found = services_.requestOf.find(frame.get());
    if (found == services_.requestOf.end()) {
      return;
    }
    const double latency = now() - found->second.second;
    delivered.insert(found->second.first);
    services_.requestOf.erase(found);
    ++frames;
    totalLatency += latency;
    worstLatency = std::max(worstLatency, latency);
  }

private:
  TimingServices& services_;
};

asio::awaitable<void> wait(double seconds) {
  asio::steady_timer timer(co_await asio::this_coro::executor);
  timer.expires_after(
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
  co_await timer.async_wait(asio::use_awaitable);
}

// Every frame of the animation rendered once through the actor; the mean time per frame.
asio::awaitable<double> meanRenderTime(const fs::path& file) {
  auto model = co_await DotLottieActor::load(platform::Url::fromFilePath(file),
                                             platform::Size{250, 250}, std::nullopt);
  if (!model) {
    co_return 0.0;
  }
  const int frames = std::max(1, static_cast<int>(model->totalFrames()));
  const double start = now();
  for (int frame = 0; frame < frames; ++frame) {
    co_await DotLottieActor::shared().seek(static_cast<float>(frame), model);
  }
  const double mean = (now() - start) / frames;
  co_await DotLottieActor::shared().destroy(model);
  co_return mean;
}

asio::awaitable<void> playOne(const fs::path& file, float fps, double seconds) {
  auto services = std::make_shared<TimingServices>();
  auto delegate = std::make_shared<TimingDelegate>(*services);
  LottiePlayer player(fps, services, platform::DisplayLink::Clock::mainLoop);
  services->player = &player;
  player.setDelegate(delegate);
  co_await player.loadAnimation(platform::Url::fromFilePath(file));
  if (!player.isAnimationLoaded()) {
    std::printf("%-44s cannot be loaded\n", file.filename().c_str());
    co_return;
  }
  player.play();
  co_await wait(seconds);
  player.stop();
  co_await wait(0.2); // lets the last render come back; it is not delivered after stop()

  const double render = co_await meanRenderTime(file);
  std::size_t dropped = 0;
  for (auto index : services->requested) {
    dropped += delegate->delivered.count(index) == 0 ? 1 : 0;
  }
  const double halfPeriod = 0.5 / fps;
  std::printf("%-44s %8.1f %8zu %8zu %10.2f %10.2f %10.2f %8.2f\n", file.filename().c_str(),
              delegate->frames / seconds, services->requested.size(), dropped,
              delegate->frames ? 1000 * delegate->totalLatency / delegate->frames : 0.0,
              1000 * delegate->worstLatency, 1000 * render, render / halfPeriod);
}

} // namespace

int main(int argc, char** argv) {
  float fps = 60;
  double seconds = 10;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    std::string argument = argv[i];
    if (argument == "--fps" && i + 1 < argc) {
      fps = std::strtof(argv[++i], nullptr);
    } else if (argument == "--seconds" && i + 1 < argc) {
      seconds = std::strtod(argv[++i], nullptr);
    } else {
      files.emplace_back(argument);
    }
  }
  if (files.empty()) {
    for (auto name : {"DotLottie__confused.lottie", "DotLottie__zen_lottiev2.lottie",
                      "Issues__issue_1945.lottie"}) {
      fs::path file = fs::path("/work/shared/corpus") / name;
      if (fs::exists(file)) {
        files.push_back(file);
      }
    }
  }
  if (files.empty() || !(fps > 0) || !(seconds > 0)) {
    std::fprintf(stderr, "usage: player_benchmark [--fps N] [--seconds S] [FILE.lottie ...]\n");
    return 2;
  }
  std::printf("%d fps for %.1f s each (taken under load)\n", static_cast<int>(fps), seconds);
  std::printf("%-44s %8s %8s %8s %10s %10s %10s %8s\n", "animation", "fps", "indices", "dropped",
              "tick->ms", "worst ms", "render ms", "r/half");
  for (const auto& file : files) {
    platform::MainLoop::shared().runUntilComplete(playOne(file, fps, seconds));
  }
  return 0;
}
