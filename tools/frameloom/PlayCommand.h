#pragma once

#include "Console.h"

#include <CLI/CLI.hpp>
#include <asio/awaitable.hpp>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace frameloom::tool {

// What `frameloom play` plays and for how long.
struct PlayOptions {
  std::string source;
  float fps = 60;
  std::string size = "250x250";
  double seconds = 3;
  std::optional<float> from;
  std::optional<std::filesystem::path> output;
};

// What a play delivered.
struct PlayResult {
  std::size_t delivered = 0;
  double seconds = 0;
};

// Loads the source into a new player, plays it for the given time on the main loop's display
// clock and stops it. Runs on the main loop; throws when the source cannot be loaded or a frame
// cannot be written.
asio::awaitable<PlayResult> playFor(const PlayOptions& options, Console& console);

// "delivered N frames in S s".
std::string deliveredLine(const PlayResult& result);

// Registers `frameloom play` (an animation through the player on the real display clock).
void addPlayCommand(CLI::App& app, Console& console);

} // namespace frameloom::tool
