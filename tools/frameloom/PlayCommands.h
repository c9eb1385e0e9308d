#pragma once

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom play` (an animation through the player on the real display clock) and
// `frameloom demo` (the bundled animation through every stage of the library).
void addPlayCommands(CLI::App& app);

} // namespace frameloom::tool
