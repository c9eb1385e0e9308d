#include "frameloom/ColorReplacement.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace frameloom {
namespace {

// The patterns of the four passes. Group 1 is the colour array, the only text a pass replaces.
constexpr const char* solidPattern =
    R"("c"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))";
constexpr const char* textFillPattern =
    R"("fc"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))";
constexpr const char* textStrokePattern =
    R"("sc"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))";
constexpr const char* gradientPattern =
    R"("g"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*(\[[^\]]+\]))";

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
struct MatchContextDeleter {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};

// A compiled pass pattern with the literal every match starts with. Compiled once per process,
// JIT-compiled where the platform allows, then shared read-only by every thread.
struct PassPattern {
  std::string_view prefix;
  std::unique_ptr<pcre2_code, CodeDeleter> code;
};

[[noreturn]] void patternFailure(const char* pattern, int error) {
  PCRE2_UCHAR message[256];
  pcre2_get_error_message(error, message, sizeof message);
  std::fprintf(stderr, "DotLottieFile: fixed colour pattern %s does not compile: %s\n", pattern,
               reinterpret_cast<const char*>(message));
  std::abort();
}

PassPattern compile(std::string_view prefix, const char* pattern) {
  int error = 0;
  PCRE2_SIZE errorOffset = 0;
  // UTF with Unicode properties gives \s and \d their Unicode meanings; invalid UTF-8 in the
  // subject then simply never matches instead of failing the whole scan.
  pcre2_code* code =
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                    PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &error, &errorOffset, nullptr);
  if (code == nullptr) {
    patternFailure(pattern, error);
  }
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  return PassPattern{prefix, std::unique_ptr<pcre2_code, CodeDeleter>(code)};
}

const PassPattern& solid() {
  static const PassPattern pattern = compile(R"("c")", solidPattern);
  return pattern;
}
const PassPattern& textFill() {
  static const PassPattern pattern = compile(R"("fc")", textFillPattern);
  return pattern;
}
const PassPattern& textStroke() {
  static const PassPattern pattern = compile(R"("sc")", textStrokePattern);
  return pattern;
}
const PassPattern& gradient() {
  static const PassPattern pattern = compile(R"("g")", gradientPattern);
  return pattern;
}

struct Range {
  std::size_t begin;
  std::size_t end;
};

// Finds the group-1 ranges of all non-overlapping matches, left to right, as one unanchored
// scan would. A match can only start where the pattern's literal prefix stands, so the scan jumps
// from one occurrence of it to the next and tries an anchored match there. Every match ends with
// "]", so the subject ends at the last "]": a start that could only fail after running to the end
// of the text is not tried, which keeps unterminated arrays from making the scan quadratic.
std::vector<Range> collectMatches(const PassPattern& pattern, std::string_view text) {
  std::vector<Range> ranges;
  const std::size_t lastBracket = text.rfind(']');
  if (lastBracket == std::string_view::npos) {
    return ranges;
  }
  const std::size_t subjectEnd = lastBracket + 1;

  std::unique_ptr<pcre2_match_data, MatchDataDeleter> matchData(
      pcre2_match_data_create_from_pattern(pattern.code.get(), nullptr));
  std::unique_ptr<pcre2_match_context, MatchContextDeleter> context(
      pcre2_match_context_create(nullptr));
  if (!matchData || !context) {
    throw std::bad_alloc();
  }
  // The scan's cost is linear in the text; the default limits would only cut long documents short.
  pcre2_set_match_limit(context.get(), UINT32_MAX);
  pcre2_set_depth_limit(context.get(), UINT32_MAX);

  const auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
  std::size_t position = 0;
  while (position < subjectEnd) {
    const void* found = memmem(text.data() + position, subjectEnd - position, pattern.prefix.data(),
                               pattern.prefix.size());
    if (found == nullptr) {
      break;
    }
    const auto start = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    const int rc = pcre2_match(pattern.code.get(), subject, subjectEnd, start, PCRE2_ANCHORED,
                               matchData.get(), context.get());
    if (rc == PCRE2_ERROR_NOMEMORY) {
      throw std::bad_alloc();
    }
    if (rc <= 0) {
      position = start + 1;
      continue;
    }
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(matchData.get());
    if (rc >= 2 && ovector[2] != PCRE2_UNSET) {
      ranges.push_back(Range{ovector[2], ovector[3]});
    }
    position = ovector[1];
  }
  return ranges;
}

