#include <frameloom/platform/graphics/Color.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <string>

namespace frameloom::platform {

namespace {

double unitComponent(double value) {
  return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

} // namespace

Color::Color(double red, double green, double blue, double alpha)
    : light_{unitComponent(red), unitComponent(green), unitComponent(blue), unitComponent(alpha)} {}

Color::Color(Components light, std::optional<Components> dark) : light_(light), dark_(dark) {}

Color Color::fromHex(std::string_view text) {
  const auto invalid = [&] {
    return std::invalid_argument("invalid colour \"" + std::string(text) +
                                 "\" (expected #RGB, #RRGGBB or #RRGGBBAA)");
  };
  if (text.empty() || text.front() != '#') {
    throw invalid();
  }
  const std::string_view digits = text.substr(1);
  if (digits.size() != 3 && digits.size() != 6 && digits.size() != 8) {
    throw invalid();
  }
  std::array<int, 8> values{};
  for (std::size_t i = 0; i < digits.size(); ++i) {
    values[i] = hexDigit(digits[i]);
    if (values[i] < 0) {
      throw invalid();
    }
  }
  std::array<double, 4> components{0, 0, 0, 1};
  if (digits.size() == 3) {
    for (std::size_t i = 0; i < 3; ++i) {
      components[i] = values[i] * 17 / 255.0;
    }
  } else {
    for (std::size_t i = 0; i < digits.size() / 2; ++i) {
      components[i] = (values[2 * i] * 16 + values[2 * i + 1]) / 255.0;
    }
  }
  return Color(components[0], components[1], components[2], components[3]);
}

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
