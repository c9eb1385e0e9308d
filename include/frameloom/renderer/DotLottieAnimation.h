#pragma once

#include <frameloom/platform/graphics/Image.h>
#include <frameloom/renderer/AnimationConfig.h>
#include <frameloom/renderer/Refusal.h>

#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <optional>
#include <span>

namespace rlottie {
class Animation;
}

namespace frameloom::renderer {

// One animation made from .lottie archive bytes or plain Lottie JSON, rendered a frame at a time
// through rlottie. Owns its rlottie model until destroy() or destruction, whichever comes first.
//
// Not thread-safe: one thread at a time (the animation actor's executor). Creation never fails:
// bytes without a usable animation give an object whose duration() and totalFrames() are 0 and
// whose tick() gives no image. No member throws except on memory exhaustion.
class FRAMELOOM_EXPORT DotLottieAnimation {
public:
  // The width and height of the configuration, when both are given, set the first size.
  DotLottieAnimation(std::span<const std::uint8_t> dotLottieData, AnimationConfig config);
  ~DotLottieAnimation();
  DotLottieAnimation(const DotLottieAnimation&) = delete;
  DotLottieAnimation& operator=(const DotLottieAnimation&) = delete;

  // Sets the pixel size that tick() renders at. Returns false, and tick() gives no image until
  // the next resize, when a side is below 1 or above platform::Image::maxDimension.
  bool resize(std::int64_t width, std::int64_t height);

  // Chooses the frame tick() renders: frame f is the animation at its in point + f, a fractional
  // f the nearest whole frame. Returns false and keeps the frame when f is not finite, lies
  // outside 0...totalFrames(), or nothing is loaded.
  bool setFrame(float frame);
  float currentFrame() const { return frame_; }

  // Renders the current frame at the current size (the animation's own size until a size is
  // set) into a new platform::premultiplied RGBA image, placed by the configured layout over the
  // configured background. No image when nothing is loaded, the size is unusable or the object
  // was destroyed.
  std::shared_ptr<const platform::Image> tick();

  // Out point minus in point, in frames; 0 when nothing is loaded.
  float totalFrames() const { return totalFrames_; }
  // totalFrames() divided by the frame rate, in seconds; 0 when nothing is loaded.
  float duration() const { return duration_; }
  bool isLoaded() const { return model_ != nullptr; }
  // Why nothing is loaded, when the document passed one of the renderer's budgets. Set once by
  // the constructor, so any thread that received the object from the one that made it may read it.
  std::optional<Refusal> refusal() const { return refusal_; }
  const AnimationConfig& config() const { return config_; }

  // Releases the rlottie model now. Afterwards the object renders nothing and reports 0 frames.
  // Calling it again does nothing.
  void destroy();

private:
  struct PixelSize {
    std::int64_t width;
    std::int64_t height;
  };

  AnimationConfig config_;
  std::unique_ptr<rlottie::Animation> model_;
  std::optional<PixelSize> size_;
  std::optional<Refusal> refusal_;
  float totalFrames_ = 0;
  float duration_ = 0;
  float frame_ = 0;
};

} // namespace frameloom::renderer
