#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <span>
#include <string_view>

namespace frameloom::platform {

// A built-in 3 x 5 pixel font for numbers (digits, '.', '-', ' '), for labelling pictures such as
// contact sheet cells without a font file.
struct FRAMELOOM_EXPORT DigitFont {
  static constexpr std::size_t glyphWidth = 3;
  static constexpr std::size_t glyphHeight = 5;

  // The pixel width and height `text` takes at `scale`, the backing's margin included.
  static std::size_t width(std::string_view text, std::size_t scale);
  static std::size_t height(std::size_t scale);

  // Draws `text` at `scale` into tightly packed premultiplied RGBA `pixels` of `imageWidth`
  // columns, with the backing box's top-left corner at (x, y): `ink` glyphs on a `backing` box
  // with a margin of one font pixel. Parts outside the picture are cut; other characters are
  // drawn as spaces. Runs on the caller's thread; throws nothing.
  static void draw(std::span<std::uint8_t> pixels, std::size_t imageWidth, std::size_t x,
                   std::size_t y, std::string_view text, std::size_t scale, Rgba8 ink,
                   Rgba8 backing);
};

} // namespace frameloom::platform
