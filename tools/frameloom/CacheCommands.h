#pragma once

#include "Console.h"

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom fetch URL` and `frameloom cache clear`: the download cache.
void addCacheCommands(CLI::App& app, Console& console);

} // namespace frameloom::tool
