#pragma once

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom archive ...`: reading and writing ZIP archives through Ziploom.
void addArchiveCommands(CLI::App& app);

} // namespace frameloom::tool
