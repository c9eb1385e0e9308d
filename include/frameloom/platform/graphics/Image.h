#pragma once

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <span>
#include <vector>

namespace frameloom::platform {

// One pixel of 8-bit red, green, blue and alpha.
struct FRAMELOOM_EXPORT Rgba8 {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
  std::uint8_t a = 0;

  friend bool operator==(const Rgba8&, const Rgba8&) = default;
};

// The byte order of a pixel's four components in memory. `bgra` is what the renderer draws
// (32-bit ARGB words on a little-endian machine); frames keep it, so that no pass over every
// pixel is spent on a consumer that does not need RGBA.
enum class PixelOrder { rgba, bgra };

// An immutable frame image: width x height pixels of premultiplied colour with alpha, 8 bits per
// component in `pixelOrder()`, rows `bytesPerRow` apart. Images are shared as
// `std::shared_ptr<const Image>` and may be read from any thread. Width and height are at least 1
// and at most `maxDimension`.
class FRAMELOOM_EXPORT Image {
public:
  static constexpr std::size_t maxDimension = 16384;

  // Takes ownership of `pixels`. Throws std::invalid_argument when a dimension is 0 or above
  // `maxDimension`, when `bytesPerRow` is below 4 x width, or when the buffer is shorter than
  // the rows need.
  static std::shared_ptr<const Image> make(std::size_t width, std::size_t height,
                                           std::size_t bytesPerRow,
                                           std::vector<std::uint8_t> pixels,
                                           PixelOrder order = PixelOrder::rgba);
  // Tightly packed rows (bytesPerRow = 4 x width).
  static std::shared_ptr<const Image> make(std::size_t width, std::size_t height,
                                           std::vector<std::uint8_t> pixels);

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  std::size_t bytesPerRow() const { return bytesPerRow_; }
  // The raw rows, components in `pixelOrder()`.
  std::span<const std::uint8_t> pixels() const { return pixels_; }
  PixelOrder pixelOrder() const { return order_; }

  // The premultiplied pixel at column x, row y, whatever the order; both must be in range.
  Rgba8 pixel(std::size_t x, std::size_t y) const;
  // Whether every pixel has alpha 0.
  bool isFullyTransparent() const;

private:
  Image(std::size_t width, std::size_t height, std::size_t bytesPerRow,
        std::vector<std::uint8_t> pixels, PixelOrder order);

  std::size_t width_;
  std::size_t height_;
  std::size_t bytesPerRow_;
  std::vector<std::uint8_t> pixels_;
  PixelOrder order_;
};

// The image with RGBA pixels in tightly packed rows: `image` itself when it already is, else a
// converted copy. For consumers that read the raw rows (encoders, contact sheets, textures).
FRAMELOOM_EXPORT std::shared_ptr<const Image> inRgbaOrder(std::shared_ptr<const Image> image);

// Straight (unassociated) alpha from premultiplied, and back, rounding to nearest. Converting a
// valid premultiplied pixel (components <= alpha) to straight and back gives it unchanged.
FRAMELOOM_EXPORT Rgba8 unpremultiplied(Rgba8 premultiplied);
FRAMELOOM_EXPORT Rgba8 premultiplied(Rgba8 straight);

} // namespace frameloom::platform
