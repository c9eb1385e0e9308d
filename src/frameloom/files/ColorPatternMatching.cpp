#include "frameloom/files/ColorPatternMatching.h"

#include <frameloom/files/ColorReplacement.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>

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

} // namespace

ColorMatcher::ColorMatcher()
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

std::vector<TextRange> ColorMatcher::collectMatches(int pass, std::string_view text,
                                                    const std::vector<std::size_t>& starts) const {
  const pcre2_code* pattern = passPattern(pass);
  std::vector<TextRange> ranges;
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
    const int rc = pcre2_match(pattern, subject, subjectEnd, start, 0, data_.get(), context_.get());
    if (rc == PCRE2_ERROR_NOMEMORY) {
      throw std::bad_alloc();
    }
    if (rc <= 0) {
      continue;
    }
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data_.get());
    if (rc >= 2 && ovector[2] != PCRE2_UNSET) {
      ranges.push_back(TextRange{ovector[2], ovector[3]});
    }
    position = ovector[1];
  }
  return ranges;
}

} // namespace frameloom
