#pragma once

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace frameloom::renderer {

// One glyph of a shaped line: its outline as Lottie path items ("sh"), in pixels at the size
// asked for, y pointing down, relative to the pen position; and how far it moves the pen.
struct ShapedGlyph {
  nlohmann::ordered_json paths;
  double advance = 0;
};

// A font of the system chosen through fontconfig by family and style (the closest it has, so a
// fallback font when the family is missing), shaped with HarfBuzz and outlined with FreeType.
// Owns its FreeType library, face and HarfBuzz font; used by one thread at a time. Throws
// nothing: a system without any usable font gives an object that shapes nothing.
class SystemFont {
public:
  SystemFont(const std::string& family, const std::string& style);
  ~SystemFont();
  SystemFont(const SystemFont&) = delete;
  SystemFont& operator=(const SystemFont&) = delete;

  bool usable() const;

  // The glyphs of one line of UTF-8 text at `size` pixels per em, in visual order.
  std::vector<ShapedGlyph> shape(std::string_view line, double size) const;

private:
  struct Handles;
  std::unique_ptr<Handles> handles_;
};

} // namespace frameloom::renderer
