#pragma once

#include "Console.h"

#include <frameloom/actor/DotLottieActor.h>

#include <asio/awaitable.hpp>

#include <optional>
#include <string>

namespace frameloom::tool {

// The picture formats `render` writes; an output's extension picks one.
enum class PictureFormat { png, webp, gif, apng };

// The format for an output path (".png", ".webp", ".gif", ".apng", any letter case), or none.
std::optional<PictureFormat> formatOfPath(const std::string& path);
std::optional<PictureFormat> formatNamed(const std::string& name);

// What part of an animation to write as an animated picture, and how.
struct AnimationRange {
  std::optional<double> fps;
  std::optional<float> from;
  std::optional<float> to;
  int loop = 0;
  std::optional<platform::Color> background;
};

// Renders frames `from` to `to` at `fps` and streams each into the WebP, GIF or PNG encoder as
// soon as it is rendered, so that one frame at a time is held; then writes the picture to `output`
// ("-" for standard output). Runs on the main loop; throws UsageError for a range or rate out of
// bounds, the encoders' and the actor's errors otherwise.
asio::awaitable<void> writeAnimation(const DotLottieActor::Animation& animation,
                                     const std::string& source, PictureFormat format,
                                     const AnimationRange& range, const std::string& output,
                                     Console& console);

// `frame` laid over an opaque or translucent `background`.
std::shared_ptr<const platform::Image> overBackground(const platform::Image& frame,
                                                      const platform::Color& background);

} // namespace frameloom::tool
