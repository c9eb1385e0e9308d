#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace frameloom::tool {

// Colours as the tool shows them, each red, green, blue and alpha in 0...1.
using ColorComponents = std::vector<double>;

// A row of `cell` x `cell` squares, one per colour, left to right; translucent colours show
// over a grey checkerboard. At least one cell wide.
std::shared_ptr<const platform::Image> makeSwatches(const std::vector<ColorComponents>& colors,
                                                    std::size_t cell);

// Two spaces on a 24-bit ANSI background of the colour (alpha ignored), then the reset.
std::string ansiSwatch(const ColorComponents& color);

// Whether standard output is a terminal that shows colour: a terminal, NO_COLOR unset or empty,
// and TERM not "dumb".
bool standardOutputShowsColor();

} // namespace frameloom::tool
