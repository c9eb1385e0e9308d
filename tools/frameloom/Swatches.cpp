#include "Swatches.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace frameloom::tool {

namespace {

std::uint8_t byte(double component) {
  return static_cast<std::uint8_t>(std::lround(std::clamp(component, 0.0, 1.0) * 255));
}

// The colour over a light or dark checker square, premultiplied and opaque.
platform::Rgba8 overChecker(const ColorComponents& color, bool light) {
  const double alpha = std::clamp(color[3], 0.0, 1.0);
  const double grey = light ? 0.8 : 0.6;
  auto mix = [&](double c) { return byte(c * alpha + grey * (1 - alpha)); };
  return {mix(color[0]), mix(color[1]), mix(color[2]), 255};
}

} // namespace

std::shared_ptr<const platform::Image> makeSwatches(const std::vector<ColorComponents>& colors,
                                                    std::size_t cell) {
  const std::size_t count = std::max<std::size_t>(1, colors.size());
  const std::size_t checker = std::max<std::size_t>(1, cell / 4);
  std::vector<std::uint8_t> pixels;
  pixels.reserve(count * cell * cell * 4);
  for (std::size_t y = 0; y < cell; ++y) {
    for (std::size_t x = 0; x < count * cell; ++x) {
      platform::Rgba8 p{};
      if (x / cell < colors.size()) {
        p = overChecker(colors[x / cell], ((x % cell) / checker + y / checker) % 2 == 0);
      }
      pixels.insert(pixels.end(), {p.r, p.g, p.b, p.a});
    }
  }
  return platform::Image::make(count * cell, cell, std::move(pixels));
}

std::string ansiSwatch(const ColorComponents& color) {
  return "\033[48;2;" + std::to_string(byte(color[0])) + ";" + std::to_string(byte(color[1])) +
         ";" + std::to_string(byte(color[2])) + "m  \033[0m";
}

bool standardOutputShowsColor() {
  const char* noColor = std::getenv("NO_COLOR");
  const char* term = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && (noColor == nullptr || *noColor == '\0') &&
         (term == nullptr || std::string_view(term) != "dumb");
}

} // namespace frameloom::tool
