#pragma once

// What the playback benchmarks share: their command line and waiting on the main loop.

#include <asio/awaitable.hpp>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// "[--fps F] [--seconds S] [FILE...]": what is not given stays unset (fps, seconds) or empty.
struct PlaybackArguments {
  std::optional<float> fps;
  std::optional<double> seconds;
  std::vector<std::filesystem::path> files;
};

inline PlaybackArguments playbackArguments(int argc, char** argv) {
  PlaybackArguments arguments;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--fps" && i + 1 < argc) {
      arguments.fps = std::strtof(argv[++i], nullptr);
    } else if (argument == "--seconds" && i + 1 < argc) {
      arguments.seconds = std::strtod(argv[++i], nullptr);
    } else {
      arguments.files.emplace_back(argument);
    }
  }
  return arguments;
}

// Resumes after `seconds` on the coroutine's executor, letting the loop run meanwhile.
inline asio::awaitable<void> wait(double seconds) {
  asio::steady_timer timer(co_await asio::this_coro::executor);
  timer.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(seconds)));
  co_await timer.async_wait(asio::use_awaitable);
}

} // namespace bench
