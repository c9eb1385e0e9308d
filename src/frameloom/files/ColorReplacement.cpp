#include <frameloom/files/ColorReplacement.h>

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <nlohmann/json.hpp>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

namespace frameloom {

const std::array<const char*, 4> colorPassPatterns = {
    R"("c"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))",
    R"("fc"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))",
    R"("sc"\s*:\s*(\[\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?)(?:\s*,\s*(0(?:\.\d+)?|1(?:\.0+)?))?\s*\]))",
    R"("g"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*\{\s*[^{}]*?"k"\s*:\s*(\[[^\]]+\]))",
};

namespace {

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};
struct MatchContextDeleter {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};

// A pass pattern, compiled once per process, JIT-compiled where the platform allows, then shared
// read-only by every thread.
using PassPattern = std::unique_ptr<pcre2_code, CodeDeleter>;

[[noreturn]] void patternFailure(const char* pattern, int error) {
  PCRE2_UCHAR message[256];
  pcre2_get_error_message(error, message, sizeof message);
  std::fprintf(stderr, "DotLottieFile: fixed colour pattern %s does not compile: %s\n", pattern,
               reinterpret_cast<const char*>(message));
  std::abort();
}

PassPattern compile(const char* pattern) {
  int error = 0;
  PCRE2_SIZE errorOffset = 0;
  // UTF with Unicode properties gives \s and \d their Unicode meanings; invalid UTF-8 in the
  // subject then simply never matches instead of failing the whole scan. The pattern is anchored
  // at the start offset because the scan itself finds where a match may begin (collectMatches);
  // anchoring at compile time rather than per match keeps the JIT in use.
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern), PCRE2_ZERO_TERMINATED,
                                   PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF | PCRE2_ANCHORED,
                                   &error, &errorOffset, nullptr);
  if (code == nullptr) {
    patternFailure(pattern, error);
  }
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  return PassPattern(code);
}

const pcre2_code* passPattern(int pass) {
  static const std::array<PassPattern, 4> patterns = {
      compile(colorPassPatterns[0]), compile(colorPassPatterns[1]), compile(colorPassPatterns[2]),
      compile(colorPassPatterns[3])};
  return patterns[static_cast<std::size_t>(pass)].get();
}

// Where each pass's matches may start: the positions of its key with its quotes ("c", "fc", "sc"
// and "g", in pass order), in text order, overlapping ones included.
using KeyPositions = std::array<std::vector<std::size_t>, 4>;

// Records the key starting at `position` if there is one there.
inline void addKey(KeyPositions& keys, std::string_view text, std::size_t position) {
  const char* p = text.data() + position;
  const std::size_t left = text.size() - position;
  if (left >= 3 && p[0] == '"' && p[2] == '"') {
    if (p[1] == 'c') {
      keys[0].push_back(position);
    } else if (p[1] == 'g') {
      keys[3].push_back(position);
    }
  } else if (left >= 4 && p[0] == '"' && p[2] == 'c' && p[3] == '"') {
    if (p[1] == 'f') {
      keys[1].push_back(position);
    } else if (p[1] == 's') {
      keys[2].push_back(position);
    }
  }
}

