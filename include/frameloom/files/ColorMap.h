#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace frameloom {

// Colour components red, green, blue and (optionally) alpha, normally in 0...1.
using ColorComponents = std::vector<double>;

// Three components get an opaque alpha of 1.0; four or more are cut to four; fewer than three
// are returned unchanged.
FRAMELOOM_EXPORT ColorComponents normalizedRGBA(std::span<const double> components);

// The identity of a source colour: red, green, blue and alpha (1.0 when absent), each rounded to
// three decimals (halves away from zero) and written in the shortest form that reads back as the
// same number with at least one digit after the point, joined by ",": "1.0,0.5,0.0,1.0".
// `normalized` must hold at least three components.
FRAMELOOM_EXPORT std::string colorKey(std::span<const double> normalized);

// Every component written as by printf's "%.<precision>f", joined by "," ("0.200,0.400").
// A negative precision writes six decimals, as printf does.
FRAMELOOM_EXPORT std::string formatComponents(std::span<const double> components, int precision);

// The state one recolouring shares across all its passes: each distinct source colour (by
// colorKey) takes the next colour of the list, round the list again when it runs out, the first
// time it is met, and keeps it. It also records, in order of first appearance, every source colour
// met and how many colour values shared it.
//
// Owns a copy of the colour list. One map serves one document on one thread.
class FRAMELOOM_EXPORT ColorMap {
public:
  struct Entry {
    ColorComponents source;      // the first value met with its colorKey, normalised
    ColorComponents replacement; // normalised
    std::size_t uses = 0;
  };

  // Throws std::invalid_argument when `colors` is empty or a colour has fewer than three
  // components: there would be nothing (or too little) to write.
  explicit ColorMap(std::vector<ColorComponents> colors);

  // The replacement for `source` (at least three components); normalised, so it has at least
  // four components. The reference stays valid until the next call.
  const ColorComponents& replacementColor(std::span<const double> source) {
    return entries_[replacementIndex(source)].replacement;
  }

  // The same, as the index of the source colour's entry.
  std::size_t replacementIndex(std::span<const double> source);

  const std::vector<Entry>& entries() const { return entries_; }
  // Which colour of the list the entry at `index` took: entries share replacements this way.
  std::size_t colorIndex(std::size_t index) const { return index % colors_.size(); }
  std::size_t nextColorIndex() const { return entries_.size(); }

private:
  // The four rounded components of a colour key, as bit patterns: equal exactly when the keys'
  // texts are, and much cheaper to make and compare.
  using RoundedKey = std::array<std::uint64_t, 4>;
  struct RoundedKeyHash {
    std::size_t operator()(const RoundedKey& key) const noexcept;
  };

  std::vector<ColorComponents> colors_;
  std::vector<Entry> entries_;
  std::unordered_map<RoundedKey, std::size_t, RoundedKeyHash> indexByKey_;
};

} // namespace frameloom
