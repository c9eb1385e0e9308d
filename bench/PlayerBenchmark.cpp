// Plays animations through LottiePlayer on the real display clock and main loop, and renders the
// same animations back to back through the animation actor as the peer that bounds what the
// player can do. For each animation it prints the frames per second delivered to the delegate,
// the dropped indices (index changes the clock asked for that never reached the delegate), the
// mean and worst time from a tick to the delegate, the actor's mean render time, and the ratio of
// that render time to half the display period (below 1: no index should be dropped), and how
// often the delivered frame number stepped down next to how many loops the time allowed.
//
// Figures are taken on a shared machine; compare them within one run.
//
// Usage: player_benchmark [--fps N] [--seconds S] [FILE.lottie ...]
//   (default: 60 fps, 10 s, three animations of the corpus when present)

#include "PlaybackRun.h"
#include "RequestRecorder.h"
#include "support/Corpus.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace frameloom;

namespace {

using testing::RequestRecorder;

// Every frame of the animation rendered once through the actor; the mean time per frame.
asio::awaitable<double> meanRenderTime(const fs::path& file) {
  auto model = co_await DotLottieActor::load(platform::Url::fromFilePath(file),
                                             platform::Size{250, 250}, std::nullopt);
  if (!model) {
    co_return 0.0;
  }
  const int frames = std::max(1, static_cast<int>(model->totalFrames()));
  const double start = RequestRecorder::now();
  for (int frame = 0; frame < frames; ++frame) {
    co_await DotLottieActor::shared().seek(static_cast<float>(frame), model);
  }
  const double mean = (RequestRecorder::now() - start) / frames;
  co_await DotLottieActor::shared().destroy(model);
  co_return mean;
}

asio::awaitable<void> playOne(const fs::path& file, float fps, double seconds) {
  auto recorder = std::make_shared<RequestRecorder>();
  auto player = LottiePlayer::create(fps, recorder, platform::DisplayLink::Clock::mainLoop);
  recorder->player = player.get();
  player->setDelegate(recorder);
  co_await player->loadAnimation(platform::Url::fromFilePath(file));
  if (!player->isAnimationLoaded()) {
    player->stop();
    std::printf("%-44s cannot be loaded\n", file.filename().c_str());
    co_return;
  }
  player->play();
  co_await bench::wait(seconds);
  player->stop();
  co_await bench::wait(0.2); // lets the last render come back; it is not delivered after stop()

  const double render = co_await meanRenderTime(file);
  std::set<std::int64_t> requested;
  for (const auto& request : recorder->requests) {
    requested.insert(static_cast<std::int64_t>(request.frame));
  }
  std::set<std::int64_t> delivered;
  double totalLatency = 0;
  double worstLatency = 0;
  for (const auto& delivery : recorder->deliveries) {
    delivered.insert(static_cast<std::int64_t>(delivery.request.frame));
    totalLatency += delivery.time - delivery.request.tick;
    worstLatency = std::max(worstLatency, delivery.time - delivery.request.tick);
  }
  std::size_t dropped = 0;
  for (auto index : requested) {
    dropped += delivered.count(index) == 0 ? 1 : 0;
  }
  // Frames arrive in increasing order within a loop: each step down should be a loop's end.
  std::size_t wraps = 0;
  for (std::size_t i = 1; i < recorder->deliveries.size(); ++i) {
    wraps += recorder->deliveries[i].request.frame < recorder->deliveries[i - 1].request.frame;
  }
  const std::size_t frames = recorder->deliveries.size();
  const double halfPeriod = 0.5 / fps;
  std::printf("%-44s %8.1f %8zu %8zu %10.2f %10.2f %10.2f %8.2f %6zu %6.1f\n",
              file.filename().c_str(), frames / seconds, requested.size(), dropped,
              frames ? 1000 * totalLatency / frames : 0.0, 1000 * worstLatency, 1000 * render,
              render / halfPeriod, wraps, seconds / player->duration());
}

} // namespace

int main(int argc, char** argv) {
  auto arguments = bench::playbackArguments(argc, argv);
  const float fps = arguments.fps.value_or(60);
  const double seconds = arguments.seconds.value_or(10);
  auto& files = arguments.files;
  const auto corpus = frameloom::testing::corpusFolder();
  if (files.empty() && corpus) {
    for (auto name : {"DotLottie__confused.lottie", "DotLottie__zen_lottiev2.lottie",
                      "Issues__issue_1945.lottie"}) {
      fs::path file = *corpus / name;
      if (fs::exists(file)) {
        files.push_back(file);
      }
    }
  }
  if (files.empty() || !(fps > 0) || !(seconds > 0)) {
    std::fprintf(stderr, "usage: player_benchmark [--fps N] [--seconds S] [FILE.lottie ...]\n");
    return 2;
  }
  double load[1] = {0};
  getloadavg(load, 1);
  std::printf("%d fps for %.1f s each; load average %.2f\n", static_cast<int>(fps), seconds,
              load[0]);
  std::printf("%-44s %8s %8s %8s %10s %10s %10s %8s %6s %6s\n", "animation", "fps", "indices",
              "dropped", "tick->ms", "worst ms", "render ms", "r/half", "wraps", "loops");
  for (const auto& file : files) {
    platform::MainLoop::shared().runUntilComplete(playOne(file, fps, seconds));
  }
  return 0;
}
