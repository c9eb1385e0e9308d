#include <frameloom/files/ColorMap.h>
#include <frameloom/platform/core/DecimalText.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
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

double roundedComponent(double component) {
  return std::round(component * 1000) / 1000;
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
    key +=
        platform::shortestDecimal(roundedComponent(component), platform::WholeNumbers::withPoint);
  }
  return key;
}

std::string formatComponents(std::span<const double> components, int precision) {
  // to_chars with a precision writes exactly what printf would in the "C" locale, only faster;
  // printf reads a negative precision as none given, that is six.
  const int decimals = precision < 0 ? 6 : precision;
  std::string out;
  char buffer[64];
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (i > 0) {
      out += ',';
    }
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, components[i],
                                            std::chars_format::fixed, decimals);
    if (error == std::errc()) {
      out.append(buffer, end);
      continue;
    }
    // Large numbers or many decimals: the integer part plus the decimals plus sign and point.
    std::string wide(330 + static_cast<std::size_t>(decimals), '\0');
    const auto result = std::to_chars(wide.data(), wide.data() + wide.size(), components[i],
                                      std::chars_format::fixed, decimals);
    out.append(wide.data(), result.ptr);
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

std::size_t ColorMap::RoundedKeyHash::operator()(const RoundedKey& key) const noexcept {
  std::uint64_t hash = 0;
  for (const std::uint64_t bits : key) {
    hash = (hash ^ bits) * 0x9E3779B97F4A7C15ULL;
    hash ^= hash >> 29;
  }
  return static_cast<std::size_t>(hash);
}

std::size_t ColorMap::replacementIndex(std::span<const double> source) {
  RoundedKey rounded;
  for (std::size_t i = 0; i < 4; ++i) {
    double component = roundedComponent(i < source.size() ? source[i] : 1.0);
    // Every NaN of one sign writes the same key text.
    if (std::isnan(component)) {
      component = std::copysign(std::numeric_limits<double>::quiet_NaN(), component);
    }
    rounded[i] = std::bit_cast<std::uint64_t>(component);
  }
  if (const auto found = indexByKey_.find(rounded); found != indexByKey_.end()) {
    ++entries_[found->second].uses;
    return found->second;
  }
  const std::size_t index = entries_.size();
  entries_.push_back(
      Entry{normalizedRGBA(source), normalizedRGBA(colors_[index % colors_.size()]), 1});
  try {
    indexByKey_.emplace(rounded, index);
  } catch (...) {
    entries_.pop_back();
    throw;
  }
  return index;
}

} // namespace frameloom
