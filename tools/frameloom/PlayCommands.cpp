#include "PlayCommands.h"

#include "ColorArguments.h"
#include "DemoAnimation.h"
#include "ProgressBar.h"
#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/graphics/ContactSheet.h>
#include <frameloom/platform/graphics/Png.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/Task.h>
#include <frameloom/player/LottiePlayer.h>
#include <frameloom/ziploom/Archive.h>

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
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
#include <vector>

namespace frameloom::tool {
namespace {

namespace fs = std::filesystem;
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

struct PlayOptions {
  std::string source;
  float fps = 60;
  double seconds = 3;
  std::optional<float> from;
  std::optional<fs::path> output;
};

struct PlayResult {
  std::size_t delivered = 0;
  double seconds = 0;
};

platform::Url sourceUrl(const std::string& source) {
  if (source.starts_with("http://") || source.starts_with("https://")) {
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

// Loads the source into a new player, plays it on the main loop's display clock for what is left
// of the given time and stops it. The load counts against the time: one that outlasts it is
// cancelled (a download ends at once) and fails the command.
asio::awaitable<PlayResult> playFor(const PlayOptions& options) {
  if (options.output) {
    fs::create_directories(*options.output);
  }
  auto writer = std::make_shared<FrameWriter>(options.output);
  auto player = LottiePlayer::create(options.fps);
  // The player lives until it is stopped, so it is stopped however playing ends.
  StopOnExit stopper{player};
  player->setDelegate(writer);
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

  ProgressBar bar("play");
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

void addPlayCommand(CLI::App& app) {
  auto options = std::make_shared<PlayOptions>();
  auto* command = app.add_subcommand(
      "play", "Play an animation through the player on the display clock, writing its frames");
  command->add_option("SOURCE", options->source, "A .lottie file or an http(s) URL")->required();
  command->add_option("--fps", options->fps, "Frames per second of the display clock (default 60)")
      ->check(CLI::Range(1.0f, 1000.0f));
  command->add_option("--seconds", options->seconds, "How long to play (default 3)")
      ->check(CLI::Range(0.0, 86400.0));
  command->add_option("--from", options->from, "Start at this time in seconds");
  command->add_option("--output", options->output,
                      "Folder to write the frames into as frame-00001.png, ...");
  command->callback([options] {
    auto result = platform::MainLoop::shared().runUntilComplete(playFor(*options));
    std::cout << deliveredLine(result) << std::endl;
  });
}

// The demo ---------------------------------------------------------------------------------------

// The host palette the demo recolours with: teal, pink, navy, yellow, orange.
constexpr const char* demoPalette = "#1B998B,#ED217C,#2D3047,#FFFD82,#FF9B71";

constexpr const char* demoId = "frameloom_demo";

// The bundled animation as a .lottie archive: a manifest naming it and the JSON under
// animations/.
platform::Bytes packDemoLottie() {
  const std::string manifest = std::string(R"({"version":"1","generator":"frameloom",)") +
                               R"("animations":[{"id":")" + demoId + R"("}]})";
  ziploom::Archive archive(platform::Bytes{}, ziploom::AccessMode::create);
  auto add = [&archive](const std::string& path, std::string_view text) {
    archive.addEntry(path, ziploom::Entry::EntryType::file, static_cast<std::int64_t>(text.size()),
                     std::chrono::system_clock::now(), 0644, ziploom::CompressionMethod::deflate,
                     ziploom::defaultWriteChunkSize, nullptr,
                     [text](std::int64_t position, std::int64_t count) {
                       auto begin = text.begin() + position;
                       return platform::Bytes(begin, begin + count);
                     });
  };
  add("manifest.json", manifest);
  add(std::string("animations/") + demoId + ".json", demoAnimationJson());
  return *archive.data();
}

void writeFile(const fs::path& path, const platform::Bytes& bytes) {
  const fs::path partial = path.string() + ".partial";
  {
    std::FILE* file = std::fopen(partial.c_str(), "wb");
    if (!file) {
      throw std::runtime_error("cannot write " + partial.string());
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written) {
      fs::remove(partial);
      throw std::runtime_error("cannot write " + partial.string());
    }
  }
  fs::rename(partial, path);
}

std::string shortest(double value) {
  char text[32];
  return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

// A 4 x 3 sheet of evenly spaced frames of the .lottie at `path`, rendered through the actor.
asio::awaitable<void> writeContactSheet(const fs::path& path, const fs::path& sheet) {
  constexpr std::size_t columns = 4;
  constexpr std::size_t rows = 3;
  auto animation = co_await DotLottieActor::load(platform::Url::fromFilePath(path),
                                                 platform::Size{250, 250}, std::nullopt);
  if (!animation) {
    throw std::runtime_error("cannot load an animation from " + path.string());
  }
  std::vector<std::shared_ptr<const platform::Image>> frames;
  std::exception_ptr failure;
  try {
    const float last = std::max(0.0f, animation->totalFrames() - 1);
    for (std::size_t i = 0; i < columns * rows; ++i) {
      const float frame = static_cast<float>(i) * last / (columns * rows - 1);
      auto image = co_await DotLottieActor::shared().seek(frame, animation);
      if (!image) {
        throw std::runtime_error("no image for frame " + std::to_string(frame));
      }
      frames.push_back(std::move(image));
    }
    platform::writePng(*platform::makeContactSheet(frames, columns, rows), sheet);
  } catch (...) {
    failure = std::current_exception();
  }
  co_await DotLottieActor::shared().destroy(animation);
  if (failure) {
    std::rethrow_exception(failure);
  }
}

void runDemo(const fs::path& folder) {
  fs::create_directories(folder);
  const fs::path original = folder / "demo.lottie";
  writeFile(original, packDemoLottie());
  std::cout << "animation: " << original.string() << "\n";

  const DotLottieFile file(original);
  std::cout << "size: " << shortest(file.size().width) << " x " << shortest(file.size().height)
            << "\n";
  std::cout << "palette:\n";
  for (const auto& color : DotLottieFile::readPalette(original)) {
    std::cout << "  " << formatHexColor(color.color) << " " << color.key << " " << color.uses
              << "\n";
  }

  const fs::path recoloured = folder / "demo-recoloured.lottie";
  const fs::path copy = DotLottieFile::recolor(original, parseColorList(demoPalette), 3);
  fs::copy_file(copy, recoloured, fs::copy_options::overwrite_existing);
  std::cout << "recoloured copy with " << demoPalette << ": " << recoloured.string() << "\n";

  for (const auto& [source, sheet] : {std::pair{original, folder / "sheet-original.png"},
                                      std::pair{recoloured, folder / "sheet-recoloured.png"}}) {
    platform::MainLoop::shared().runUntilComplete(writeContactSheet(source, sheet));
    std::cout << "contact sheet: " << sheet.string() << "\n";
  }
  std::cout << std::flush;

  PlayOptions play;
  play.source = recoloured.string();
  play.fps = 30;
  play.seconds = 2;
  play.output = folder / "frames";
  auto result = platform::MainLoop::shared().runUntilComplete(playFor(play));
  std::cout << "frames: " << deliveredLine(result) << ", written to " << play.output->string()
            << "\n";
}

void addDemoCommand(CLI::App& app) {
  auto folder = std::make_shared<fs::path>("frameloom-demo");
  auto* command = app.add_subcommand(
      "demo", "Run the bundled animation through sizing, palette, recolouring, rendering and "
              "playing, writing the results into a folder");
  command->add_option("--output", *folder, "The folder to write into (default ./frameloom-demo)");
  command->callback([folder] { runDemo(*folder); });
}

} // namespace

void addPlayCommands(CLI::App& app) {
  addPlayCommand(app);
  addDemoCommand(app);
}

} // namespace frameloom::tool
