#pragma once

#include <frameloom/platform/graphics/Image.h>
#include <frameloom/platform/graphics/Webp.h>

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <vector>

namespace frameloom::platform {

// Encodes frames one at a time into an animated WebP picture held in memory. Each frame is
// compressed as it is added (lossless, or lossy at `quality`), so only the encoded bytes and the
// encoder's previous canvas stay in memory, never every frame. Not thread-safe: one thread feeds
// it. Throws WebpError when libwebp refuses a frame or the assembly, std::invalid_argument for a
// frame of another size or a time that does not move forward.
class FRAMELOOM_EXPORT AnimatedWebpWriter {
public:
  struct Options {
    // How many times the animation plays; 0 plays it forever.
    int loopCount = 0;
    bool lossless = true;
    // 0...100: the picture quality when lossy, the effort spent on compression when lossless.
    float quality = 75;
  };

  AnimatedWebpWriter(std::size_t width, std::size_t height, Options options);
  ~AnimatedWebpWriter();
  AnimatedWebpWriter(const AnimatedWebpWriter&) = delete;
  AnimatedWebpWriter& operator=(const AnimatedWebpWriter&) = delete;

  // Adds a frame (premultiplied, of the writer's size) shown from `timestampMs` on.
  void addFrame(const Image& frame, int timestampMs);
  // The picture, the last frame shown until `endTimestampMs`. The writer takes no more frames.
  std::vector<std::uint8_t> finish(int endTimestampMs);

private:
  struct Encoder;
  std::unique_ptr<Encoder> encoder_;
};

} // namespace frameloom::platform
