#include <frameloom/platform/graphics/AnimatedWebp.h>

#include <webp/encode.h>
#include <webp/mux.h>

#include <stdexcept>
#include <string>

namespace frameloom::platform {

struct AnimatedWebpWriter::Encoder {
  WebPAnimEncoder* encoder = nullptr;
  WebPConfig config{};
  std::size_t width = 0;
  std::size_t height = 0;
  int lastTimestamp = -1;
  bool finished = false;

  ~Encoder() {
    if (encoder != nullptr) {
      WebPAnimEncoderDelete(encoder);
    }
  }

  [[noreturn]] void fail(const std::string& what) const {
    const char* reason = encoder != nullptr ? WebPAnimEncoderGetError(encoder) : nullptr;
    throw WebpError("WebP encoding failed: " + what +
                    (reason != nullptr && *reason != '\0' ? std::string(": ") + reason : ""));
  }

  void checkOpen() const {
    if (finished) {
      throw std::logic_error("the WebP animation is finished");
    }
  }
};

AnimatedWebpWriter::AnimatedWebpWriter(std::size_t width, std::size_t height, Options options)
    : encoder_(std::make_unique<Encoder>()) {
  if (width == 0 || height == 0 || width > Image::maxDimension || height > Image::maxDimension ||
      options.loopCount < 0 || options.quality < 0 || options.quality > 100) {
    throw std::invalid_argument("WebP size, loop count or quality out of range");
  }
  encoder_->width = width;
  encoder_->height = height;
  WebPAnimEncoderOptions animation;
  if (!WebPAnimEncoderOptionsInit(&animation) || !WebPConfigInit(&encoder_->config)) {
    throw WebpError("WebP encoding failed: library version mismatch");
  }
  animation.anim_params.loop_count = options.loopCount;
  encoder_->config.lossless = options.lossless ? 1 : 0;
  encoder_->config.quality = options.quality;
  encoder_->encoder =
      WebPAnimEncoderNew(static_cast<int>(width), static_cast<int>(height), &animation);
  if (encoder_->encoder == nullptr) {
    throw WebpError("WebP encoding failed: cannot start");
  }
}

AnimatedWebpWriter::~AnimatedWebpWriter() = default;

void AnimatedWebpWriter::addFrame(const Image& frame, int timestampMs) {
  encoder_->checkOpen();
  if (frame.width() != encoder_->width || frame.height() != encoder_->height) {
    throw std::invalid_argument("a WebP frame differs in size from the first");
  }
  if (timestampMs <= encoder_->lastTimestamp) {
    throw std::invalid_argument("WebP frame times must increase");
  }
  // libwebp takes straight alpha.
  std::vector<std::uint8_t> straight(frame.width() * frame.height() * 4);
  std::size_t i = 0;
  for (std::size_t y = 0; y < frame.height(); ++y) {
    for (std::size_t x = 0; x < frame.width(); ++x, i += 4) {
      const Rgba8 p = unpremultiplied(frame.pixel(x, y));
      straight[i] = p.r;
      straight[i + 1] = p.g;
      straight[i + 2] = p.b;
      straight[i + 3] = p.a;
    }
  }
  WebPPicture picture;
  if (!WebPPictureInit(&picture)) {
    throw WebpError("WebP encoding failed: library version mismatch");
  }
  picture.use_argb = 1;
  picture.width = static_cast<int>(frame.width());
  picture.height = static_cast<int>(frame.height());
  const bool imported =
      WebPPictureImportRGBA(&picture, straight.data(), static_cast<int>(frame.width() * 4)) != 0;
  const bool added =
      imported && WebPAnimEncoderAdd(encoder_->encoder, &picture, timestampMs, &encoder_->config);
  WebPPictureFree(&picture);
  if (!imported) {
    throw std::bad_alloc();
  }
  if (!added) {
    encoder_->fail("frame at " + std::to_string(timestampMs) + " ms");
  }
  encoder_->lastTimestamp = timestampMs;
}

std::vector<std::uint8_t> AnimatedWebpWriter::finish(int endTimestampMs) {
  encoder_->checkOpen();
  if (endTimestampMs <= encoder_->lastTimestamp) {
    throw std::invalid_argument("WebP frame times must increase");
  }
  encoder_->finished = true;
  if (!WebPAnimEncoderAdd(encoder_->encoder, nullptr, endTimestampMs, nullptr)) {
    encoder_->fail("last frame");
  }
  WebPData data;
  WebPDataInit(&data);
  if (!WebPAnimEncoderAssemble(encoder_->encoder, &data)) {
    encoder_->fail("assembly");
  }
  std::vector<std::uint8_t> bytes(data.bytes, data.bytes + data.size);
  WebPDataClear(&data);
  return bytes;
}

} // namespace frameloom::platform