#if defined(__SSE2__)
// Sixteen places at a time: a place is a candidate when its bytes spell "c", "g", "fc" or "sc"
// with their quotes, so only the keys themselves are looked at one by one.
void findKeysInBlocks(KeyPositions& keys, std::string_view text, std::size_t& i) {
  const char* const data = text.data();
  const auto at = [data](std::size_t position) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + position));
  };
  const auto is = [](__m128i bytes, char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
  for (; i + 19 <= text.size(); i += 16) {
    const __m128i first = at(i);
    const __m128i quotes = is(first, '"');
    // Most blocks of a document's numbers hold no quote, and so no key.
    if (_mm_movemask_epi8(quotes) == 0) {
      continue;
    }
    const __m128i second = at(i + 1);
    const __m128i third = at(i + 2);
    const __m128i fourth = at(i + 3);
    const __m128i shortKey =
        _mm_and_si128(_mm_or_si128(is(second, 'c'), is(second, 'g')), is(third, '"'));
    const __m128i longKey =
        _mm_and_si128(_mm_and_si128(_mm_or_si128(is(second, 'f'), is(second, 's')), is(third, 'c')),
                      is(fourth, '"'));
    auto candidates = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(quotes, _mm_or_si128(shortKey, longKey))));
    while (candidates != 0) {
      addKey(keys, text, i + static_cast<std::size_t>(std::countr_zero(candidates)));
      candidates &= candidates - 1;
    }
  }
}
#else
inline std::uint64_t load(const char* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// 0x80 in every byte of `word` that is a quote, 0 elsewhere (exact: no borrow between bytes).
inline std::uint64_t quoteBytes(std::uint64_t word) {
  constexpr std::uint64_t low7 = 0x7F7F7F7F7F7F7F7FULL;
  const std::uint64_t x = word ^ 0x2222222222222222ULL;
  return ~(((x & low7) + low7) | x | low7);
}

// Eight places at a time: a key can only start at a quote that has another quote two or three
// bytes further on, and those few places are then looked at one by one.
void findKeysInBlocks(KeyPositions& keys, std::string_view text, std::size_t& i) {
  const char* const data = text.data();
  for (; i + 11 <= text.size(); i += 8) {
    std::uint64_t candidates = quoteBytes(load(data + i)) &
                               (quoteBytes(load(data + i + 2)) | quoteBytes(load(data + i + 3)));
    if constexpr (std::endian::native == std::endian::little) {
      while (candidates != 0) {
        addKey(keys, text, i + static_cast<std::size_t>(std::countr_zero(candidates)) / 8);
        candidates &= candidates - 1;
      }
    } else if (candidates != 0) {
      for (std::size_t k = 0; k < 8; ++k) {
        addKey(keys, text, i + k);
      }
    }
  }
}
#endif

KeyPositions findColorKeys(std::string_view text) {
  KeyPositions keys;
  std::size_t i = 0;
  findKeysInBlocks(keys, text, i);
  for (; i < text.size(); ++i) {
    addKey(keys, text, i);
  }
  return keys;
}

struct Range {
  std::size_t begin;
  std::size_t end;
};

// The match data and limits of one call's matching, made once for all its passes.
class Matcher {
public:
  Matcher()
      : data_(pcre2_match_data_create(maximumGroups, nullptr)),
        context_(pcre2_match_context_create(nullptr)) {
    if (!data_ || !context_) {
      throw std::bad_alloc();
    }
    // The scan's cost is linear in the text; the default limits would only cut long documents
    // short.
    pcre2_set_match_limit(context_.get(), UINT32_MAX);
    pcre2_set_depth_limit(context_.get(), UINT32_MAX);
  }

  pcre2_match_data* data() const { return data_.get(); }
  pcre2_match_context* context() const { return context_.get(); }

private:
  static constexpr std::uint32_t maximumGroups = 6; // the solid pattern's five and the match
  std::unique_ptr<pcre2_match_data, MatchDataDeleter> data_;
  std::unique_ptr<pcre2_match_context, MatchContextDeleter> context_;
};

// Finds the group-1 ranges of all non-overlapping matches, left to right, as one unanchored scan
// would. A match can only start at the pattern's key, so only those positions are tried, each
// with an anchored match. Every match ends with "]", so the subject ends at the last "]": a start
// that could only fail after running to the end of the text is not tried, which keeps
// unterminated arrays from making the scan quadratic.
std::vector<Range> collectMatches(const pcre2_code* pattern, std::string_view text,
                                  const std::vector<std::size_t>& starts, const Matcher& matcher) {
  std::vector<Range> ranges;
  const std::size_t lastBracket = text.rfind(']');
  if (starts.empty() || lastBracket == std::string_view::npos) {
    return ranges;
  }
  const std::size_t subjectEnd = lastBracket + 1;

  const auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
  std::size_t position = 0;
  for (const std::size_t start : starts) {
    if (start >= subjectEnd) {
      break;
    }
    if (start < position) {
      continue;
    }
    const int rc =
        pcre2_match(pattern, subject, subjectEnd, start, 0, matcher.data(), matcher.context());
    if (rc == PCRE2_ERROR_NOMEMORY) {
      throw std::bad_alloc();
    }
    if (rc <= 0) {
      continue;
    }
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(matcher.data());
    if (rc >= 2 && ovector[2] != PCRE2_UNSET) {
      ranges.push_back(Range{ovector[2], ovector[3]});
    }
    position = ovector[1];
  }
  return ranges;
}

// One replaced array: its range in the pass's input and the length of the text put there.
struct Edit {
  Range range;
  std::size_t length;
};

// Moves key positions found in a pass's input to where they stand in its output. A replaced
// range holds only an array of numbers, never a quote, so no key lies inside one.
void shiftPositions(std::vector<std::size_t>& positions, const std::vector<Edit>& edits) {
  std::size_t next = 0;
  std::ptrdiff_t shift = 0;
  for (std::size_t& position : positions) {
    while (next < edits.size() && edits[next].range.end <= position) {
      shift += static_cast<std::ptrdiff_t>(edits[next].length) -
               static_cast<std::ptrdiff_t>(edits[next].range.end - edits[next].range.begin);
      ++next;
    }
    position = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(position) + shift);
  }
}

