#include "ColorArguments.h"

#include <frameloom/platform/graphics/Color.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace frameloom::tool {

std::vector<std::vector<double>> parseColorList(std::string_view text) {
  std::vector<std::vector<double>> colors;
  std::size_t start = 0;
  while (true) {
    const std::size_t comma = text.find(',', start);
    std::string_view item =
        text.substr(start, comma == std::string_view::npos ? text.npos : comma - start);
    while (!item.empty() && item.front() == ' ') {
      item.remove_prefix(1);
    }
    while (!item.empty() && item.back() == ' ') {
      item.remove_suffix(1);
    }
    const auto parsed = platform::Color::fromHex(item).resolved(platform::TraitCollection{});
    colors.push_back({parsed.red, parsed.green, parsed.blue, parsed.alpha});
    if (comma == std::string_view::npos) {
      return colors;
    }
    start = comma + 1;
  }
}

std::string formatHexColor(const std::vector<double>& components) {
  char text[10] = "#";
  for (std::size_t i = 0; i < 4; ++i) {
    const double component = i < components.size() ? components[i] : 1.0;
    const double clamped = std::isnan(component) ? 0.0 : std::clamp(component, 0.0, 1.0);
    std::snprintf(text + 1 + 2 * i, 3, "%02X", static_cast<unsigned>(std::lround(clamped * 255)));
  }
  return text;
}

} // namespace frameloom::tool
