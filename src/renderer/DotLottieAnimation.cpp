#include <frameloom/renderer/DotLottieAnimation.h>

#include "renderer/LottieDocument.h"
#include "renderer/LottieTiming.h"
#include "renderer/ModelLoading.h"

#include <rlottie.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace frameloom::renderer {

namespace {

bool isRenderableSide(std::int64_t side) {
  return side >= 1 && side <= static_cast<std::int64_t>(platform::Image::maxDimension);
}

// rlottie fills ARGB32 words: bytes B, G, R, A on little-endian machines, which frames keep. A
// background that is not transparent goes under the frame with the "over" operator, giving
// R, G, B, A bytes.
void putOver(std::vector<std::uint8_t>& pixels, platform::Rgba8 background) {
  const platform::Rgba8 under = platform::premultiplied(background);
  const auto over = [](unsigned top, unsigned topAlpha, unsigned bottom) {
    return static_cast<std::uint8_t>(top + (bottom * (255 - topAlpha) + 127) / 255);
  };
  for (std::size_t i = 0; i < pixels.size(); i += 4) {
    const unsigned alpha = pixels[i + 3];
    const std::uint8_t blue = pixels[i];
    pixels[i] = over(pixels[i + 2], alpha, under.r);
    pixels[i + 1] = over(pixels[i + 1], alpha, under.g);
    pixels[i + 2] = over(blue, alpha, under.b);
    pixels[i + 3] = over(alpha, alpha, under.a);
  }
}

// Keeps of premultiplied pixels only the share each covers of the band from `start` to `end`
// (fractional pixel positions) along one axis: whole pixels inside, nothing outside, the part
// covered at the edges. `step` is the distance in bytes between neighbours along the axis and
// `lines` how many lines cross it, `lineStep` the distance between lines.
void keepBand(std::vector<std::uint8_t>& pixels, double start, double end, std::size_t count,
              std::size_t step, std::size_t lines, std::size_t lineStep) {
  for (std::size_t i = 0; i < count; ++i) {
    const double position = static_cast<double>(i);
    const double covered =
        std::clamp(std::min(position + 1, end) - std::max(position, start), 0.0, 1.0);
    if (covered == 1) {
      continue;
    }
    for (std::size_t line = 0; line < lines; ++line) {
      std::uint8_t* pixel = pixels.data() + i * step + line * lineStep;
      for (std::size_t channel = 0; channel < 4; ++channel) {
        pixel[channel] = static_cast<std::uint8_t>(std::lround(pixel[channel] * covered));
      }
    }
  }
}

} // namespace

DotLottieAnimation::DotLottieAnimation(std::span<const std::uint8_t> dotLottieData,
                                       AnimationConfig config)
    : config_(std::move(config)) {
  if (config_.width && config_.height) {
    size_ = PixelSize{*config_.width, *config_.height};
  }
  std::optional<std::string> document =
      lottieDocument(dotLottieData, config_.animationRule, refusal_);
  if (!document) {
    return;
  }
  const std::optional<LottieTiming> timing = readLottieTiming(*document);
  model_ = loadRepairedModel(std::move(*document), refusal_);
  if (!model_) {
    return;
  }
  if (timing) {
    totalFrames_ = static_cast<float>(std::max(0.0, timing->outPoint - timing->inPoint));
    duration_ = static_cast<float>(static_cast<double>(totalFrames_) / timing->frameRate);
  } else {
    totalFrames_ = static_cast<float>(model_->totalFrame());
    duration_ = model_->frameRate() > 0
                    ? static_cast<float>(static_cast<double>(totalFrames_) / model_->frameRate())
                    : 0;
  }
}

DotLottieAnimation::~DotLottieAnimation() = default;

bool DotLottieAnimation::resize(std::int64_t width, std::int64_t height) {
  size_ = PixelSize{width, height};
  return isRenderableSide(width) && isRenderableSide(height);
}

bool DotLottieAnimation::setFrame(float frame) {
  if (!model_ || !std::isfinite(frame) || frame < 0 || frame > totalFrames_) {
    return false;
  }
  frame_ = frame;
  return true;
}

