#pragma once

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom info`, `palette` and `recolor`: reading, listing and recolouring
// animations through DotLottieFile.
void addAnimationCommands(CLI::App& app);

} // namespace frameloom::tool
