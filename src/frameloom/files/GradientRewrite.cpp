#include "frameloom/files/GradientRewrite.h"

#include "frameloom/files/JSONArray.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace frameloom {

namespace {

bool isJSONSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Reads a gradient array that holds nothing but numbers without exponents and with at most 15
// integer digits, which every double holds exactly, and JSON white space: almost every gradient.
// Returns false for anything else, which the JSON parser then reads.
bool readPlainGradient(std::string_view array,
                       std::vector<GradientRewriter::GradientNumber>& numbers) {
  const char* p = array.data() + 1;
  const char* const last = array.data() + array.size() - 1; // the closing bracket
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  while (p < last && isJSONSpace(*p)) {
    ++p;
  }
  if (p == last) {
    return true;
  }
  while (true) {
    const char* const start = p;
    const bool negative = *p == '-';
    p += negative ? 1 : 0;
    const char* const digits = p;
    if (*p == '0') {
      ++p;
    } else {
      while (isDigit(*p)) {
        ++p;
      }
    }
    if (p == digits || p - digits > 15) {
      return false;
    }
    const bool integer = *p != '.';
    if (!integer) {
      const char* const decimals = ++p;
      while (isDigit(*p)) {
        ++p;
      }
      if (p == decimals) {
        return false;
      }
    }
    double value = 0;
    std::from_chars(start, p, value);
    if (integer && value == 0) {
      // The parser holds "-0" as the integer 0: positive, and written "0".
      numbers.push_back(GradientRewriter::GradientNumber{0.0, "0"});
    } else {
      numbers.push_back(
          GradientRewriter::GradientNumber{value, integer ? std::string_view(start, p) : ""});
    }
    while (isJSONSpace(*p)) {
      ++p;
    }
    if (p == last) {
      return true;
    }
    if (*p != ',') {
      return false;
    }
    ++p;
    while (isJSONSpace(*p)) {
      ++p;
    }
  }
}

// Writes a number as the JSON writer does: its shortest form, "null" when not finite.
void appendJSONNumber(std::string& out, double value) {
  if (!std::isfinite(value)) {
    out += "null";
    return;
  }
  char buffer[64];
  out.append(buffer, nlohmann::detail::to_chars(buffer, buffer + sizeof buffer, value));
}

// Walks the stops of a gradient of `count` elements (see GradientRewriter) and hands each stop
// whose colour components are numbers to `replace`, with the element index of its offset, its
// source colour (alpha 1 when it has none) and whether it has an alpha.
template <typename IsNumber, typename Value, typename Replace>
void walkStops(std::size_t count, IsNumber isNumber, Value value, Replace replace) {
  std::size_t i = 0;
  while (i + 3 < count) {
    const bool hasAlpha = i + 4 < count && isNumber(i + 4) && value(i + 4) <= 1.0001;
    if (isNumber(i + 1) && isNumber(i + 2) && isNumber(i + 3)) {
      const double source[4] = {value(i + 1), value(i + 2), value(i + 3),
                                hasAlpha ? value(i + 4) : 1.0};
      replace(i, source, hasAlpha);
    }
    i += hasAlpha ? 5 : 4;
  }
}

} // namespace

// Writes the replacement components of the map's entry `entry`, once per replacement colour, and
// returns the colour's place in the list.
std::size_t GradientRewriter::writeComponents(std::size_t entry) {
  const std::size_t index = map_.colorIndex(entry);
  if (index >= components_.size()) {
    components_.resize(index + 1);
  }
  std::array<std::string, 4>& texts = components_[index];
  if (texts[0].empty()) {
    const ColorComponents& replacement = map_.entries()[entry].replacement;
    for (std::size_t k = 0; k < 4; ++k) {
      appendJSONNumber(texts[k], replacement[k]);
    }
  }
  return index;
}

// Rewrites the numbers read directly into stops_. A replaced number is written as its colour's
// component is, once per colour.
void GradientRewriter::rewritePlain(std::string& out) {
  std::vector<GradientNumber>& numbers = stops_;
  const std::size_t count = numbers.size();
  walkStops(
      count, [](std::size_t) { return true; }, [&](std::size_t k) { return numbers[k].value; },
      [&](std::size_t i, const double(&source)[4], bool hasAlpha) {
        const std::size_t index = writeComponents(map_.replacementIndex(source));
        for (std::size_t k = 1; k <= (hasAlpha ? 4u : 3u); ++k) {
          numbers[i + k].replacement = 1 + 4 * index + (k - 1);
        }
      });
  out += '[';
  for (std::size_t k = 0; k < count; ++k) {
    if (k > 0) {
      out += ',';
    }
    if (const std::size_t r = numbers[k].replacement; r != 0) {
      out += components_[(r - 1) / 4][(r - 1) % 4];
    } else if (!numbers[k].integer.empty()) {
      out += numbers[k].integer;
    } else {
      appendJSONNumber(out, numbers[k].value);
    }
  }
  out += ']';
}

bool GradientRewriter::rewrite(std::string_view array, std::string& out) {
  stops_.clear();
  stops_.reserve(array.size() / 2 + 1);
  if (readPlainGradient(array, stops_)) {
    rewritePlain(out);
    return true;
  }
  nlohmann::json parsed = parseJSONArray(array);
  if (!parsed.is_array()) {
    return false;
  }
  walkStops(
      parsed.size(), [&](std::size_t k) { return parsed[k].is_number(); },
      [&](std::size_t k) { return parsed[k].get<double>(); },
      [&](std::size_t i, const double(&source)[4], bool hasAlpha) {
        const ColorComponents& replacement = map_.replacementColor(source);
        for (std::size_t k = 1; k <= (hasAlpha ? 4u : 3u); ++k) {
          parsed[i + k] = replacement[k - 1];
        }
      });
  try {
    out += parsed.dump();
  } catch (const nlohmann::json::exception& error) {
    // The array was parsed from valid UTF-8 a moment ago, so writing it back cannot fail.
    std::fprintf(stderr, "DotLottieFile: a parsed gradient array cannot be written: %s\n",
                 error.what());
    std::abort();
  }
  return true;
}

} // namespace frameloom