std::shared_ptr<const platform::Image> DotLottieAnimation::tick() {
  if (!model_) {
    return nullptr;
  }
  std::size_t contentWidth = 0;
  std::size_t contentHeight = 0;
  model_->size(contentWidth, contentHeight);
  if (contentWidth == 0 || contentHeight == 0) {
    return nullptr;
  }
  constexpr std::size_t largest = std::numeric_limits<std::int64_t>::max();
  const PixelSize target =
      size_.value_or(PixelSize{static_cast<std::int64_t>(std::min(contentWidth, largest)),
                               static_cast<std::int64_t>(std::min(contentHeight, largest))});
  if (!isRenderableSide(target.width) || !isRenderableSide(target.height)) {
    return nullptr;
  }

  const PixelRect rect =
      layoutRect(config_.layout, static_cast<double>(contentWidth),
                 static_cast<double>(contentHeight), target.width, target.height);
  const auto stride = static_cast<std::size_t>(target.width) * 4;
  std::vector<std::uint8_t> pixels(stride * static_cast<std::size_t>(target.height));
  // rlottie does not draw its own last frame number (out point minus in point): the surface keeps
  // what an earlier render of the model left, nothing on a first render. The frame before it is
  // the last one the animation shows.
  const std::size_t lastFrame = model_->totalFrame();
  const auto frame =
      std::min(static_cast<std::size_t>(std::lround(frame_)), lastFrame > 0 ? lastFrame - 1 : 0);
  const auto width = static_cast<std::size_t>(target.width);
  const auto height = static_cast<std::size_t>(target.height);
  const bool centred = config_.layout.alignX == 0.5 && config_.layout.alignY == 0.5;
  if (rect == PixelRect{0, 0, target.width, target.height} || centred) {
    // rlottie fits the animation into its surface and centres it itself, on fractional pixels
    // where the margins are odd: a letterboxed animation keeps its place to the sub-pixel and its
    // edges blend as drawn. What it draws beyond the animation's rectangle is clipped off.
    rlottie::Surface surface(reinterpret_cast<std::uint32_t*>(pixels.data()), width, height,
                             stride);
    model_->renderSync(frame, surface);
    const double scale = std::min(static_cast<double>(width) / static_cast<double>(contentWidth),
                                  static_cast<double>(height) / static_cast<double>(contentHeight));
    const double marginX = (static_cast<double>(width) - contentWidth * scale) / 2;
    const double marginY = (static_cast<double>(height) - contentHeight * scale) / 2;
    keepBand(pixels, marginX, static_cast<double>(width) - marginX, width, 4, height, stride);
    keepBand(pixels, marginY, static_cast<double>(height) - marginY, height, stride, width, 4);
  } else {
    // rlottie clears bytesPerLine x height bytes from the start of its buffer, so a surface inside
    // the image would overrun it: render the rectangle on its own and copy it into place.
    const auto rectStride = static_cast<std::size_t>(rect.width) * 4;
    std::vector<std::uint8_t> inner(rectStride * static_cast<std::size_t>(rect.height));
    rlottie::Surface surface(reinterpret_cast<std::uint32_t*>(inner.data()),
                             static_cast<std::size_t>(rect.width),
                             static_cast<std::size_t>(rect.height), rectStride);
    model_->renderSync(frame, surface);
    for (std::int64_t row = 0; row < rect.height; ++row) {
      std::copy_n(inner.data() + static_cast<std::size_t>(row) * rectStride, rectStride,
                  pixels.data() + static_cast<std::size_t>(rect.y + row) * stride +
                      static_cast<std::size_t>(rect.x) * 4);
    }
  }
  if (config_.backgroundColor.a == 0) {
    return platform::Image::make(width, height, stride, std::move(pixels),
                                 platform::PixelOrder::bgra);
  }
  putOver(pixels, config_.backgroundColor);
  return platform::Image::make(width, height, std::move(pixels));
}

void DotLottieAnimation::destroy() {
  model_.reset();
  totalFrames_ = 0;
  duration_ = 0;
  frame_ = 0;
}

} // namespace frameloom::renderer
