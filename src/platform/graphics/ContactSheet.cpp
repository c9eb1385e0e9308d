#include <frameloom/platform/graphics/ContactSheet.h>

#include <algorithm>
#include <stdexcept>

namespace frameloom::platform {

std::shared_ptr<const Image>
makeContactSheet(const std::vector<std::shared_ptr<const Image>>& frames, std::size_t columns,
                 std::size_t rows) {
  if (frames.empty() || !frames.front()) {
    throw std::invalid_argument("a contact sheet needs a first frame");
  }
  if (columns == 0 || rows == 0 || frames.size() > columns * rows) {
    throw std::invalid_argument("the contact sheet grid has fewer cells than frames");
  }
  const std::size_t cellWidth = frames.front()->width();
  const std::size_t cellHeight = frames.front()->height();
  if (columns > Image::maxDimension / cellWidth || rows > Image::maxDimension / cellHeight) {
    throw std::invalid_argument("the contact sheet would be larger than 16384 pixels on a side");
  }
  const std::size_t stride = columns * cellWidth * 4;
  std::vector<std::uint8_t> pixels(stride * rows * cellHeight);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (!frames[i]) {
      continue;
    }
    const auto rgba = inRgbaOrder(frames[i]);
    const Image& frame = *rgba;
    const std::size_t left = (i % columns) * cellWidth;
    const std::size_t top = (i / columns) * cellHeight;
    const std::size_t rowBytes = std::min(frame.width(), cellWidth) * 4;
    for (std::size_t y = 0; y < std::min(frame.height(), cellHeight); ++y) {
      std::copy_n(frame.pixels().data() + y * frame.bytesPerRow(), rowBytes,
                  pixels.data() + (top + y) * stride + left * 4);
    }
  }
  return Image::make(columns * cellWidth, rows * cellHeight, std::move(pixels));
}

} // namespace frameloom::platform
