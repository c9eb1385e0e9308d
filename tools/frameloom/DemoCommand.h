#pragma once

#include "Console.h"

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom demo` (the bundled animation through every stage of the library).
void addDemoCommand(CLI::App& app, Console& console);

} // namespace frameloom::tool
