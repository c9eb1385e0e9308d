#pragma once

#include "Console.h"

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom render`: one frame or a contact sheet of an animation, loaded through the
// animation actor, written as PNG.
void addRenderCommand(CLI::App& app, Console& console);

} // namespace frameloom::tool
