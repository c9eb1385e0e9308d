#include <frameloom/platform/graphics/Png.h>

#include <png.h>

#include <fstream>
#include <iterator>
#include <system_error>

namespace frameloom::platform {

namespace {

// Owns a png_image so that libpng's allocations are freed on every path.
struct PngImage {
  png_image image{};

  PngImage() { image.version = PNG_IMAGE_VERSION; }
  ~PngImage() { png_image_free(&image); }
  PngImage(const PngImage&) = delete;
  PngImage& operator=(const PngImage&) = delete;
};

} // namespace

std::vector<std::uint8_t> encodePng(const Image& source) {
  std::vector<std::uint8_t> straight(source.width() * source.height() * 4);
  std::uint8_t* out = straight.data();
  for (std::size_t y = 0; y < source.height(); ++y) {
    for (std::size_t x = 0; x < source.width(); ++x) {
      const Rgba8 p = unpremultiplied(source.pixel(x, y));
      *out++ = p.r;
      *out++ = p.g;
      *out++ = p.b;
      *out++ = p.a;
    }
  }

  PngImage png;
  png.image.width = static_cast<png_uint_32>(source.width());
  png.image.height = static_cast<png_uint_32>(source.height());
  png.image.format = PNG_FORMAT_RGBA;
  // One pass into a buffer of the largest size the encoding can take; asking libpng for the
  // exact size first would compress the image twice.
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png.image);
  std::vector<std::uint8_t> encoded(size);
  if (!png_image_write_to_memory(&png.image, encoded.data(), &size, 0, straight.data(), 0,
                                 nullptr)) {
    throw PngError(std::string("PNG encoding failed: ") + png.image.message);
  }
  encoded.resize(size);
  return encoded;
}

std::shared_ptr<const Image> decodePng(std::span<const std::uint8_t> bytes) {
  PngImage png;
  if (!png_image_begin_read_from_memory(&png.image, bytes.data(), bytes.size())) {
    throw PngError(std::string("PNG decoding failed: ") + png.image.message);
  }
  if (png.image.width == 0 || png.image.height == 0 || png.image.width > Image::maxDimension ||
      png.image.height > Image::maxDimension) {
    throw PngError("PNG decoding failed: image dimensions out of range");
  }
  png.image.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(png.image));
  if (!png_image_finish_read(&png.image, nullptr, pixels.data(), 0, nullptr)) {
    throw PngError(std::string("PNG decoding failed: ") + png.image.message);
  }
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const Rgba8 p = premultiplied({pixels[i], pixels[i + 1], pixels[i + 2], pixels[i + 3]});
    pixels[i] = p.r;
    pixels[i + 1] = p.g;
    pixels[i + 2] = p.b;
  }
  return Image::make(png.image.width, png.image.height, std::move(pixels));
}

void writePng(const Image& image, const std::filesystem::path& path) {
  const std::vector<std::uint8_t> encoded = encodePng(image);
  std::filesystem::path partial = path;
  partial += ".partial";
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(encoded.data()),
              static_cast<std::streamsize>(encoded.size()));
    out.close();
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      throw PngError("cannot write " + path.string());
    }
  }
  std::error_code error;
  std::filesystem::rename(partial, path, error);
  if (error) {
    std::filesystem::remove(partial, error);
    throw PngError("cannot write " + path.string());
  }
}

std::shared_ptr<const Image> readPng(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    throw PngError("cannot read " + path.string());
  }
  const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in),
                                        std::istreambuf_iterator<char>()};
  return decodePng(bytes);
}

} // namespace frameloom::platform
