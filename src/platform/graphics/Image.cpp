#include <frameloom/platform/graphics/Image.h>

#include <algorithm>
#include <stdexcept>

namespace frameloom::platform {

std::shared_ptr<const Image> Image::make(std::size_t width, std::size_t height,
                                         std::size_t bytesPerRow, std::vector<std::uint8_t> pixels,
                                         PixelOrder order) {
  if (width == 0 || height == 0 || width > maxDimension || height > maxDimension) {
    throw std::invalid_argument("image dimensions must lie in 1...16384");
  }
  if (bytesPerRow < width * 4) {
    throw std::invalid_argument("image rows are shorter than their pixels");
  }
  if (pixels.size() < (height - 1) * bytesPerRow + width * 4) {
    throw std::invalid_argument("image buffer is shorter than its rows");
  }
  return std::shared_ptr<const Image>(
      new Image(width, height, bytesPerRow, std::move(pixels), order));
}

std::shared_ptr<const Image> Image::make(std::size_t width, std::size_t height,
                                         std::vector<std::uint8_t> pixels) {
  return make(width, height, width * 4, std::move(pixels));
}

Image::Image(std::size_t width, std::size_t height, std::size_t bytesPerRow,
             std::vector<std::uint8_t> pixels, PixelOrder order)
    : width_(width), height_(height), bytesPerRow_(bytesPerRow), pixels_(std::move(pixels)),
      order_(order) {}

Rgba8 Image::pixel(std::size_t x, std::size_t y) const {
  const std::uint8_t* p = pixels_.data() + y * bytesPerRow_ + x * 4;
  return order_ == PixelOrder::rgba ? Rgba8{p[0], p[1], p[2], p[3]} : Rgba8{p[2], p[1], p[0], p[3]};
}

std::shared_ptr<const Image> inRgbaOrder(std::shared_ptr<const Image> image) {
  if (!image ||
      (image->pixelOrder() == PixelOrder::rgba && image->bytesPerRow() == image->width() * 4)) {
    return image;
  }
  std::vector<std::uint8_t> pixels(image->width() * image->height() * 4);
  for (std::size_t y = 0; y < image->height(); ++y) {
    std::uint8_t* row = pixels.data() + y * image->width() * 4;
    for (std::size_t x = 0; x < image->width(); ++x) {
      const Rgba8 p = image->pixel(x, y);
      row[x * 4] = p.r;
      row[x * 4 + 1] = p.g;
      row[x * 4 + 2] = p.b;
      row[x * 4 + 3] = p.a;
    }
  }
  return Image::make(image->width(), image->height(), std::move(pixels));
}

bool Image::isFullyTransparent() const {
  for (std::size_t y = 0; y < height_; ++y) {
    const std::uint8_t* row = pixels_.data() + y * bytesPerRow_;
    for (std::size_t x = 0; x < width_; ++x) {
      if (row[x * 4 + 3] != 0) {
        return false;
      }
    }
  }
  return true;
}

namespace {

std::uint8_t divideRounded(unsigned numerator, unsigned denominator) {
  return static_cast<std::uint8_t>(std::min(255u, (numerator + denominator / 2) / denominator));
}

} // namespace

Rgba8 unpremultiplied(Rgba8 p) {
  if (p.a == 0) {
    return {0, 0, 0, 0};
  }
  return {divideRounded(p.r * 255u, p.a), divideRounded(p.g * 255u, p.a),
          divideRounded(p.b * 255u, p.a), p.a};
}

Rgba8 premultiplied(Rgba8 s) {
  return {divideRounded(s.r * unsigned{s.a}, 255), divideRounded(s.g * unsigned{s.a}, 255),
          divideRounded(s.b * unsigned{s.a}, 255), s.a};
}

} // namespace frameloom::platform
