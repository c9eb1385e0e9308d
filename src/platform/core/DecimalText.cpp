#include <frameloom/platform/core/DecimalText.h>

#include <charconv>
#include <cstddef>
#include <string_view>

namespace frameloom::platform {

namespace {

// Expands the scientific form to_chars writes ("-1.25e+05", "1e-04") into positional digits.
std::string positional(std::string_view scientific, WholeNumbers whole) {
  const std::size_t e = scientific.find('e');
  if (e == std::string_view::npos) {
    return std::string(scientific); // inf, -inf, nan
  }
  std::string result;
  std::string_view mantissa = scientific.substr(0, e);
  if (mantissa.front() == '-') {
    result += '-';
    mantissa.remove_prefix(1);
  }
  std::string digits;
  for (const char c : mantissa) {
    if (c != '.') {
      digits += c;
    }
  }
  std::string_view exponentText = scientific.substr(e + 1);
  if (exponentText.front() == '+') {
    exponentText.remove_prefix(1);
  }
  int exponent = 0;
  std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
  // Digits before the decimal point.
  const long point = 1L + exponent;
  const auto count = static_cast<long>(digits.size());
  if (point <= 0) {
    result += "0.";
    result.append(static_cast<std::size_t>(-point), '0');
    result += digits;
  } else if (point >= count) {
    result += digits;
    result.append(static_cast<std::size_t>(point - count), '0');
    if (whole == WholeNumbers::withPoint) {
      result += ".0";
    }
  } else {
    result.append(digits, 0, static_cast<std::size_t>(point));
    result += '.';
    result.append(digits, static_cast<std::size_t>(point));
  }
  return result;
}

template <typename Number>
std::string shortest(Number value, WholeNumbers whole) {
  // Scientific form alone gives the shortest round-trip digits whatever the magnitude.
  char buffer[64];
  const auto end =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific).ptr;
  return positional(std::string_view(buffer, static_cast<std::size_t>(end - buffer)), whole);
}

} // namespace

std::string shortestDecimal(double value, WholeNumbers whole) {
  return shortest(value, whole);
}

std::string shortestDecimal(float value, WholeNumbers whole) {
  return shortest(value, whole);
}

} // namespace frameloom::platform
