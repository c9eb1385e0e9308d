#pragma once

#ifndef PCRE2_CODE_UNIT_WIDTH
#define PCRE2_CODE_UNIT_WIDTH 8
#endif
#include <pcre2.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

// Matching the four colour patterns (colorPassPatterns). The patterns are compiled once per
// process and then shared read-only by every thread; a ColorMatcher holds the match data of one
// recolouring call, so each thread uses its own. Throws only std::bad_alloc; a fixed pattern that
// does not compile is a programming error and aborts.
namespace frameloom {

// A byte range of a text.
struct TextRange {
  std::size_t begin;
  std::size_t end;
};

class ColorMatcher {
public:
  ColorMatcher();

  // Finds the group-1 ranges of all non-overlapping matches of pass `pass`'s pattern, left to
  // right, as one unanchored scan would. A match can only start at the pattern's key, so only
  // `starts` are tried, each with an anchored match. Every match ends with "]", so the subject
  // ends at the last "]": a start that could only fail after running to the end of the text is
  // not tried, which keeps unterminated arrays from making the scan quadratic.
  std::vector<TextRange> collectMatches(int pass, std::string_view text,
                                        const std::vector<std::size_t>& starts) const;

private:
  struct MatchDataDeleter {
    void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
  };
  struct MatchContextDeleter {
    void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
  };

  static constexpr std::uint32_t maximumGroups = 6; // the solid pattern's five and the match
  std::unique_ptr<pcre2_match_data, MatchDataDeleter> data_;
  std::unique_ptr<pcre2_match_context, MatchContextDeleter> context_;
};

} // namespace frameloom
