#include "renderer/TextLayers.h"

#include "renderer/DocumentRepairs.h"
#include "renderer/SystemFont.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Text beyond this many bytes per text document is cut: a caption is far shorter, and every
// glyph becomes shapes in the document.
constexpr std::size_t maxTextBytes = 4096;
// Glyphs turned into shapes per document; text layers beyond are left undrawn. Bounds the size
// of the rewritten document whatever the text layers and keyframes multiply to.
constexpr std::size_t maxGlyphsPerDocument = 20000;
// Exporters write a font's ascent in hundredths of the font size; this is the usual one when the
// document gives none.
constexpr double defaultAscent = 75;

struct FontInfo {
  std::string family;
  std::string style;
  double ascent = defaultAscent;
};

struct Glyph {
  Json items;
  double advance = 0;
};

double numberOr(const Json& object, const char* key, double fallback) {
  const auto member = object.find(key);
  if (member == object.end()) {
    return fallback;
  }
  const Json& value = member->is_array() && !member->empty() ? member->front() : *member;
  return value.is_number() && std::isfinite(value.get<double>()) ? value.get<double>() : fallback;
}

std::string stringOr(const Json& object, const char* key) {
  const auto member = object.find(key);
  return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

Json staticValue(Json value) {
  return {{"a", 0}, {"k", std::move(value)}};
}

Json transformItem(double x, double y, double scalePercent) {
  Json item = Json::object();
  item["ty"] = "tr";
  item["p"] = staticValue({x, y});
  item["a"] = staticValue({0, 0});
  item["s"] = staticValue({scalePercent, scalePercent});
  item["r"] = staticValue(0);
  item["o"] = staticValue(100);
  return item;
}

Json group(Json items) {
  Json item = Json::object();
  item["ty"] = "gr";
  item["it"] = std::move(items);
  return item;
}

// The length in bytes of the UTF-8 sequence that starts with `lead` (1 for a stray byte).
std::size_t sequenceLength(unsigned char lead) {
  return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
}

std::vector<std::string> characters(std::string_view text) {
  std::vector<std::string> result;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length =
        std::min(sequenceLength(static_cast<unsigned char>(text[i])), text.size() - i);
    result.emplace_back(text.substr(i, length));
    i += length;
  }
  return result;
}

std::vector<std::string> split(std::string_view text, std::string_view separators) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find_first_of(separators, start);
    parts.emplace_back(text.substr(start, end - start));
    if (end == std::string_view::npos) {
      return parts;
    }
    start = end + 1;
  }
}

// The glyph sources of one document: its "chars" by character, family and style, and the system
// fonts opened so far.
class GlyphSource {
public:
  explicit GlyphSource(const Json& document) {
    const auto fonts = document.find("fonts");
    if (fonts != document.end() && fonts->is_object() && fonts->contains("list") &&
        (*fonts)["list"].is_array()) {
      for (const Json& font : (*fonts)["list"]) {
        if (font.is_object()) {
          fonts_[stringOr(font, "fName")] = {stringOr(font, "fFamily"), stringOr(font, "fStyle"),
                                             numberOr(font, "ascent", defaultAscent)};
        }
      }
    }
    const auto chars = document.find("chars");
    if (chars != document.end() && chars->is_array()) {
      for (const Json& glyph : *chars) {
        const auto data = glyph.is_object() ? glyph.find("data") : glyph.end();
        if (data != glyph.end() && data->is_object()) {
          charsFor_[{stringOr(glyph, "ch"), stringOr(glyph, "fFamily"), stringOr(glyph, "style")}] =
              &glyph;
          familiesWithChars_.insert({stringOr(glyph, "fFamily"), stringOr(glyph, "style")});
        }
      }
    }
  }

  FontInfo font(const std::string& name) const {
    const auto found = fonts_.find(name);
    return found != fonts_.end() ? found->second : FontInfo{name, std::string(), defaultAscent};
  }