// One number of a gradient array as the JSON parser would hold it: an integer keeps its text,
// and every other number is written in the JSON writer's shortest form.
struct GradientNumber {
  double value;
  std::string_view integer; // an integer's text, else empty
  // 1 + 4 x (colour's place in the list) + component when replaced by that colour's component
  std::size_t replacement = 0;
};

// What the passes of one call share: the map, the precision, and each replacement colour's
// text once written, by its place in the colour list.
struct PassState {
  Matcher matcher;
  ColorMap& map;
  int precision;
  std::vector<std::string> formatted;
  // Each replacement colour's components as a gradient writes them.
  std::vector<std::array<std::string, 4>> gradientComponents;
  std::vector<double> numbers;       // the array being read, kept to spare an allocation per array
  std::vector<GradientNumber> stops; // the same for a gradient
};

// Appends the rewrite of a colour array to `out` and returns true, or returns false and leaves
// `out` as it was when the array cannot be read.
using Rewrite = bool (*)(std::string_view array, PassState& state, std::string& out);

// Runs one pass: collects its matches on `text`, then builds in `scratch` a copy of `text` with
// each readable colour array swapped for its rewrite and swaps the two. The caller keeps
// `scratch` from pass to pass, so a document costs two buffers however many passes change it.
// Returns the edits made, in text order.
std::vector<Edit> runPass(std::string& text, std::string& scratch, int pass,
                          const std::vector<std::size_t>& starts, Rewrite rewrite, PassState& state,
                          const ColorEditObserver& observer) {
  std::vector<Edit> edits;
  const std::vector<Range> ranges = collectMatches(passPattern(pass), text, starts, state.matcher);
  if (ranges.empty()) {
    return edits;
  }
  scratch.clear();
  scratch.reserve(text.size() + text.size() / 8);
  std::size_t copied = 0;
  for (const Range& range : ranges) {
    scratch.append(text, copied, range.begin - copied);
    copied = range.begin;
    const std::size_t written = scratch.size();
    if (!rewrite(std::string_view(text).substr(range.begin, range.end - range.begin), state,
                 scratch)) {
      continue;
    }
    const std::size_t length = scratch.size() - written;
    if (observer) {
      observer(pass, range.begin, range.end, std::string_view(scratch).substr(written, length));
    }
    copied = range.end;
    edits.push_back(Edit{range, length});
  }
  if (!edits.empty()) {
    scratch.append(text, copied, std::string::npos);
    text.swap(scratch);
  }
  return edits;
}

nlohmann::json parseArray(std::string_view array) {
  nlohmann::json parsed = nlohmann::json::parse(array, nullptr, false);
  return parsed.is_array() ? parsed : nlohmann::json();
}

// The numbers of a solid or text colour array matched by its pattern, when the array holds
// nothing but ASCII digits, points, commas, brackets and JSON white space: then it is exactly
// the JSON array of three or four numbers the pattern describes, and reading the numbers directly
// gives what a JSON parser would (both round correctly). Other arrays, whose spaces or digits
// the pattern takes in their Unicode meaning, go through the JSON parser instead.
bool readPlainArray(std::string_view array, std::vector<double>& numbers) {
  for (const char c : array) {
    const bool plain = (c >= '0' && c <= '9') || c == '.' || c == ',' || c == '[' || c == ']' ||
                       c == ' ' || c == '\t' || c == '\n' || c == '\r';
    if (!plain) {
      return false;
    }
  }
  const char* p = array.data() + 1;
  const char* const end = array.data() + array.size() - 1;
  while (p < end) {
    if (*p >= '0' && *p <= '9') {
      double value = 0;
      p = std::from_chars(p, end, value).ptr;
      numbers.push_back(value);
    } else {
      ++p;
    }
  }
  return true;
}

// A solid or text colour: an array of three or four numbers becomes the replacement colour,
// every component written with `precision` decimals.
bool rewriteSolid(std::string_view array, PassState& state, std::string& out) {
  std::vector<double>& source = state.numbers;
  source.clear();
  if (!readPlainArray(array, source)) {
    const nlohmann::json parsed = parseArray(array);
    if (!parsed.is_array()) {
      return false;
    }
    for (const auto& element : parsed) {
      if (!element.is_number()) {
        return false;
      }
      source.push_back(element.get<double>());
    }
  }
  if (source.size() < 3) {
    return false;
  }
  const std::size_t entry = state.map.replacementIndex(source);
  const std::size_t index = state.map.colorIndex(entry);
  if (index >= state.formatted.size()) {
    state.formatted.resize(index + 1);
  }
  std::string& text = state.formatted[index];
  if (text.empty()) {
    text = '[';
    text += formatComponents(state.map.entries()[entry].replacement, state.precision);
    text += ']';
  }
  out += text;
  return true;
}