using Rewrite = std::optional<std::string> (*)(std::string_view array, ColorMap& map,
                                               int precision);

// Runs one pass: collects its matches on `text`, then copies `text` with each readable colour
// array swapped for its rewrite.
std::string runPass(std::string text, const PassPattern& pattern, Rewrite rewrite, ColorMap& map,
                    int precision) {
  const std::vector<Range> ranges = collectMatches(pattern, text);
  if (ranges.empty()) {
    return text;
  }
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  std::size_t copied = 0;
  for (const Range& range : ranges) {
    std::optional<std::string> replacement = rewrite(
        std::string_view(text).substr(range.begin, range.end - range.begin), map, precision);
    if (!replacement) {
      continue;
    }
    result.append(text, copied, range.begin - copied);
    result += *replacement;
    copied = range.end;
  }
  if (copied == 0) {
    return text;
  }
  result.append(text, copied, std::string::npos);
  return result;
}

nlohmann::json parseArray(std::string_view array) {
  nlohmann::json parsed = nlohmann::json::parse(array, nullptr, false);
  return parsed.is_array() ? parsed : nlohmann::json();
}

// A solid or text colour: an array of three or four numbers becomes the replacement colour,
// every component written with `precision` decimals.
std::optional<std::string> rewriteSolid(std::string_view array, ColorMap& map, int precision) {
  const nlohmann::json parsed = parseArray(array);
  if (!parsed.is_array()) {
    return std::nullopt;
  }
  std::vector<double> source;
  source.reserve(parsed.size());
  for (const auto& element : parsed) {
    if (!element.is_number()) {
      return std::nullopt;
    }
    source.push_back(element.get<double>());
  }
  if (source.size() < 3) {
    return std::nullopt;
  }
  const ColorComponents& replacement = map.replacementColor(source);
  return "[" + formatComponents(replacement, precision) + "]";
}

// A gradient: the array is walked as stops of an offset followed by red, green, blue and, when
// the next element is a number no greater than 1.0001, an alpha. The offset is never touched;
// opacity stops that follow the colour stops are walked the same way, since nothing in the array
// tells them apart. The array is written back compactly even when no stop changed.
std::optional<std::string> rewriteGradient(std::string_view array, ColorMap& map, int) {
  nlohmann::json parsed = parseArray(array);
  if (!parsed.is_array()) {
    return std::nullopt;
  }
  const std::size_t count = parsed.size();
  std::size_t i = 0;
  while (i + 3 < count) {
    const bool hasAlpha =
        i + 4 < count && parsed[i + 4].is_number() && parsed[i + 4].get<double>() <= 1.0001;
    if (parsed[i + 1].is_number() && parsed[i + 2].is_number() && parsed[i + 3].is_number()) {
      const double source[4] = {parsed[i + 1].get<double>(), parsed[i + 2].get<double>(),
                                parsed[i + 3].get<double>(),
                                hasAlpha ? parsed[i + 4].get<double>() : 1.0};
      const ColorComponents& replacement = map.replacementColor(source);
      parsed[i + 1] = replacement[0];
      parsed[i + 2] = replacement[1];
      parsed[i + 3] = replacement[2];
      if (hasAlpha) {
        parsed[i + 4] = replacement[3];
      }
    }
    i += hasAlpha ? 5 : 4;
  }
  try {
    return parsed.dump();
  } catch (const nlohmann::json::exception& error) {
    // The array was parsed from valid UTF-8 a moment ago, so writing it back cannot fail.
    std::fprintf(stderr, "DotLottieFile: a parsed gradient array cannot be written: %s\n",
                 error.what());
    std::abort();
  }
}

} // namespace

std::string rewriteColors(std::string text, ColorMap& map, int precision) {
  text = runPass(std::move(text), solid(), rewriteSolid, map, precision);
  text = runPass(std::move(text), textFill(), rewriteSolid, map, precision);
  text = runPass(std::move(text), textStroke(), rewriteSolid, map, precision);
  return runPass(std::move(text), gradient(), rewriteGradient, map, precision);
}

} // namespace frameloom
