// A small host: loads a .lottie file, recolours it, plays it at 320 x 240 and counts the frames
// it receives. It drives Frameloom's main loop from a poll(2) loop of its own, as a host with a
// GUI toolkit's loop would, and sends the library's log lines to standard error.
//
//   frameloom_host FILE.lottie [FRAMES]   prints "received N frames of WxH" after FRAMES frames
#include <frameloom/Version.h>
#include <frameloom/files/RecoloredCopies.h>
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/system/Log.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/player/LottiePlayer.h>

#include <asio/co_spawn.hpp>

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

using frameloom::LottiePlayer;
using frameloom::platform::Color;
using frameloom::platform::MainLoop;

// How long the host waits for the next frame before it gives up.
constexpr int frameTimeoutMilliseconds = 10'000;

struct FrameCounter : frameloom::LottiePlayerDelegate {
  int frames = 0;
  std::size_t width = 0;
  std::size_t height = 0;

  void lottiePlayer(LottiePlayer&,
                    std::shared_ptr<const frameloom::platform::Image> frame) override {
    ++frames;
    width = frame->width();
    height = frame->height();
  }
};

asio::awaitable<void> loadAndPlay(std::shared_ptr<LottiePlayer> player,
                                  frameloom::platform::Url url) {
  co_await player->loadAnimation(std::move(url));
  if (!player->isAnimationLoaded()) {
    throw std::runtime_error("no animation in the file");
  }
  player->play();
}

int run(const char* file, int wanted) {
  frameloom::platform::setLogSink(
      [](std::string_view line) { std::cerr << "frameloom: " << line << '\n'; });
  auto& loop = MainLoop::shared();
  auto counter = std::make_shared<FrameCounter>();
  auto player = LottiePlayer::create(30);
  player->setDelegate(counter);
  player->setRenderSize({320, 240});
  player->setColors({Color::fromHex("#00C000"), Color::fromHex("#0000C0")});

  std::exception_ptr failure;
  asio::co_spawn(loop.executor(), loadAndPlay(player, frameloom::platform::Url::fromFilePath(file)),
                 [&failure](std::exception_ptr error) { failure = error; });
  pollfd watched{loop.fileDescriptor(), POLLIN, 0};
  while (counter->frames < wanted) {
    if (::poll(&watched, 1, frameTimeoutMilliseconds) == 0) {
      throw std::runtime_error("no frame arrived in time");
    }
    loop.poll();
    if (failure) {
      std::rethrow_exception(failure);
    }
  }
  player->stop();
  loop.poll();
  std::cout << "received " << counter->frames << " frames of " << counter->width << "x"
            << counter->height << " from Frameloom " << frameloom_version() << '\n';
  frameloom::removeRecoloredCopies();
  return 0;
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::cerr << "usage: frameloom_host FILE.lottie [FRAMES]\n";
    return 2;
  }
  try {
    return run(argv[1], argc == 3 ? std::max(1, std::atoi(argv[2])) : 10);
  } catch (const std::exception& error) {
    std::cerr << "frameloom_host: " << error.what() << '\n';
    return 1;
  }
}
