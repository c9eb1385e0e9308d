#pragma once

#include <frameloom/files/ColorMap.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace frameloom {

// Rewrites gradient colour arrays (matches of the fourth colour pattern). The array is walked as
// stops of an offset followed by red, green, blue and, when the next element is a number no
// greater than 1.0001, an alpha; each stop's colour becomes its replacement. The offset is never
// touched; opacity stops that follow the colour stops are walked the same way, since nothing in
// the array tells them apart. The array is written back compactly even when no stop changed,
// numbers as the JSON writer writes them. Used by one recolouring call on its thread; throws only
// std::bad_alloc.
class GradientRewriter {
public:
  explicit GradientRewriter(ColorMap& map) : map_(map) {}

  // Appends the rewrite of `array` to `out` and returns true, or returns false and leaves `out`
  // as it was when the array is not a JSON array.
  bool rewrite(std::string_view array, std::string& out);

  // One number of a gradient array as the JSON parser would hold it: an integer keeps its text,
  // and every other number is written in the JSON writer's shortest form.
  struct GradientNumber {
    double value;
    std::string_view integer; // an integer's text, else empty
    // 1 + 4 x (colour's place in the list) + component when replaced by that colour's component
    std::size_t replacement = 0;
  };

private:
  std::size_t writeComponents(std::size_t entry);
  void rewritePlain(std::string& out);

  ColorMap& map_;
  // Each replacement colour's components as a gradient writes them, by its place in the list.
  std::vector<std::array<std::string, 4>> components_;
  std::vector<GradientNumber> stops_; // the array being read, kept to spare an allocation per array
};

} // namespace frameloom
