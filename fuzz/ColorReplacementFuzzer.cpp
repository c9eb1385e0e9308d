// Feeds arbitrary text and palettes to the colour replacement and checks, on every input, that
// the result is the input with only whole colour arrays replaced: each replaced range must be
// group 1 of a match that a plain left-to-right scan with the same pattern finds in that pass's
// input, and the result must be exactly the input with those ranges swapped.
//
// Input layout: one byte for the number of colours (1 to 4), four bytes per colour, one byte for
// the precision, then the text.

#include <frameloom/files/ColorMap.h>
#include <frameloom/files/ColorReplacement.h>
#include <frameloom/files/DotLottieFile.h>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <nlohmann/json.hpp>
#include <pcre2.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using Range = std::pair<std::size_t, std::size_t>;

struct Edit {
  std::size_t begin;
  std::size_t end;
  std::string replacement;
};

void check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "colour replacement fault: %s\n", what);
    std::abort();
  }
}

pcre2_code* referencePattern(int pass) {
  static pcre2_code* patterns[4] = {};
  if (patterns[pass] == nullptr) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    patterns[pass] = pcre2_compile(
        reinterpret_cast<PCRE2_SPTR>(frameloom::colorPassPatterns[static_cast<std::size_t>(pass)]),
        PCRE2_ZERO_TERMINATED, PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &error, &offset,
        nullptr);
    check(patterns[pass] != nullptr, "pattern does not compile");
  }
  return patterns[pass];
}

// Group 1 of every match of one unanchored scan over the whole text, without the jumps and the
// shortened subject the library uses.
std::set<Range> referenceRanges(int pass, const std::string& text) {
  pcre2_code* code = referencePattern(pass);
  pcre2_match_data* data = pcre2_match_data_create_from_pattern(code, nullptr);
  std::set<Range> ranges;
  std::size_t offset = 0;
  while (offset <= text.size()) {
    const int rc = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), offset,
                               0, data, nullptr);
    if (rc <= 0) {
      break;
    }
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
    if (ovector[2] != PCRE2_UNSET) {
      ranges.emplace(ovector[2], ovector[3]);
    }
    offset = ovector[1];
  }
  pcre2_match_data_free(data);
  return ranges;
}

using Replacements = std::map<std::string, frameloom::ColorComponents>;

const frameloom::ColorComponents& replacementOf(const Replacements& replacements,
                                                std::vector<double> source) {
  const auto found = replacements.find(frameloom::colorKey(frameloom::normalizedRGBA(source)));
  check(found != replacements.end(), "a replaced colour is not in the map");
  return found->second;
}

// What a solid or text colour array becomes: its colour's replacement, each component printed
// with "%.<precision>f".
std::string expectedSolid(std::string_view array, const Replacements& replacements, int precision) {
  const auto parsed = nlohmann::json::parse(array, nullptr, false);
  check(parsed.is_array() && parsed.size() >= 3, "a replaced colour array does not parse");
  std::string text = "[";
  for (const double component : replacementOf(replacements, parsed.get<std::vector<double>>())) {
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, "%.*f", precision, component);
    text += (text.size() > 1 ? "," : "") + std::string(buffer);
  }
  return text + "]";
}

// What a gradient array becomes: walked stop by stop through the parsed array, then written
// back by the JSON writer.
std::string expectedGradient(std::string_view array, const Replacements& replacements) {
  auto parsed = nlohmann::json::parse(array, nullptr, false);
  check(parsed.is_array(), "a replaced gradient does not parse");
  for (std::size_t i = 0; i + 3 < parsed.size();) {
    const bool alpha =
        i + 4 < parsed.size() && parsed[i + 4].is_number() && parsed[i + 4].get<double>() <= 1.0001;
    if (parsed[i + 1].is_number() && parsed[i + 2].is_number() && parsed[i + 3].is_number()) {
      const auto& color = replacementOf(
          replacements, {parsed[i + 1].get<double>(), parsed[i + 2].get<double>(),
                         parsed[i + 3].get<double>(), alpha ? parsed[i + 4].get<double>() : 1.0});
      for (std::size_t k = 0; k < (alpha ? 4u : 3u); ++k) {
        parsed[i + 1 + k] = color[k];
      }
    }
    i += alpha ? 5 : 4;
  }
  return parsed.dump();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) {
    return 0;
  }
  const std::size_t count = data[0] % 4 + 1;
  if (size < 2 + 4 * count) {
    return 0;
  }
  std::vector<frameloom::ColorComponents> colors;
  for (std::size_t i = 0; i < count; ++i) {
    // Up to 1.275, so that some replacements fall outside what the patterns accept.
    const std::uint8_t* bytes = data + 1 + 4 * i;
    colors.push_back({bytes[0] / 200.0, bytes[1] / 200.0, bytes[2] / 200.0, bytes[3] / 200.0});
  }
  const int precision = data[1 + 4 * count] % 8 - 1;
  const std::string text(reinterpret_cast<const char*>(data) + 2 + 4 * count, size - 2 - 4 * count);

  std::vector<Edit> edits[4];
  frameloom::ColorMap map(colors);
  const std::string result = frameloom::rewriteColors(
      text, map, precision,
      [&](int pass, std::size_t begin, std::size_t end, std::string_view replacement) {
        edits[pass].push_back(Edit{begin, end, std::string(replacement)});
      });

  Replacements replacements;
  for (const auto& entry : map.entries()) {
    replacements.emplace(frameloom::colorKey(entry.source), entry.replacement);
  }
  std::string expected = text;
  for (int pass = 0; pass < 4; ++pass) {
    const std::set<Range> matches = referenceRanges(pass, expected);
    std::string next;
    std::size_t copied = 0;
    for (const Edit& edit : edits[pass]) {
      check(matches.count({edit.begin, edit.end}) == 1, "replaced range is not a colour array");
      check(edit.begin >= copied, "replaced ranges overlap or run backwards");
      check(!edit.replacement.empty() && edit.replacement.front() == '[' &&
                edit.replacement.back() == ']',
            "replacement is not an array");
      const std::string_view array =
          std::string_view(expected).substr(edit.begin, edit.end - edit.begin);
      check(edit.replacement == (pass == 3 ? expectedGradient(array, replacements)
                                           : expectedSolid(array, replacements, precision)),
            "a colour array was not rewritten as its parsed numbers call for");
      next.append(expected, copied, edit.begin - copied);
      next += edit.replacement;
      copied = edit.end;
    }
    next.append(expected, copied, std::string::npos);
    expected = std::move(next);
  }
  check(result == expected, "text outside the replaced arrays changed");

  check(frameloom::DotLottieFile::palette(text).size() == map.nextColorIndex(),
        "palette and replacement disagree on the distinct colours");
  return 0;
}