bool isJSONSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Reads a gradient array that holds nothing but numbers without exponents and with at most 15
// integer digits, which every double holds exactly, and JSON white space: almost every gradient.
// Returns false for anything else, which the JSON parser then reads.
bool readPlainGradient(std::string_view array, std::vector<GradientNumber>& numbers) {
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
      numbers.push_back(GradientNumber{0.0, "0"});
    } else {
      numbers.push_back(GradientNumber{value, integer ? std::string_view(start, p) : ""});
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

// Writes the replacement components of the map's entry `entry`, once per replacement colour, and
// returns the colour's place in the list.
std::size_t writeGradientComponents(PassState& state, std::size_t entry) {
  const std::size_t index = state.map.colorIndex(entry);
  if (index >= state.gradientComponents.size()) {
    state.gradientComponents.resize(index + 1);
  }
  std::array<std::string, 4>& texts = state.gradientComponents[index];
  if (texts[0].empty()) {
    const ColorComponents& replacement = state.map.entries()[entry].replacement;
    for (std::size_t k = 0; k < 4; ++k) {
      appendJSONNumber(texts[k], replacement[k]);
    }
  }
  return index;
}

// Walks the gradient's stops (below) over numbers read directly. A replaced number is written
// as its colour's component is, once per colour.
void rewritePlainGradient(std::vector<GradientNumber>& numbers, PassState& state,
                          std::string& out) {
  const std::size_t count = numbers.size();
  std::size_t i = 0;
  while (i + 3 < count) {
    const bool hasAlpha = i + 4 < count && numbers[i + 4].value <= 1.0001;
    const double source[4] = {numbers[i + 1].value, numbers[i + 2].value, numbers[i + 3].value,
                              hasAlpha ? numbers[i + 4].value : 1.0};
    const std::size_t index = writeGradientComponents(state, state.map.replacementIndex(source));
    for (std::size_t k = 1; k <= (hasAlpha ? 4u : 3u); ++k) {
      numbers[i + k].replacement = 1 + 4 * index + (k - 1);
    }
    i += hasAlpha ? 5 : 4;
  }
  out += '[';
  for (std::size_t k = 0; k < count; ++k) {
    if (k > 0) {
      out += ',';
    }
    if (const std::size_t r = numbers[k].replacement; r != 0) {
      out += state.gradientComponents[(r - 1) / 4][(r - 1) % 4];
    } else if (!numbers[k].integer.empty()) {
      out += numbers[k].integer;
    } else {
      appendJSONNumber(out, numbers[k].value);
    }
  }
  out += ']';
}

// A gradient: the array is walked as stops of an offset followed by red, green, blue and, when
// the next element is a number no greater than 1.0001, an alpha. The offset is never touched;
// opacity stops that follow the colour stops are walked the same way, since nothing in the array
// tells them apart. The array is written back compactly even when no stop changed, numbers as
// the JSON writer writes them.
bool rewriteGradient(std::string_view array, PassState& state, std::string& out) {
  state.stops.clear();
  state.stops.reserve(array.size() / 2 + 1);
  if (readPlainGradient(array, state.stops)) {
    rewritePlainGradient(state.stops, state, out);
    return true;
  }
  nlohmann::json parsed = parseArray(array);
  if (!parsed.is_array()) {
    return false;
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
      const ColorComponents& replacement = state.map.replacementColor(source);
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
    out += parsed.dump();
  } catch (const nlohmann::json::exception& error) {
    // The array was parsed from valid UTF-8 a moment ago, so writing it back cannot fail.
    std::fprintf(stderr, "DotLottieFile: a parsed gradient array cannot be written: %s\n",
                 error.what());
    std::abort();
  }
  return true;
}

} // namespace

std::string rewriteColors(std::string text, ColorMap& map, int precision,
                          const ColorEditObserver& observer) {
  // The keys are found once; each pass's edits then move the later passes' keys.
  KeyPositions keys = findColorKeys(text);
  std::string scratch;
  PassState state{{}, map, precision, {}, {}, {}, {}};
  for (int pass = 0; pass < 4; ++pass) {
    const std::vector<Edit> edits =
        runPass(text, scratch, pass, keys[static_cast<std::size_t>(pass)],
                pass == 3 ? rewriteGradient : rewriteSolid, state, observer);
    for (int later = pass + 1; later < 4 && !edits.empty(); ++later) {
      shiftPositions(keys[static_cast<std::size_t>(later)], edits);
    }
  }
  return text;
}

} // namespace frameloom
