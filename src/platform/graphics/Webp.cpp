#include <frameloom/platform/graphics/Webp.h>

#include <webp/decode.h>

#include <algorithm>
#include <string>
#include <vector>

namespace frameloom::platform {

bool isWebp(std::span<const std::uint8_t> bytes) {
  constexpr std::uint8_t riff[] = {'R', 'I', 'F', 'F'};
  constexpr std::uint8_t webp[] = {'W', 'E', 'B', 'P'};
  return bytes.size() >= 12 && std::equal(riff, riff + 4, bytes.begin()) &&
         std::equal(webp, webp + 4, bytes.begin() + 8);
}

std::shared_ptr<const Image> decodeWebp(std::span<const std::uint8_t> bytes,
                                        std::size_t maxPixels) {
  WebPBitstreamFeatures features;
  if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK) {
    throw WebpError("WebP decoding failed: not a WebP picture");
  }
  if (features.has_animation) {
    throw WebpError("WebP decoding failed: animated pictures are not supported");
  }
  const auto width = static_cast<std::size_t>(features.width);
  const auto height = static_cast<std::size_t>(features.height);
  if (width == 0 || height == 0 || width > Image::maxDimension || height > Image::maxDimension ||
      width * height > maxPixels) {
    throw WebpError("WebP decoding failed: picture dimensions out of range");
  }

  std::vector<std::uint8_t> pixels(width * height * 4);
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) {
    throw WebpError("WebP decoding failed: library version mismatch");
  }
  // Decoding straight into our buffer: libwebp then owns no output memory to free.
  config.output.colorspace = MODE_rgbA;
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = pixels.data();
  config.output.u.RGBA.stride = static_cast<int>(width * 4);
  config.output.u.RGBA.size = pixels.size();
  const VP8StatusCode status = WebPDecode(bytes.data(), bytes.size(), &config);
  WebPFreeDecBuffer(&config.output);
  if (status != VP8_STATUS_OK) {
    throw WebpError("WebP decoding failed: status " + std::to_string(status));
  }
  return Image::make(width, height, std::move(pixels));
}

} // namespace frameloom::platform
