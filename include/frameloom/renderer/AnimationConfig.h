#pragma once

#include <frameloom/platform/Export.h>
#include <frameloom/platform/graphics/Image.h>
#include <frameloom/renderer/AnimationChoice.h>

#include <cstdint>
#include <optional>

namespace frameloom::renderer {

// How the animation's own rectangle is placed in the target pixels: scaled to fit inside with its
// aspect ratio kept (the uncovered pixels stay transparent), then aligned: 0 puts the animation at
// the left (top) edge, 0.5 centres it, 1 puts it at the right (bottom) edge.
struct FRAMELOOM_EXPORT Layout {
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

// How an animation is set up when it is created: its size, layout, background and which animation
// of an archive it shows. Frames are set explicitly by whoever drives it.
struct FRAMELOOM_EXPORT AnimationConfig {
  // Straight-alpha colour drawn under the animation; transparent by default.
  platform::Rgba8 backgroundColor{};
  std::optional<std::int64_t> width;
  std::optional<std::int64_t> height;
  Layout layout = createDefaultLayout();
  // Which animation of a .lottie archive is shown.
  AnimationRule animationRule = AnimationRule::renderer;
};

} // namespace frameloom::renderer
