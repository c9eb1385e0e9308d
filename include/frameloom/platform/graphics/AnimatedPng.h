#pragma once

#include <frameloom/platform/Export.h>
#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace frameloom::platform {

// Assembles an animated PNG from frames added one at a time. Each frame is compressed as a PNG
// when it is added, so only compressed image data stays in memory; every frame covers the whole
// canvas and replaces the one before. Viewers that do not animate PNG show the first frame. Not
// thread-safe: one thread feeds it. Throws PngError when a frame cannot be encoded,
// std::invalid_argument for a frame of another size, a delay outside 0...65535 ms, or a picture
// finished without frames.
class FRAMELOOM_EXPORT AnimatedPngWriter {
public:
  // `loopCount`: how many times the animation plays; 0 plays it forever.
  AnimatedPngWriter(std::size_t width, std::size_t height, int loopCount);

  // Adds a frame (premultiplied, of the writer's size) shown for `delayMs` milliseconds.
  void addFrame(const Image& frame, int delayMs);
  // The picture. The writer takes no more frames.
  std::vector<std::uint8_t> finish();

private:
  struct Frame {
    std::vector<std::uint8_t> imageData; // the zlib stream of the frame's rows
    int delayMs;
  };

  std::size_t width_;
  std::size_t height_;
  int loopCount_;
  std::vector<std::uint8_t> header_; // the IHDR chunk's data, the same for every frame
  std::vector<Frame> frames_;
};

} // namespace frameloom::platform
