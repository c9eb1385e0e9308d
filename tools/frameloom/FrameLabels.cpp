#include "FrameLabels.h"

#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/DigitFont.h>

#include <algorithm>
#include <cmath>

namespace frameloom::tool {

std::vector<float> evenlySpacedFrames(std::size_t count, float last) {
  std::vector<float> frames;
  for (std::size_t i = 0; i < count; ++i) {
    frames.push_back(count == 1 ? 0 : static_cast<float>(i) * last / static_cast<float>(count - 1));
  }
  return frames;
}

std::shared_ptr<const platform::Image> labelFrames(const platform::Image& sheet,
                                                   std::size_t columns, std::size_t rows,
                                                   const std::vector<float>& frames) {
  using platform::DigitFont;
  const std::size_t cellWidth = sheet.width() / columns;
  const std::size_t cellHeight = sheet.height() / rows;
  // About an eighth of the cell high, and never more than a third of it.
  const std::size_t scale = std::max<std::size_t>(1, cellHeight / (8 * DigitFont::height(1)));
  std::vector<std::uint8_t> pixels;
  pixels.reserve(sheet.width() * sheet.height() * 4);
  for (std::size_t y = 0; y < sheet.height(); ++y) {
    const auto row = sheet.pixels().subspan(y * sheet.bytesPerRow(), sheet.width() * 4);
    pixels.insert(pixels.end(), row.begin(), row.end());
  }
  if (DigitFont::height(scale) * 3 <= cellHeight) {
    for (std::size_t i = 0; i < frames.size() && i < columns * rows; ++i) {
      const std::string text = platform::shortestDecimal(std::round(frames[i] * 10) / 10);
      if (DigitFont::width(text, scale) > cellWidth) {
        continue;
      }
      const std::size_t x = (i % columns) * cellWidth;
      const std::size_t y = (i / columns + 1) * cellHeight - DigitFont::height(scale);
      DigitFont::draw(pixels, sheet.width(), x, y, text, scale, {255, 255, 255, 255},
                      {0, 0, 0, 160});
    }
  }
  return platform::Image::make(sheet.width(), sheet.height(), std::move(pixels));
}

} // namespace frameloom::tool
