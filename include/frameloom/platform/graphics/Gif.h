#pragma once

#include <frameloom/platform/graphics/GraphicsError.h>
#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <vector>

namespace frameloom::platform {

// Thrown when giflib cannot encode a frame or the file.
class FRAMELOOM_EXPORT GifError : public GraphicsError {
public:
  using GraphicsError::GraphicsError;
};

// Encodes frames one at a time into an animated GIF held in memory through giflib. Each frame gets
// its own palette of up to 255 colours chosen from its pixels (its exact colours when it has few
// enough, else a median cut with error-diffusion dithering) and a transparent index for pixels of
// alpha below one half. Frames are compressed as they are added; only the encoded bytes stay.
// Not thread-safe: one thread feeds it. Throws GifError, std::invalid_argument for a frame of
// another size or a negative delay.
class FRAMELOOM_EXPORT GifWriter {
public:
  // `loopCount`: how many times the animation plays; 0 plays it forever.
  GifWriter(std::size_t width, std::size_t height, int loopCount);
  ~GifWriter();
  GifWriter(const GifWriter&) = delete;
  GifWriter& operator=(const GifWriter&) = delete;

  // Adds a frame (premultiplied, of the writer's size) shown for `delayCentiseconds`.
  void addFrame(const Image& frame, int delayCentiseconds);
  // The finished file. The writer takes no more frames.
  std::vector<std::uint8_t> finish();

private:
  struct Encoder;
  std::unique_ptr<Encoder> encoder_;
};

} // namespace frameloom::platform
