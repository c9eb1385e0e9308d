#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace frameloom::renderer {

// Width and height of a picture, read from its header without decoding it.
struct PictureExtent {
  std::uint32_t width = 0;
  std::uint32_t height = 0;

  std::uint64_t pixels() const { return std::uint64_t{width} * height; }
};

// The canvas a PNG, JPEG or GIF picture decodes to, as its header declares it; none for other
// formats and for headers that are cut short or malformed. Pure function of the bytes; never
// throws.
std::optional<PictureExtent> pictureExtent(std::string_view bytes);

} // namespace frameloom::renderer
