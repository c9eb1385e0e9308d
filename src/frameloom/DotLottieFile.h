#pragma once

#include "frameloom/ColorMap.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace frameloom {

// A dotLottie animation file, and the operations that recolour animations.
//
// The colour operations work on text only, keep no state between calls and may run on any
// thread, several at once.
class DotLottieFile {
public:
  // One distinct source colour of a document: its key, the first value met with that key
  // (normalised to four components) and how many colour values share it.
  struct PaletteColor {
    std::string key;
    ColorComponents color;
    std::size_t uses = 0;
  };

  // Replaces every static colour of the animation JSON `text` with `colors`: the first distinct
  // source colour met gets the first colour, the next the second, round the list again when it
  // runs out. Solid and text colours are written with `precision` decimals. Every byte outside
  // the replaced colour arrays stays as it was, whatever the text holds.
  // Throws std::invalid_argument when `colors` is empty or a colour has fewer than three
  // components.
  static std::string replaceColors(std::string text, std::vector<ColorComponents> colors,
                                   int precision);

  // The distinct source colours of `text` in the order in which replaceColors hands out
  // replacements.
  static std::vector<PaletteColor> palette(std::string text);
};

} // namespace frameloom
