#include "frameloom/ColorMap.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace frameloom {

ColorComponents normalizedRGBA(std::span<const double> components) {
  if (components.size() < 3) {
    return ColorComponents(components.begin(), components.end());
  }
  ColorComponents result(4, 1.0);
  std::copy_n(components.begin(), std::min<std::size_t>(components.size(), 4), result.begin());
  return result;
}

namespace {

void appendShortest(std::string& out, double value) {
  char buffer[32];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string_view text(buffer, static_cast<std::size_t>(end - buffer));
  out += text;
  if (std::isfinite(value) && text.find_first_of(".e") == std::string_view::npos) {
    out += ".0";
  }
}

} // namespace

std::string colorKey(std::span<const double> normalized) {
  std::string key;
  key.reserve(32);
  for (std::size_t i = 0; i < 4; ++i) {
    const double component = i < normalized.size() ? normalized[i] : 1.0;
    if (i > 0) {
      key += ',';
    }
    appendShortest(key, std::round(component * 1000) / 1000);
  }
  return key;
}

std::string formatComponents(std::span<const double> components, int precision) {
  std::string out;
  char buffer[64];
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (i > 0) {
      out += ',';
    }
    const int length = std::snprintf(buffer, sizeof buffer, "%.*f", precision, components[i]);
    if (length < static_cast<int>(sizeof buffer)) {
      out.append(buffer, static_cast<std::size_t>(length));
    } else {
      std::string wide(static_cast<std::size_t>(length) + 1, '\0');
      std::snprintf(wide.data(), wide.size(), "%.*f", precision, components[i]);
      out.append(wide.data(), static_cast<std::size_t>(length));
    }
  }
  return out;
}

ColorMap::ColorMap(std::vector<ColorComponents> colors) : colors_(std::move(colors)) {
  if (colors_.empty()) {
    throw std::invalid_argument("ColorMap: the colour list is empty");
  }
  for (const auto& color : colors_) {
    if (color.size() < 3) {
      throw std::invalid_argument("ColorMap: a colour has fewer than three components");
    }
  }
}

const ColorComponents& ColorMap::replacementColor(std::span<const double> source) {
  ColorComponents normalized = normalizedRGBA(source);
  std::string key = colorKey(normalized);
  if (auto found = indexByKey_.find(key); found != indexByKey_.end()) {
    Entry& entry = entries_[found->second];
    ++entry.uses;
    return entry.replacement;
  }
  const std::size_t index = entries_.size();
  ColorComponents replacement = normalizedRGBA(colors_[index % colors_.size()]);
  indexByKey_.emplace(key, index);
  entries_.push_back(Entry{std::move(key), std::move(normalized), std::move(replacement), 1});
  return entries_.back().replacement;
}

} // namespace frameloom
