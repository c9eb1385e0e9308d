#pragma once

#include "Console.h"

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom compare`: the original and the recoloured animation side by side, one row
// of evenly spaced frames each, with the source palette and the new colours as swatches below.
void addCompareCommand(CLI::App& app, Console& console);

} // namespace frameloom::tool
