#include <frameloom/files/ColorReplacement.h>

#include "frameloom/files/ColorKeyScan.h"
#include "frameloom/files/ColorPatternMatching.h"
#include "frameloom/files/GradientRewrite.h"
#include "frameloom/files/SolidColorRewrite.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace frameloom {

namespace {

// One replaced array: its range in the pass's input and the length of the text put there.
struct Edit {
  TextRange range;
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

// Runs one pass: collects its matches on `text`, then builds in `scratch` a copy of `text` with
// each readable colour array swapped for what `rewrite` appends and swaps the two. The caller keeps
// `scratch` from pass to pass, so a document costs two buffers however many passes change it.
// Returns the edits made, in text order.
template <typename Rewrite>
std::vector<Edit> runPass(std::string& text, std::string& scratch, int pass,
                          const std::vector<std::size_t>& starts, const ColorMatcher& matcher,
                          Rewrite rewrite, const ColorEditObserver& observer) {
  std::vector<Edit> edits;
  const std::vector<TextRange> ranges = matcher.collectMatches(pass, text, starts);
  if (ranges.empty()) {
    return edits;
  }
  scratch.clear();
  scratch.reserve(text.size() + text.size() / 8);
  std::size_t copied = 0;
  for (const TextRange& range : ranges) {
    scratch.append(text, copied, range.begin - copied);
    copied = range.begin;
    const std::size_t written = scratch.size();
    if (!rewrite(std::string_view(text).substr(range.begin, range.end - range.begin), scratch)) {
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

} // namespace

std::string rewriteColors(std::string text, ColorMap& map, int precision,
                          const ColorEditObserver& observer) {
  // The keys are found once; each pass's edits then move the later passes' keys.
  KeyPositions keys = findColorKeys(text);
  std::string scratch;
  const ColorMatcher matcher;
  SolidColorRewriter solid(map, precision);
  GradientRewriter gradient(map);
  for (int pass = 0; pass < 4; ++pass) {
    const auto rewrite = [&](std::string_view array, std::string& out) {
      return pass == 3 ? gradient.rewrite(array, out) : solid.rewrite(array, out);
    };
    const std::vector<Edit> edits = runPass(
        text, scratch, pass, keys[static_cast<std::size_t>(pass)], matcher, rewrite, observer);
    for (int later = pass + 1; later < 4 && !edits.empty(); ++later) {
      shiftPositions(keys[static_cast<std::size_t>(later)], edits);
    }
  }
  return text;
}

} // namespace frameloom
