#include "AnimatedOutput.h"

#include "OutputFile.h"
#include "ProgressBar.h"
#include "RenderSource.h"
#include "Usage.h"
#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/graphics/AnimatedPng.h>
#include <frameloom/platform/graphics/AnimatedWebp.h>
#include <frameloom/platform/graphics/Gif.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>

namespace frameloom::tool {

namespace {

// Animated pictures are kept whole in memory until written, and each frame costs time to encode:
// 2^31 pixels is about 34000 frames of 250 x 250, far beyond what a chat or a page shows.
constexpr double maxAnimationPixels = 2147483648.0;
constexpr std::size_t maxAnimationFrames = 10000;
// Browsers show GIF frames for at least 2 centiseconds; a faster rate would play slower.
constexpr double maxGifFps = 50;
constexpr double maxFps = 120;

int roundedTime(std::size_t index, double ticksPerSecond, double fps) {
  return static_cast<int>(std::lround(static_cast<double>(index) * ticksPerSecond / fps));
}

// The frame numbers to write: from `from` to `to` (inclusive) in steps of the animation's rate
// over the output's.
std::vector<float> frameNumbers(float from, float to, double step) {
  std::vector<float> frames;
  for (std::size_t i = 0;; ++i) {
    const double frame = from + static_cast<double>(i) * step;
    if (frame > to + 1e-3 || frames.size() == maxAnimationFrames) {
      break;
    }
    frames.push_back(static_cast<float>(frame));
  }
  return frames;
}

// One animated format's writer behind the two calls the render loop makes: add the frame of
// index i, and finish. Frame times come from the index at `fps`, in each format's own unit.
struct Encoder {
  const char* name;
  std::function<void(const platform::Image&, std::size_t)> add;
  std::function<std::vector<std::uint8_t>()> finish;
};

// An encoder for a writer that takes each frame with its delay, in ticks of `ticksPerSecond`.
template <class Writer>
Encoder delayEncoder(const char* name, std::shared_ptr<Writer> writer, double ticksPerSecond,
                     double fps) {
  return {name,
          [writer, ticksPerSecond, fps](const platform::Image& frame, std::size_t index) {
            writer->addFrame(frame, roundedTime(index + 1, ticksPerSecond, fps) -
                                        roundedTime(index, ticksPerSecond, fps));
          },
          [writer] { return writer->finish(); }};
}

Encoder encoderFor(PictureFormat format, std::size_t width, std::size_t height, int loop,
                   double fps, std::size_t frameCount) {
  if (format == PictureFormat::gif) {
    return delayEncoder("gif", std::make_shared<platform::GifWriter>(width, height, loop), 100,
                        fps);
  }
  if (format == PictureFormat::apng) {
    return delayEncoder("apng", std::make_shared<platform::AnimatedPngWriter>(width, height, loop),
                        1000, fps);
  }
  auto webp = std::make_shared<platform::AnimatedWebpWriter>(
      width, height, platform::AnimatedWebpWriter::Options{loop});
  return {"webp",
          [webp, fps](const platform::Image& frame, std::size_t index) {
            webp->addFrame(frame, roundedTime(index, 1000, fps));
          },
          [webp, fps, frameCount] { return webp->finish(roundedTime(frameCount, 1000, fps)); }};
}

} // namespace

std::optional<PictureFormat> formatNamed(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (lower == "png") {
    return PictureFormat::png;
  }
  if (lower == "webp") {
    return PictureFormat::webp;
  }
  if (lower == "gif") {
    return PictureFormat::gif;
  }
  if (lower == "apng") {
    return PictureFormat::apng;
  }
  return std::nullopt;
}

std::optional<PictureFormat> formatOfPath(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  return extension.empty() ? std::nullopt : formatNamed(extension.substr(1));
}

std::shared_ptr<const platform::Image> overBackground(const platform::Image& frame,
                                                      const platform::Color& background) {
  const auto c = background.resolved({});
  const platform::Rgba8 under =
      platform::premultiplied({static_cast<std::uint8_t>(std::lround(c.red * 255)),
                               static_cast<std::uint8_t>(std::lround(c.green * 255)),
                               static_cast<std::uint8_t>(std::lround(c.blue * 255)),
                               static_cast<std::uint8_t>(std::lround(c.alpha * 255))});
  std::vector<std::uint8_t> pixels;
  pixels.reserve(frame.width() * frame.height() * 4);
  for (std::size_t y = 0; y < frame.height(); ++y) {
    for (std::size_t x = 0; x < frame.width(); ++x) {
      const platform::Rgba8 p = frame.pixel(x, y);
      const unsigned rest = 255u - p.a;
      for (const auto& [top, bottom] : {std::pair{p.r, under.r}, std::pair{p.g, under.g},
                                        std::pair{p.b, under.b}, std::pair{p.a, under.a}}) {
        pixels.push_back(static_cast<std::uint8_t>(top + (bottom * rest + 127) / 255));
      }
    }
  }
  return platform::Image::make(frame.width(), frame.height(), std::move(pixels));
}

asio::awaitable<void> writeAnimation(const DotLottieActor::Animation& animation,
                                     const std::string& source, PictureFormat format,
                                     const AnimationRange& range, const std::string& output,
                                     Console& console) {
  const float total = animation->totalFrames();
  const float last = std::max(0.0f, total - 1);
  const double ownFps = animation->duration() > 0 ? total / animation->duration() : 30;
  const float from = range.from.value_or(0);
  const float to = range.to.value_or(last);
  if (!(from >= 0 && from <= to && to <= total)) {
    throw UsageError("frames " + platform::shortestDecimal(from) + " to " +
                     platform::shortestDecimal(to) + " are outside the animation's 0..." +
                     platform::shortestDecimal(total));
  }
  const double limit = format == PictureFormat::gif ? maxGifFps : maxFps;
  const double fps = range.fps.value_or(std::min(ownFps, limit));
  if (fps > limit) {
    throw UsageError("--fps " + platform::shortestDecimal(fps) + " is above " +
                     platform::shortestDecimal(limit) + " for this format");
  }
  const std::vector<float> frames = frameNumbers(from, to, ownFps / fps);
  const auto first = co_await renderFrame(animation, frames.front(), source);
  const std::size_t width = first->width();
  const std::size_t height = first->height();
  if (static_cast<double>(frames.size()) * static_cast<double>(width * height) >
      maxAnimationPixels) {
    throw UsageError(std::to_string(frames.size()) + " frames of " + std::to_string(width) + "x" +
                     std::to_string(height) + " are beyond 2^31 pixels; lower --size or --fps");
  }

  const Encoder encoder = encoderFor(format, width, height, range.loop, fps, frames.size());
  ProgressBar bar(console, encoder.name, "steps");
  // Each frame is rendered, then encoded: two steps.
  bar.progress()->setTotalUnitCount(static_cast<std::int64_t>(frames.size() * 2));
  for (std::size_t i = 0; i < frames.size(); ++i) {
    std::shared_ptr<const platform::Image> image = first;
    if (i > 0) {
      image = co_await renderFrame(animation, frames[i], source);
    }
    bar.progress()->addCompletedUnitCount(1);
    if (range.background) {
      image = overBackground(*image, *range.background);
    }
    encoder.add(*image, i);
    bar.progress()->addCompletedUnitCount(1);
  }
  const std::vector<std::uint8_t> bytes = encoder.finish();
  writeOutput(bytes, output);
}

} // namespace frameloom::tool
