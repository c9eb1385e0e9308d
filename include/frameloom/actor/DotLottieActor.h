#pragma once

#include <frameloom/platform/core/Bytes.h>
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/graphics/Image.h>
#include <frameloom/platform/graphics/Size.h>
#include <frameloom/platform/runtime/SerialExecutor.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/renderer/DotLottieAnimation.h>

#include <asio/awaitable.hpp>

#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <optional>
#include <vector>

namespace frameloom {

// The one owner of renderer calls in the process: makes configured animations from .lottie files
// (recoloured first when colours are given) or from bytes, renders single frames and destroys
// animations.
//
// Every operation runs on the actor's serial executor, one at a time across all animations and
// callers; callers elsewhere co_await it and resume on their own executor. The actor keeps no
// reference to what it makes: an animation belongs to whoever received it, who hands it to
// destroy() when done. Loads throw only what recolouring throws (DotLottieFile's errors and the
// archive and file-system errors beneath them).
class FRAMELOOM_EXPORT DotLottieActor {
public:
  using Animation = std::shared_ptr<renderer::DotLottieAnimation>;
  using Frame = std::shared_ptr<const platform::Image>;

  // The process's actor, made on first use (safe from several threads at once).
  static DotLottieActor& shared();

  // The loads of shared(), for callers that do not hold the actor.
  static asio::awaitable<Animation> load(platform::Url url, std::optional<platform::Size> size,
                                         std::optional<std::vector<platform::Color>> colors);
  static asio::awaitable<Animation> load(platform::Bytes data, std::optional<platform::Size> size);

  // Loads the .lottie file `url` names (a file URL), or its recoloured copy when `colors` is a
  // non-empty list. No animation, and the line "Failed to load .lottie data from <url>" on
  // standard output, when the file to load is missing or unreadable.
  asio::awaitable<Animation> loadAnimation(platform::Url url, std::optional<platform::Size> size,
                                           std::optional<std::vector<platform::Color>> colors);
  // Makes an animation of `data`, sized when `size` is given. Always gives one: bytes without a
  // usable animation make one that renders nothing.
  asio::awaitable<Animation> loadAnimation(platform::Bytes data,
                                           std::optional<platform::Size> size);

  // Renders frame `frame` of `model`. No image when the calling task is cancelled before the
  // frame is set or before it is rendered, or when the renderer gives none.
  asio::awaitable<Frame> seek(float frame, Animation model);

  // Releases the renderer resources of `model`; nothing when given none.
  asio::awaitable<void> destroy(Animation model);

  const platform::SerialExecutor& executor() const { return executor_; }

  // The configuration every animation is made with, for an optional size.
  static renderer::AnimationConfig configuration(std::optional<platform::Size> size);
  // A size side in whole pixels, truncated toward zero; values beyond the 64-bit range give its
  // nearest end and NaN gives 0, which the renderer then refuses.
  static std::int64_t pixels(double side);

private:
  DotLottieActor() = default;

  // A recoloured copy is shown with recolouring's choice of animation, so that what is shown is
  // what was recoloured.
  Animation makeAnimation(const platform::Bytes& data, std::optional<platform::Size> size,
                          renderer::AnimationRule rule = renderer::AnimationRule::renderer) const;
  Animation loadFile(const platform::Url& url, std::optional<platform::Size> size,
                     const std::optional<std::vector<platform::Color>>& colors) const;

  platform::SerialExecutor executor_;
};

} // namespace frameloom
