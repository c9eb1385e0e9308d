#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <array>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <optional>
#include <string>

namespace frameloom::renderer {

// Direction in which a player walks through the frames.
enum class Mode { forward, reverse, bounce, reverseBounce };

// How the animation's own rectangle is placed in the target pixels.
enum class Fit {
  contain, // scaled to fit inside, aspect ratio kept; the uncovered pixels stay transparent
  fill,    // stretched to cover the target exactly
};

// A fit and an alignment: 0 puts the animation at the left (top) edge, 0.5 centres it, 1 puts it
// at the right (bottom) edge. Alignment matters only where the fit leaves room.
struct FRAMELOOM_EXPORT Layout {
  Fit fit = Fit::contain;
  double alignX = 0.5;
  double alignY = 0.5;

  friend bool operator==(const Layout&, const Layout&) = default;
};

// The animation kept whole and centred, aspect ratio kept.
FRAMELOOM_EXPORT Layout createDefaultLayout();

// A rectangle of target pixels.
struct FRAMELOOM_EXPORT PixelRect {
  std::int64_t x = 0;
  std::int64_t y = 0;
  std::int64_t width = 0;
  std::int64_t height = 0;

  friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

// Where `layout` puts content of the given size inside a target of the given size. Sizes must
// be positive; alignments outside 0...1 are clamped.
FRAMELOOM_EXPORT PixelRect layoutRect(const Layout& layout, double contentWidth,
                                      double contentHeight, std::int64_t targetWidth,
                                      std::int64_t targetHeight);

// How an animation is set up when it is created. The renderer acts on the size, the layout and
// the background; autoplay, loop, mode, speed, interpolation, segments, marker and theme describe
// how a player should drive it and are kept for that player: frames here are set explicitly.
struct FRAMELOOM_EXPORT AnimationConfig {
  bool autoplay = false;
  bool loop = false;
  Mode mode = Mode::forward;
  float speed = 1;
  bool useFrameInterpolation = true;
  std::optional<std::array<float, 2>> segments;
  // Straight-alpha colour drawn under the animation; transparent by default.
  platform::Rgba8 backgroundColor{};
  std::optional<std::int64_t> width;
  std::optional<std::int64_t> height;
  Layout layout = createDefaultLayout();
  std::optional<std::string> marker;
  std::optional<std::string> themeId;
};

} // namespace frameloom::renderer
