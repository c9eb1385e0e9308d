#include "renderer/GradientRepairs.h"

#include "renderer/DocumentRepairs.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Pieces each interval between two given offsets is cut into: enough that the premultiplied
// blend strays from the plain one by a few levels at most.
constexpr std::size_t gradientSubdivisions = 8;
// Stops written at most, whatever the document gives: the rewrite must not let a hostile
// gradient grow without bound.
constexpr std::size_t maxGradientStops = 256;

struct Stop {
  double offset;
  std::vector<double> value;
};

// The stop list's value at `offset`, linear between stops and held beyond the ends.
std::vector<double> valueAt(const std::vector<Stop>& stops, double offset) {
  if (offset <= stops.front().offset) {
    return stops.front().value;
  }
  for (std::size_t i = 1; i < stops.size(); ++i) {
    if (offset <= stops[i].offset) {
      const Stop& left = stops[i - 1];
      const Stop& right = stops[i];
      const double span = right.offset - left.offset;
      const double t = span > 0 ? (offset - left.offset) / span : 1;
      std::vector<double> value(left.value.size());
      for (std::size_t c = 0; c < value.size(); ++c) {
        value[c] = left.value[c] + (right.value[c] - left.value[c]) * t;
      }
      return value;
    }
  }
  return stops.back().value;
}

// Reads `count` stops of `width` numbers (offset first) from `numbers` at `first`; none unless
// every number is finite and the offsets never go back.
std::optional<std::vector<Stop>> readStops(const std::vector<double>& numbers, std::size_t first,
                                           std::size_t count, std::size_t width) {
  std::vector<Stop> stops;
  for (std::size_t i = 0; i < count; ++i) {
    const auto begin = numbers.begin() + static_cast<std::ptrdiff_t>(first + i * width);
    Stop stop{*begin, std::vector<double>(begin + 1, begin + static_cast<std::ptrdiff_t>(width))};
    if (!stops.empty() && stop.offset < stops.back().offset) {
      return std::nullopt;
    }
    stops.push_back(std::move(stop));
  }
  return stops;
}

// The rewritten numbers of a gradient with `colorCount` colour stops, or none when it needs no
// rewrite or cannot be read.
std::optional<std::vector<double>> resampled(const Json& values, std::size_t colorCount) {
  if (!values.is_array() || colorCount < 1 || colorCount > maxGradientStops ||
      values.size() <= colorCount * 4 || (values.size() - colorCount * 4) % 2 != 0) {
    return std::nullopt;
  }
  std::vector<double> numbers;
  for (const auto& value : values) {
    if (!value.is_number() || !std::isfinite(value.get<double>())) {
      return std::nullopt;
    }
    numbers.push_back(value.get<double>());
  }
  const std::size_t opacityCount = (numbers.size() - colorCount * 4) / 2;
  const auto colors = readStops(numbers, 0, colorCount, 4);
  const auto opacities = readStops(numbers, colorCount * 4, opacityCount, 2);
  if (!colors || !opacities ||
      std::all_of(opacities->begin(), opacities->end(),
                  [](const Stop& stop) { return stop.value[0] >= 1; })) {
    return std::nullopt;
  }
  std::vector<double> given;
  for (const auto* stops : {&*colors, &*opacities}) {
    for (const Stop& stop : *stops) {
      given.push_back(stop.offset);
    }
  }
  std::sort(given.begin(), given.end());
  given.erase(std::unique(given.begin(), given.end()), given.end());
  if (given.size() > maxGradientStops) {
    return std::nullopt;
  }
  const std::size_t pieces = std::clamp<std::size_t>(
      (maxGradientStops - 1) / std::max<std::size_t>(given.size() - 1, 1), 1, gradientSubdivisions);
  std::vector<double> offsets;
  for (std::size_t i = 0; i < given.size() && offsets.size() < maxGradientStops; ++i) {
    offsets.push_back(given[i]);
    for (std::size_t piece = 1; i + 1 < given.size() && piece < pieces; ++piece) {
      offsets.push_back(given[i] + (given[i + 1] - given[i]) * static_cast<double>(piece) /
                                       static_cast<double>(pieces));
    }
  }
  std::vector<double> colorPart;
  std::vector<double> opacityPart;
  for (const double offset : offsets) {
    colorPart.push_back(offset);
    const auto color = valueAt(*colors, offset);
    colorPart.insert(colorPart.end(), color.begin(), color.end());
    opacityPart.push_back(offset);
    opacityPart.push_back(valueAt(*opacities, offset)[0]);
  }
  colorPart.insert(colorPart.end(), opacityPart.begin(), opacityPart.end());
  return colorPart;
}

} // namespace

bool opacityStopsResampled(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& item) {
    const std::string type = item.is_object() ? stringMember(item, "ty") : "";
    const auto gradient = type == "gf" || type == "gs" ? item.find("g") : item.end();
    if (gradient == item.end() || !gradient->is_object()) {
      return;
    }
    const auto count = gradient->find("p");
    Json* values = propertyValue(*gradient, "k");
    if (count == gradient->end() || !count->is_number_unsigned() || !values) {
      return;
    }
    const auto rewritten = resampled(*values, count->get<std::size_t>());
    if (!rewritten) {
      return;
    }
    *values = *rewritten;
    *count = rewritten->size() / 6;
    changed = true;
  });
  return changed;
}

} // namespace frameloom::renderer
