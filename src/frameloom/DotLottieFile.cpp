#include "frameloom/DotLottieFile.h"

#include "frameloom/ColorReplacement.h"

namespace frameloom {

std::string DotLottieFile::replaceColors(std::string text, std::vector<ColorComponents> colors,
                                         int precision) {
  ColorMap map(std::move(colors));
  return rewriteColors(std::move(text), map, precision);
}

std::vector<DotLottieFile::PaletteColor> DotLottieFile::palette(std::string text) {
  // Any colour does: only the order in which the map meets the source colours is kept.
  ColorMap map({{0.0, 0.0, 0.0, 1.0}});
  rewriteColors(std::move(text), map, 3);
  std::vector<PaletteColor> colors;
  colors.reserve(map.entries().size());
  for (const ColorMap::Entry& entry : map.entries()) {
    colors.push_back(PaletteColor{entry.key, entry.source, entry.uses});
  }
  return colors;
}

} // namespace frameloom
