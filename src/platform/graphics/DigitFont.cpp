#include <frameloom/platform/graphics/DigitFont.h>

#include <array>

namespace frameloom::platform {

namespace {

// Each glyph is five rows of three bits, the highest bit on the left.
constexpr std::array<std::array<std::uint8_t, 5>, 10> digits{{
    {7, 5, 5, 5, 7}, // 0
    {2, 6, 2, 2, 7}, // 1
    {7, 1, 7, 4, 7}, // 2
    {7, 1, 3, 1, 7}, // 3
    {5, 5, 7, 1, 1}, // 4
    {7, 4, 7, 1, 7}, // 5
    {7, 4, 7, 5, 7}, // 6
    {7, 1, 2, 2, 2}, // 7
    {7, 5, 7, 5, 7}, // 8
    {7, 5, 7, 1, 7}, // 9
}};
constexpr std::array<std::uint8_t, 5> point{0, 0, 0, 0, 2};
constexpr std::array<std::uint8_t, 5> minus{0, 0, 7, 0, 0};
constexpr std::array<std::uint8_t, 5> blank{0, 0, 0, 0, 0};

const std::array<std::uint8_t, 5>& glyph(char c) {
  if (c >= '0' && c <= '9') {
    return digits[static_cast<std::size_t>(c - '0')];
  }
  return c == '.' ? point : c == '-' ? minus : blank;
}

// One font pixel between glyphs and around the text.
constexpr std::size_t spacing = 1;

} // namespace

std::size_t DigitFont::width(std::string_view text, std::size_t scale) {
  return (text.size() * (glyphWidth + spacing) + spacing) * scale;
}

std::size_t DigitFont::height(std::size_t scale) {
  return (glyphHeight + 2 * spacing) * scale;
}

void DigitFont::draw(std::span<std::uint8_t> pixels, std::size_t imageWidth, std::size_t x,
                     std::size_t y, std::string_view text, std::size_t scale, Rgba8 ink,
                     Rgba8 backing) {
  if (imageWidth == 0 || scale == 0) {
    return;
  }
  const std::size_t imageHeight = pixels.size() / 4 / imageWidth;
  const std::size_t boxWidth = width(text, scale);
  const std::size_t boxHeight = height(scale);
  for (std::size_t row = 0; row < boxHeight && y + row < imageHeight; ++row) {
    for (std::size_t column = 0; column < boxWidth && x + column < imageWidth; ++column) {
      // Font pixel coordinates inside the text, the margin taken off.
      const std::size_t fontRow = row / scale;
      const std::size_t fontColumn = column / scale;
      bool inked = false;
      if (fontRow >= spacing && fontRow < spacing + glyphHeight && fontColumn >= spacing) {
        const std::size_t index = (fontColumn - spacing) / (glyphWidth + spacing);
        const std::size_t within = (fontColumn - spacing) % (glyphWidth + spacing);
        if (index < text.size() && within < glyphWidth) {
          inked = (glyph(text[index])[fontRow - spacing] >> (glyphWidth - 1 - within)) & 1;
        }
      }
      const Rgba8 colour = inked ? ink : backing;
      std::uint8_t* target = pixels.data() + ((y + row) * imageWidth + x + column) * 4;
      target[0] = colour.r;
      target[1] = colour.g;
      target[2] = colour.b;
      target[3] = colour.a;
    }
  }
}

} // namespace frameloom::platform
