#include "PlayCommand.h"

#include "ProgressBar.h"
#include "RenderSource.h"
#include "Usage.h"
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/Task.h>
#include <frameloom/player/LottiePlayer.h>

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace frameloom::tool {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

// Writes every frame the player delivers as folder/frame-00001.png, ... (when there is a folder)
// and counts them. A failed write is kept and reported once playing is over.
class FrameWriter final : public LottiePlayerDelegate {
public:
  explicit FrameWriter(std::optional<fs::path> folder) : folder_(std::move(folder)) {}

  void lottiePlayer(LottiePlayer&, std::shared_ptr<const platform::Image> frame) override {
    ++delivered_;
    if (!folder_ || failure_) {
      return;
    }
    char name[32];
    std::snprintf(name, sizeof name, "frame-%05zu.png", delivered_);
    try {
      platform::writePng(*frame, *folder_ / name);
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  std::size_t delivered() const { return delivered_; }
  void rethrowFailure() const {
    if (failure_) {
      std::rethrow_exception(failure_);
    }
  }

private:
  std::optional<fs::path> folder_;
  std::size_t delivered_ = 0;
  std::exception_ptr failure_;
};

platform::Url sourceUrl(const std::string& source) {
  if (platform::Url::isHttp(source)) {
    if (auto url = platform::Url::parse(source)) {
      return *url;
    }
    throw std::invalid_argument("invalid URL " + source);
  }
  return platform::Url::fromFilePath(source);
}

class StopOnExit {
public:
  explicit StopOnExit(std::shared_ptr<LottiePlayer> player) : player_(std::move(player)) {}
  ~StopOnExit() {
    if (player_->displayLink()->isValid()) {
      player_->stop();
    }
  }
  StopOnExit(const StopOnExit&) = delete;
  StopOnExit& operator=(const StopOnExit&) = delete;

private:
  std::shared_ptr<LottiePlayer> player_;
};

// Loads `url` into `player`, then clears `loading`; a failure is left in the task.
asio::awaitable<void> loadAndMark(std::shared_ptr<LottiePlayer> player, platform::Url url,
                                  std::shared_ptr<bool> loading) {
  try {
    co_await player->loadAnimation(std::move(url));
  } catch (...) {
    *loading = false;
    throw;
  }
  *loading = false;
}

platform::Size frameSize(const std::string& text) {
  const auto [width, height] = parseSize(text, "size");
  if (width >= platform::Image::maxDimension + 1 || height >= platform::Image::maxDimension + 1) {
    throw UsageError("size " + text + " is beyond 16384 pixels on a side");
  }
  return {width, height};
}

} // namespace

asio::awaitable<PlayResult> playFor(const PlayOptions& options, Console& console) {
  if (options.output) {
    fs::create_directories(*options.output);
  }
  auto writer = std::make_shared<FrameWriter>(options.output);
  auto player = LottiePlayer::create(options.fps);
  player->setRenderSize(frameSize(options.size));
  // The player lives until it is stopped, so it is stopped however playing ends.
  StopOnExit stopper{player};
  player->setDelegate(writer);
  // The load counts against the time: one that outlasts it is cancelled (a download ends at once)
  // and fails the command.
  const auto length =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.seconds));
  const auto deadline = Clock::now() + length;
  asio::steady_timer timer(co_await asio::this_coro::executor);
  auto loading = std::make_shared<bool>(true);
  const auto load = platform::spawn(platform::MainLoop::shared().executor(),
                                    loadAndMark(player, sourceUrl(options.source), loading));
  while (*loading && Clock::now() < deadline) {
    timer.expires_at(std::min(Clock::now() + std::chrono::milliseconds(20), deadline));
    co_await timer.async_wait(asio::use_awaitable);
  }
  if (*loading) {
    load.cancel();
    std::ostringstream message;
    message << options.source << ": not loaded within " << options.seconds << " s";
    throw std::runtime_error(message.str());
  }
  try {
    co_await load.value();
  } catch (const std::exception& error) {
    throw std::runtime_error(options.source + ": " + error.what());
  }
  if (!player->isAnimationLoaded()) {
    throw std::runtime_error("cannot load an animation from " + options.source);
  }

  ProgressBar bar(console, "play");
  bar.progress()->setTotalUnitCount(
      std::chrono::duration_cast<std::chrono::milliseconds>(length).count());
  const auto start = deadline - length;
  if (options.from) {
    player->play(*options.from);
  } else {
    player->play();
  }
  for (auto now = start; now - start < length; now = Clock::now()) {
    timer.expires_at(std::min(now + std::chrono::milliseconds(100), start + length));
    co_await timer.async_wait(asio::use_awaitable);
    bar.progress()->setCompletedUnitCount(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
  }
  player->stop();
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  writer->rethrowFailure();
  co_return PlayResult{writer->delivered(), elapsed};
}

std::string deliveredLine(const PlayResult& result) {
  std::ostringstream line;
  line << "delivered " << result.delivered << " frames in " << std::fixed << std::setprecision(2)
       << result.seconds << " s";
  return line.str();
}

void addPlayCommand(CLI::App& app, Console& console) {
  auto options = std::make_shared<PlayOptions>();
  auto* command = app.add_subcommand(
      "play", "Play an animation through the player on the display clock, writing its frames");
  command->add_option("SOURCE", options->source, "A .lottie file or an http(s) URL")->required();
  command->add_option("--fps", options->fps, "Frames per second of the display clock (default 60)")
      ->check(numberCheck(1, 1000));
  command->add_option("--size", options->size, "Pixel size of the frames WxH (default 250x250)")
      ->check(sizeCheck());
  command->add_option("--seconds", options->seconds, "How long to play (default 3)")
      ->check(numberCheck(0, 86400));
  command->add_option("--from", options->from, "Start at this time in seconds");
  command->add_option("--output", options->output,
                      "Folder to write the frames into as frame-00001.png, ...");
  command->callback([options, &console] {
    auto result = platform::MainLoop::shared().runUntilComplete(playFor(*options, console));
    std::cout << deliveredLine(result) << std::endl;
  });
}

} // namespace frameloom::tool
