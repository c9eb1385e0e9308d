#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace frameloom::tool {

// Colours as the tool's users write them: "#RGB", "#RRGGBB" or "#RRGGBBAA" (hex digits in any
// letter case), several separated by commas. Each becomes red, green, blue and alpha in 0...1;
// alpha is 1 when not written. Throws std::invalid_argument naming the offending item.
std::vector<std::vector<double>> parseColorList(std::string_view text);

// The components in 0...1 as "#RRGGBBAA" (upper case); components outside 0...1 are clamped, a
// missing alpha is 1.
std::string formatHexColor(const std::vector<double>& components);

} // namespace frameloom::tool
