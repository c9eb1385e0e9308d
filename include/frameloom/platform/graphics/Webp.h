#pragma once

#include <frameloom/platform/graphics/GraphicsError.h>
#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace frameloom::platform {

// Thrown when bytes are not a WebP picture libwebp can decode, or when the picture is larger
// than the caller allows.
class WebpError : public GraphicsError {
public:
  using GraphicsError::GraphicsError;
};

// Whether the bytes begin like a WebP file (a RIFF container of form WEBP).
bool isWebp(std::span<const std::uint8_t> bytes);

// Decodes a still WebP picture (lossy or lossless, with or without alpha) into a premultiplied
// image; animated WebP is refused. The size is read from the header before any pixel
// memory is taken, so a picture of more than `maxPixels` pixels costs nothing to refuse. Runs on
// the caller's thread; throws WebpError.
std::shared_ptr<const Image> decodeWebp(std::span<const std::uint8_t> bytes, std::size_t maxPixels);

} // namespace frameloom::platform
