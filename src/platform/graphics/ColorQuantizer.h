#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace frameloom::platform {

// A frame reduced to at most 256 colours, for formats that store a palette per picture.
struct IndexedFrame {
  std::vector<std::array<std::uint8_t, 3>> palette;
  // One palette index per pixel, row by row.
  std::vector<std::uint8_t> indices;
  // The palette entry that stands for transparent pixels, or -1 when every pixel is opaque.
  int transparentIndex = -1;
};

// Reduces `frame` to at most `maxColors` (2...256) palette entries, one of them kept for
// transparency when a pixel's alpha is below one half. A frame with few enough distinct colours
// keeps them exactly; otherwise the palette comes from a median cut of the colour histogram and
// pixels are mapped onto it with Floyd-Steinberg error diffusion, so gradients do not band.
// Runs on the caller's thread; throws nothing but std::bad_alloc.
IndexedFrame quantize(const Image& frame, std::size_t maxColors);

} // namespace frameloom::platform
