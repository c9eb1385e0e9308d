#pragma once

#include "Interruption.h"

#include "Console.h"

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom archive ...`: reading and writing ZIP archives through Ziploom. A signal
// during a writing command cancels it through `interruption`, and the archive is rolled back.
void addArchiveCommands(CLI::App& app, Interruption& interruption, Console& console);

} // namespace frameloom::tool
