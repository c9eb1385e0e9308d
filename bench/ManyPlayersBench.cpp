// How many 250 x 250 players one process keeps at 60 frames per second without dropping frame
// indices, next to the bound rlottie sets: its own frames per second on the same animation,
// rendering every frame into one buffer, divided by 60. Each trial plays a fresh set of players
// on the real display clock for a few seconds; the count doubles until indices drop, then a
// bisection finds the largest count that holds. A trial holds when at most 1 % of the indices
// the players' clocks asked for never reached their delegates (a busy shared machine drops the
// odd index whatever the count).
//
// Usage: many_players_bench [--seconds S] [FILE.lottie]
//   (default: 3 s per trial, DotLottie__confused.lottie of the corpus)

#include "PlaybackRun.h"
#include "RequestRecorder.h"
#include "renderer/LottieDocument.h"
#include "support/Corpus.h"
#include "support/Files.h"
#include <frameloom/platform/runtime/MainLoop.h>

#include <rlottie.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace frameloom;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t side = 250;
constexpr float displayRate = 60;
constexpr double toleratedDropShare = 0.01;

// rlottie alone on one thread: every frame of the animation in turn, for about two seconds.
double bareFramesPerSecond(const std::string& document) {
  auto model = rlottie::Animation::loadFromData(document, "", "", false);
  std::vector<std::uint32_t> buffer(side * side);
  std::int64_t frames = 0;
  const auto start = Clock::now();
  while (Clock::now() - start < std::chrono::seconds(2)) {
    for (std::size_t frame = 0; frame < model->totalFrame(); ++frame) {
      rlottie::Surface surface(buffer.data(), side, side, side * 4);
      model->renderSync(frame, surface, true);
      ++frames;
    }
  }
  return static_cast<double>(frames) / std::chrono::duration<double>(Clock::now() - start).count();
}

struct Trial {
  std::size_t requested = 0;
  std::size_t dropped = 0;
  bool holds() const {
    return static_cast<double>(dropped) <= toleratedDropShare * static_cast<double>(requested);
  }
};

asio::awaitable<Trial> play(const fs::path& file, std::size_t count, double seconds) {
  std::vector<std::shared_ptr<testing::RequestRecorder>> recorders;
  std::vector<std::shared_ptr<LottiePlayer>> players;
  for (std::size_t i = 0; i < count; ++i) {
    auto recorder = std::make_shared<testing::RequestRecorder>();
    auto player =
        LottiePlayer::create(displayRate, recorder, platform::DisplayLink::Clock::mainLoop);
    recorder->player = player.get();
    player->setDelegate(recorder);
    co_await player->loadAnimation(platform::Url::fromFilePath(file));
    recorders.push_back(std::move(recorder));
    players.push_back(std::move(player));
  }
  for (auto& player : players) {
    player->play();
  }
  co_await bench::wait(seconds);
  for (auto& player : players) {
    player->stop();
  }
  co_await bench::wait(0.2); // lets the last renders come back before the players go
  Trial trial;
  for (const auto& recorder : recorders) {
    std::set<std::int64_t> delivered;
    for (const auto& delivery : recorder->deliveries) {
      delivered.insert(static_cast<std::int64_t>(delivery.request.frame));
    }
    // Every request counts: an index a later loop asks for again counts again.
    trial.requested += recorder->requests.size();
    for (const auto& request : recorder->requests) {
      trial.dropped += delivered.count(static_cast<std::int64_t>(request.frame)) == 0;
    }
  }
  co_return trial;
}

} // namespace

int main(int argc, char** argv) {
  const auto arguments = bench::playbackArguments(argc, argv);
  const double seconds = arguments.seconds.value_or(3);
  fs::path file = arguments.files.empty() ? fs::path() : arguments.files.back();
  if (file.empty()) {
    if (const auto corpus = testing::corpusFolder()) {
      file = *corpus / "DotLottie__confused.lottie";
    }
  }
  const auto document =
      file.empty() ? std::nullopt : renderer::lottieDocument(testing::readFile(file));
  if (!document || !(seconds > 0) || arguments.fps) {
    std::fprintf(stderr, "usage: many_players_bench [--seconds S] [FILE.lottie]\n");
    return 2;
  }
  double load[1] = {0};
  getloadavg(load, 1);
  const double bare = bareFramesPerSecond(*document);
  const double bound = bare / displayRate;
  std::printf("%s, %zu x %zu at %.0f fps, %.1f s a trial; load average %.2f\n",
              file.filename().c_str(), side, side, displayRate, seconds, load[0]);
  std::printf("rlottie alone: %.0f frames/s; bound %.1f players\n", bare, bound);
  const auto trial = [&](std::size_t count) {
    const auto result = platform::MainLoop::shared().runUntilComplete(play(file, count, seconds));
    std::printf("%4zu players: %7zu indices asked, %6zu dropped (%.2f %%): %s\n", count,
                result.requested, result.dropped,
                result.requested ? 100.0 * result.dropped / result.requested : 0.0,
                result.holds() ? "holds" : "drops");
    std::fflush(stdout);
    return result.holds();
  };
  std::size_t holding = 0;
  std::size_t failing = 1;
  while (trial(failing)) {
    holding = failing;
    failing *= 2;
  }
  while (failing - holding > 1) {
    const std::size_t middle = (holding + failing) / 2;
    (trial(middle) ? holding : failing) = middle;
  }
  std::printf("players without dropped indices: %zu; bound %.1f; %.0f %% of the bound (target "
              "at least 80 %%): %s\n",
              holding, bound, 100.0 * static_cast<double>(holding) / bound,
              static_cast<double>(holding) >= 0.8 * bound ? "met" : "missed");
  return 0;
}
