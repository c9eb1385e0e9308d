#pragma once

#include <frameloom/files/ColorMap.h>

#include <string>
#include <string_view>
#include <vector>

namespace frameloom {

// Rewrites solid and text colour arrays (matches of the first three colour patterns): an array of
// three or four numbers becomes its replacement colour, every component written with `precision`
// decimals. Each replacement colour is written once per rewriter. Used by one recolouring call on
// its thread; throws only std::bad_alloc.
class SolidColorRewriter {
public:
  SolidColorRewriter(ColorMap& map, int precision) : map_(map), precision_(precision) {}

  // Appends the rewrite of `array` to `out` and returns true, or returns false and leaves `out`
  // as it was when the array cannot be read.
  bool rewrite(std::string_view array, std::string& out);

private:
  ColorMap& map_;
  int precision_;
  std::vector<std::string> formatted_; // each replacement colour's text, by its place in the list
  std::vector<double> numbers_; // the array being read, kept to spare an allocation per array
};

} // namespace frameloom
