// Plays an animation at 30 fps on the real display clock and main loop, first alone, then while
// 16 downloads wait on a local server that stalls (8) or trickles a byte every 200 ms (8), and
// prints the share of the clock's frames the delegate received in each case. The downloads wait
// on the cache's network thread; the player's renders run on the shared executor.
//
// Usage: stalled_downloads_bench [--seconds S] [FILE.lottie | FILE.json]
//   (default: 5 s, the shipped demo animation)

#include "PlaybackRun.h"
#include "RequestRecorder.h"
#include "TestHttpServer.h"
#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace frameloom;

namespace {

constexpr float framesPerSecond = 30;
constexpr int downloads = 16;

// The frames delivered while playing for `seconds`.
asio::awaitable<std::size_t> play(const fs::path& file, double seconds) {
  auto recorder = std::make_shared<testing::RequestRecorder>();
  auto player =
      LottiePlayer::create(framesPerSecond, recorder, platform::DisplayLink::Clock::mainLoop);
  player->setDelegate(recorder);
  co_await player->loadAnimation(platform::Url::fromFilePath(file));
  if (!player->isAnimationLoaded()) {
    player->stop();
    co_return 0;
  }
  player->play();
  co_await bench::wait(seconds);
  player->stop();
  co_return recorder->deliveries.size();
}

} // namespace

int main(int argc, char** argv) {
  const auto arguments = bench::playbackArguments(argc, argv);
  const double seconds = arguments.seconds.value_or(5);
  const fs::path file = arguments.files.empty()
                            ? fs::path(FRAMELOOM_SOURCE_DIR) / "assets/demo-animation.json"
                            : arguments.files.back();
  if (!(seconds > 0) || !fs::exists(file) || arguments.fps) {
    std::fprintf(stderr, "usage: stalled_downloads_bench [--seconds S] [FILE]\n");
    return 2;
  }
  auto& loop = platform::MainLoop::shared();
  const double expected = framesPerSecond * seconds;
  const std::size_t alone = loop.runUntilComplete(play(file, seconds));

  testing::TestHttpServer server;
  const fs::path folder =
      fs::temp_directory_path() / ("frameloom-stalled-" + std::to_string(::getpid()));
  std::size_t withDownloads = 0;
  {
    LottieCache cache(folder);
    std::vector<platform::Task<LottieCache::Data>> loads;
    for (int i = 0; i < downloads; ++i) {
      const auto from =
          *platform::Url::parse(server.url((i % 2 ? "/slow/" : "/trickle/") + std::to_string(i)));
      loads.push_back(platform::spawn(loop.executor(), cache.loadLottie(from)));
    }
    loop.runFor(std::chrono::milliseconds(200)); // every transfer under way
    withDownloads = loop.runUntilComplete(play(file, seconds));
    for (const auto& load : loads) {
      load.cancel();
    }
  }
  fs::remove_all(folder);
  double load[1] = {0};
  getloadavg(load, 1);
  std::printf("%.0f fps for %.1f s, load average %.2f\n", framesPerSecond, seconds, load[0]);
  std::printf("alone:                       %4zu frames, %5.1f %%\n", alone,
              100 * alone / expected);
  std::printf("%d downloads stalled/trickling: %4zu frames, %5.1f %%\n", downloads, withDownloads,
              100 * withDownloads / expected);
  return 0;
}