  // The glyphs of one line, each positioned relative to its own pen position.
  std::vector<Glyph> glyphs(const std::string& line, const FontInfo& font, double size) {
    std::vector<Glyph> result;
    if (familiesWithChars_.contains({font.family, font.style})) {
      for (const std::string& character : characters(line)) {
        const auto found = charsFor_.find({character, font.family, font.style});
        if (found == charsFor_.end()) {
          continue;
        }
        const Json& glyph = *found->second;
        const Json& data = *glyph.find("data");
        const auto shapes = data.find("shapes");
        Json items = shapes != data.end() && shapes->is_array() ? *shapes : Json::array();
        // Glyphs are drawn at size 100.
        items.push_back(transformItem(0, 0, size));
        result.push_back({group(std::move(items)), numberOr(glyph, "w", 0) * size / 100});
      }
      return result;
    }
    auto& systemFont = systemFonts_[{font.family, font.style}];
    if (!systemFont) {
      systemFont = std::make_unique<SystemFont>(font.family, font.style);
    }
    for (ShapedGlyph& shaped : systemFont->shape(line, size)) {
      shaped.paths.push_back(transformItem(0, 0, 100));
      result.push_back({group(std::move(shaped.paths)), shaped.advance});
    }
    return result;
  }

private:
  using Key = std::tuple<std::string, std::string, std::string>;
  std::map<std::string, FontInfo> fonts_;
  std::map<Key, const Json*> charsFor_;
  std::set<std::pair<std::string, std::string>> familiesWithChars_;
  std::map<std::pair<std::string, std::string>, std::unique_ptr<SystemFont>> systemFonts_;
};

double lineWidth(const std::vector<Glyph>& glyphs, double tracking) {
  double width = 0;
  for (const Glyph& glyph : glyphs) {
    width += glyph.advance + tracking;
  }
  return width;
}

Json colorItem(const char* type, const Json& color) {
  Json item = Json::object();
  item["ty"] = type;
  Json rgba = Json::array();
  for (std::size_t i = 0; i < 3; ++i) {
    rgba.push_back(color.is_array() && i < color.size() && color[i].is_number()
                       ? color[i].get<double>()
                       : 0.0);
  }
  rgba.push_back(1);
  item["c"] = staticValue(rgba);
  item["o"] = staticValue(100);
  return item;
}

