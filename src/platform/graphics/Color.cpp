#include <frameloom/platform/graphics/Color.h>

#include <algorithm>
#include <cmath>

namespace frameloom::platform {

namespace {

double unitComponent(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0;
}

} // namespace

Color::Color(double red, double green, double blue, double alpha)
    : light_{unitComponent(red), unitComponent(green), unitComponent(blue), unitComponent(alpha)} {}

Color::Color(Components light, std::optional<Components> dark) : light_(light), dark_(dark) {}

Color Color::dynamic(const Color& light, const Color& dark) {
  return Color(light.light_, dark.light_);
}

Color::Components Color::resolved(const TraitCollection& traits) const {
  if (dark_ && traits.userInterfaceStyle == TraitCollection::UserInterfaceStyle::dark) {
    return *dark_;
  }
  return light_;
}

std::vector<double> Color::rgbaArray(const TraitCollection& traits) const {
  const Components c = resolved(traits);
  return {c.red, c.green, c.blue, c.alpha};
}

} // namespace frameloom::platform
