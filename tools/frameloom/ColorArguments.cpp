#include "ColorArguments.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace frameloom::tool {
namespace {

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

std::vector<double> parseColor(std::string_view item) {
  const auto invalid = [&] {
    return std::invalid_argument("invalid colour \"" + std::string(item) +
                                 "\" (expected #RGB, #RRGGBB or #RRGGBBAA)");
  };
  if (item.empty() || item.front() != '#') {
    throw invalid();
  }
  const std::string_view digits = item.substr(1);
  if (digits.size() != 3 && digits.size() != 6 && digits.size() != 8) {
    throw invalid();
  }
  std::vector<int> values;
  for (const char c : digits) {
    const int value = hexDigit(c);
    if (value < 0) {
      throw invalid();
    }
    values.push_back(value);
  }
  std::vector<double> components;
  if (digits.size() == 3) {
    for (const int value : values) {
      components.push_back(value * 17 / 255.0);
    }
  } else {
    for (std::size_t i = 0; i < values.size(); i += 2) {
      components.push_back((values[i] * 16 + values[i + 1]) / 255.0);
    }
  }
  if (components.size() == 3) {
    components.push_back(1.0);
  }
  return components;
}

} // namespace

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
    colors.push_back(parseColor(item));
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