// The shapes of one text document: its glyph groups, then its stroke and fill.
Json textGroup(const Json& text, GlyphSource& source, std::size_t& glyphBudget) {
  const double size = numberOr(text, "s", 10);
  const FontInfo font = source.font(stringOr(text, "f"));
  const double tracking = numberOr(text, "tr", 0) / 1000 * size;
  const double lineHeight = numberOr(text, "lh", size * 1.2);
  const double baselineShift = numberOr(text, "ls", 0);
  const int justification = static_cast<int>(numberOr(text, "j", 0));
  std::string content = stringOr(text, "t").substr(0, maxTextBytes);
  if (numberOr(text, "ca", 0) == 1) {
    for (char& c : content) {
      c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
  }
  const auto box = text.find("sz");
  const bool boxed = box != text.end() && box->is_array() && box->size() == 2 &&
                     (*box)[0].is_number() && (*box)[1].is_number();
  const double boxWidth = boxed ? (*box)[0].get<double>() : 0;
  double left = 0;
  double top = 0;
  if (boxed) {
    const auto position = text.find("ps");
    if (position != text.end() && position->is_array() && position->size() == 2 &&
        (*position)[0].is_number() && (*position)[1].is_number()) {
      left = (*position)[0].get<double>();
      top = (*position)[1].get<double>();
    }
    top += font.ascent * size / 100;
  }

  std::vector<std::vector<Glyph>> lines;
  for (const std::string& paragraph : split(content, "\r\n\x03")) {
    if (!boxed) {
      lines.push_back(source.glyphs(paragraph, font, size));
      continue;
    }
    // Words go on the current line while it fits the box; a word wider than the box gets a line.
    std::string current;
    for (const std::string& word : split(paragraph, " ")) {
      const std::string candidate = current.empty() ? word : current + " " + word;
      if (!current.empty() &&
          lineWidth(source.glyphs(candidate, font, size), tracking) > boxWidth) {
        lines.push_back(source.glyphs(current, font, size));
        current = word;
      } else {
        current = candidate;
      }
    }
    lines.push_back(source.glyphs(current, font, size));
  }

  Json items = Json::array();
  for (std::size_t row = 0; row < lines.size(); ++row) {
    const double width = lineWidth(lines[row], tracking);
    const double room = boxed ? boxWidth - width : -width;
    double pen = left + (justification == 1 ? room : justification == 2 ? room / 2 : 0);
    const double baseline = top + static_cast<double>(row) * lineHeight - baselineShift;
    for (Glyph& glyph : lines[row]) {
      if (glyphBudget == 0) {
        break;
      }
      --glyphBudget;
      items.push_back(
          group(Json::array({std::move(glyph.items), transformItem(pen, baseline, 100)})));
      pen += glyph.advance + tracking;
    }
  }

  const auto stroke = text.find("sc");
  const double strokeWidth = numberOr(text, "sw", 0);
  const auto fillColor = text.find("fc");
  Json fill = colorItem("fl", fillColor != text.end() ? *fillColor : Json());
  fill["r"] = 1;
  if (stroke != text.end() && strokeWidth > 0) {
    Json line = colorItem("st", *stroke);
    line["w"] = staticValue(strokeWidth);
    line["lc"] = 2;
    line["lj"] = 2;
    const auto order = text.find("of");
    const bool strokeOverFill = order != text.end() && order->is_boolean() && order->get<bool>();
    items.push_back(strokeOverFill ? line : fill);
    items.push_back(strokeOverFill ? fill : line);
  } else if (fillColor != text.end()) {
    items.push_back(fill);
  }
  items.push_back(transformItem(0, 0, 100));
  return group(std::move(items));
}

// Hold keyframes of an opacity that is 100 from `from` until `until` (when given) and 0 around.
Json shownBetween(double from, const double* until, bool first) {
  Json keys = Json::array();
  if (!first) {
    keys.push_back({{"t", from - 1}, {"s", {0}}, {"h", 1}});
  }
  keys.push_back({{"t", from}, {"s", {100}}, {"h", 1}});
  if (until) {
    keys.push_back({{"t", *until}, {"s", {0}}, {"h", 1}});
  }
  return {{"a", 1}, {"k", keys}};
}

} // namespace

bool textLayersAsShapes(Json& document) {
  bool changed = false;
  GlyphSource source(document);
  std::size_t glyphBudget = maxGlyphsPerDocument;
  forEachLayer(document, [&](Json& layer) {
    const auto type = layer.find("ty");
    const auto text = layer.find("t");
    if (type == layer.end() || *type != 5 || text == layer.end() || !text->is_object() ||
        !text->contains("d") || !(*text)["d"].is_object()) {
      return;
    }
    const auto found = (*text)["d"].find("k");
    if (found == (*text)["d"].end() || !found->is_array()) {
      return;
    }
    const Json keyframes = *found;
    Json shapes = Json::array();
    for (std::size_t i = 0; i < keyframes.size(); ++i) {
      if (!keyframes[i].is_object() || !keyframes[i].contains("s") ||
          !keyframes[i]["s"].is_object()) {
        continue;
      }
      Json shown = textGroup(keyframes[i]["s"], source, glyphBudget);
      if (keyframes.size() > 1) {
        const double from = numberOr(keyframes[i], "t", 0);
        const double next = i + 1 < keyframes.size() ? numberOr(keyframes[i + 1], "t", 0) : 0;
        shown["it"].back()["o"] =
            shownBetween(from, i + 1 < keyframes.size() ? &next : nullptr, i == 0);
      }
      shapes.push_back(std::move(shown));
    }
    *type = 4;
    layer.erase("t");
    layer["shapes"] = std::move(shapes);
    changed = true;
  });
  return changed;
}

} // namespace frameloom::renderer
