#include <frameloom/renderer/AnimationConfig.h>

#include <algorithm>
#include <cmath>

namespace frameloom::renderer {

Layout createDefaultLayout() {
  return Layout{0.5, 0.5};
}

PixelRect layoutRect(const Layout& layout, double contentWidth, double contentHeight,
                     std::int64_t targetWidth, std::int64_t targetHeight) {
  const double scale = std::min(static_cast<double>(targetWidth) / contentWidth,
                                static_cast<double>(targetHeight) / contentHeight);
  const auto width = std::clamp<std::int64_t>(std::llround(contentWidth * scale), 1, targetWidth);
  const auto height =
      std::clamp<std::int64_t>(std::llround(contentHeight * scale), 1, targetHeight);
  const double alignX = std::isnan(layout.alignX) ? 0.5 : std::clamp(layout.alignX, 0.0, 1.0);
  const double alignY = std::isnan(layout.alignY) ? 0.5 : std::clamp(layout.alignY, 0.0, 1.0);
  return {std::llround(static_cast<double>(targetWidth - width) * alignX),
          std::llround(static_cast<double>(targetHeight - height) * alignY), width, height};
}

} // namespace frameloom::renderer
