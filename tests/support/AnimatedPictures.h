#pragma once

// Animated GIF, WebP and PNG pictures decoded independently of the writers under test (giflib,
// libwebp's demuxer, and for PNG the chunks read here with each frame's image data decoded by
// libpng): every frame as the whole canvas, premultiplied.

#include <frameloom/platform/graphics/Image.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace frameloom::testing {

struct DecodedAnimation {
  std::size_t width = 0;
  std::size_t height = 0;
  int loopCount = 0;
  std::vector<std::shared_ptr<const platform::Image>> frames;
  // When each frame is shown, in milliseconds from the start.
  std::vector<int> startTimes;
  int duration = 0;
};

// The frame shown `time` milliseconds after the start.
const platform::Image& frameAt(const DecodedAnimation& animation, int time);

DecodedAnimation decodeGif(const std::filesystem::path& path);
DecodedAnimation decodeWebp(const std::filesystem::path& path);
DecodedAnimation decodeGif(const std::vector<std::uint8_t>& bytes);
DecodedAnimation decodeWebp(const std::vector<std::uint8_t>& bytes);
// Animated PNGs whose frames cover the whole canvas, as the tool writes them; checks every chunk's
// CRC and the sequence numbers.
DecodedAnimation decodeApng(const std::filesystem::path& path);

// The largest difference of any component between two images of the same size.
int largestDifference(const platform::Image& a, const platform::Image& b);
// The mean absolute difference of all components.
double meanDifference(const platform::Image& a, const platform::Image& b);

} // namespace frameloom::testing
