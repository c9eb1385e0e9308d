#pragma once

#include <CLI/CLI.hpp>

namespace frameloom::tool {

// Registers `frameloom render`: one frame or a contact sheet of an animation, loaded through the
// animation actor, written as PNG.
void addRenderCommand(CLI::App& app);

} // namespace frameloom::tool
