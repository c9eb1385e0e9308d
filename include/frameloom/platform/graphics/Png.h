#pragma once

#include <frameloom/platform/graphics/GraphicsError.h>
#include <frameloom/platform/graphics/Image.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace frameloom::platform {

// Thrown when libpng cannot encode or decode, or when a PNG file cannot be written or read.
class PngError : public GraphicsError {
public:
  using GraphicsError::GraphicsError;
};

// PNG encoding and decoding through libpng. The file holds 8-bit straight-alpha RGBA; images in
// memory are premultiplied, so encoding un-premultiplies and decoding premultiplies. Runs on the
// caller's thread; throws PngError.
std::vector<std::uint8_t> encodePng(const Image& image);
std::shared_ptr<const Image> decodePng(std::span<const std::uint8_t> png);

// Writes the PNG next to `path` first and renames it into place, so that a failure never leaves
// a partial file under that name.
void writePng(const Image& image, const std::filesystem::path& path);
std::shared_ptr<const Image> readPng(const std::filesystem::path& path);

} // namespace frameloom::platform
