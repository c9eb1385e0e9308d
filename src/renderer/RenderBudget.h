#pragma once

#include <cstddef>

// Bounds on what one animation may cost the renderer, so that a small hostile file cannot take
// the machine. Constants only; each names its reason.
namespace frameloom::renderer {

// The largest source file the renderer is handed: the entries of an archive unpack to at most
// 256 MiB in all, and a plain document is one such entry, so a larger file cannot hold an
// animation that would load. Checked before the file is read.
inline constexpr std::size_t maxSourceBytes = std::size_t{256} << 20;

} // namespace frameloom::renderer
