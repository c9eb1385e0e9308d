#include "renderer/SystemFont.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <hb-ft.h>
#include <hb.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <string>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// An outline with more points than this is not a letter; it is left out rather than written
// into the document point by point.
constexpr int maxOutlinePoints = 4096;

struct Point {
  double x, y;
};

// Collects FreeType's contours as Lottie paths: vertices with in and out tangents relative to
// them, y flipped so that it points down, scaled from font units to pixels.
class PathBuilder {
public:
  PathBuilder(double scale, Point origin) : scale_(scale), origin_(origin) {}

  static int moveTo(const FT_Vector* to, void* self) {
    auto& builder = *static_cast<PathBuilder*>(self);
    builder.close();
    builder.vertex(builder.point(to));
    return 0;
  }
  static int lineTo(const FT_Vector* to, void* self) {
    auto& builder = *static_cast<PathBuilder*>(self);
    builder.vertex(builder.point(to));
    return 0;
  }
  static int conicTo(const FT_Vector* control, const FT_Vector* to, void* self) {
    auto& builder = *static_cast<PathBuilder*>(self);
    const Point from = builder.last_;
    const Point c = builder.point(control);
    const Point end = builder.point(to);
    // The cubic equal to the quadratic: control points two thirds of the way to its control.
    builder.curve({from.x + 2.0 / 3 * (c.x - from.x), from.y + 2.0 / 3 * (c.y - from.y)},
                  {end.x + 2.0 / 3 * (c.x - end.x), end.y + 2.0 / 3 * (c.y - end.y)}, end);
    return 0;
  }
  static int cubicTo(const FT_Vector* first, const FT_Vector* second, const FT_Vector* to,
                     void* self) {
    auto& builder = *static_cast<PathBuilder*>(self);
    builder.curve(builder.point(first), builder.point(second), builder.point(to));
    return 0;
  }

  Json finish() {
    close();
    return std::move(paths_);
  }

private:
  Point point(const FT_Vector* v) const {
    return {origin_.x + static_cast<double>(v->x) * scale_,
            origin_.y - static_cast<double>(v->y) * scale_};
  }

  void vertex(Point p) {
    vertices_.push_back({p.x, p.y});
    in_.push_back({0, 0});
    out_.push_back({0, 0});
    last_ = p;
  }

  void curve(Point c1, Point c2, Point end) {
    if (vertices_.empty()) {
      vertex(last_);
    }
    out_.back() = {c1.x - last_.x, c1.y - last_.y};
    vertex(end);
    in_.back() = {c2.x - end.x, c2.y - end.y};
  }

  // Ends the contour; a last vertex on top of the first is the same vertex and merges into it.
  void close() {
    if (vertices_.size() > 1 && vertices_.back() == vertices_.front()) {
      in_.front() = in_.back();
      vertices_.pop_back();
      in_.pop_back();
      out_.pop_back();
    }
    if (vertices_.size() > 1) {
      Json path = Json::object();
      path["ty"] = "sh";
      path["ks"] = {{"a", 0}, {"k", {{"i", in_}, {"o", out_}, {"v", vertices_}, {"c", true}}}};
      paths_.push_back(std::move(path));
    }
    vertices_.clear();
    in_.clear();
    out_.clear();
  }

  double scale_;
  Point origin_;
  Point last_{0, 0};
  std::vector<std::array<double, 2>> vertices_;
  std::vector<std::array<double, 2>> in_;
  std::vector<std::array<double, 2>> out_;
  Json paths_ = Json::array();
};

using PatternPointer = std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)>;

// The family drawn when a document's family is not on the system: the serif that web pages
// fall back to, so that such text looks as it does in a browser.
constexpr const char* missingFamilyFallback = "Times New Roman";

// The font fontconfig finds closest to the family (none: its default) and style.
PatternPointer bestMatch(FcConfig* config, const char* family, const std::string& style) {
  PatternPointer pattern(FcPatternCreate(), FcPatternDestroy);
  if (!pattern) {
    return pattern;
  }
  if (family) {
    FcPatternAddString(pattern.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
  }
  if (!style.empty()) {
    FcPatternAddString(pattern.get(), FC_STYLE, reinterpret_cast<const FcChar8*>(style.c_str()));
  }
  FcPatternAddBool(pattern.get(), FC_OUTLINE, FcTrue);
  FcConfigSubstitute(config, pattern.get(), FcMatchPattern);
  FcDefaultSubstitute(pattern.get());
  FcResult result = FcResultNoMatch;
  return PatternPointer(FcFontMatch(config, pattern.get(), &result), FcPatternDestroy);
}

std::string fileOf(const PatternPointer& match) {
  FcChar8* file = nullptr;
  return match && FcPatternGetString(match.get(), FC_FILE, 0, &file) == FcResultMatch
             ? reinterpret_cast<const char*>(file)
             : std::string();
}

bool hasFamily(const PatternPointer& match, const std::string& family) {
  FcChar8* name = nullptr;
  for (int i = 0; FcPatternGetString(match.get(), FC_FAMILY, i, &name) == FcResultMatch; ++i) {
    if (FcStrCmpIgnoreCase(name, reinterpret_cast<const FcChar8*>(family.c_str())) == 0) {
      return true;
    }
  }
  return false;
}

// Names that stand for a kind of font rather than a family, which fontconfig resolves itself.
bool isGenericFamily(const std::string& family) {
  constexpr std::array<const char*, 6> generic{"serif",     "sans-serif", "sans",
                                               "monospace", "mono",       "system-ui"};
  return std::any_of(generic.begin(), generic.end(), [&](const char* name) {
    return FcStrCmpIgnoreCase(reinterpret_cast<const FcChar8*>(name),
                              reinterpret_cast<const FcChar8*>(family.c_str())) == 0;
  });
}

// The font for the family and style. fontconfig always finds one; when the family is missing it
// is the default font, which is then swapped for the fallback family. A family fontconfig knows
// under another name (a metric-compatible substitute) finds another font than the default.
PatternPointer fontFor(FcConfig* config, const std::string& family, const std::string& style) {
  PatternPointer match = bestMatch(config, family.c_str(), style);
  if (!match || hasFamily(match, family) || isGenericFamily(family) ||
      fileOf(match) != fileOf(bestMatch(config, nullptr, style))) {
    return match;
  }
  PatternPointer fallback = bestMatch(config, missingFamilyFallback, style);
  return fileOf(fallback).empty() ? std::move(match) : std::move(fallback);
}

} // namespace

struct SystemFont::Handles {
  FT_Library library = nullptr;
  FT_Face face = nullptr;
  hb_font_t* font = nullptr;

  ~Handles() {
    if (font) {
      hb_font_destroy(font);
    }
    if (face) {
      FT_Done_Face(face);
    }
    if (library) {
      FT_Done_FreeType(library);
    }
  }
};

SystemFont::SystemFont(const std::string& family, const std::string& style)
    : handles_(std::make_unique<Handles>()) {
  // A configuration of its own, released here: fontconfig's default one is process-wide state.
  std::unique_ptr<FcConfig, decltype(&FcConfigDestroy)> config(FcInitLoadConfigAndFonts(),
                                                               FcConfigDestroy);
  if (!config) {
    return;
  }
  const PatternPointer match = fontFor(config.get(), family, style);
  const std::string file = fileOf(match);
  int index = 0;
  if (file.empty()) {
    return;
  }
  FcPatternGetInteger(match.get(), FC_INDEX, 0, &index);
  if (FT_Init_FreeType(&handles_->library) != 0 ||
      FT_New_Face(handles_->library, file.c_str(), index, &handles_->face) != 0 ||
      !FT_IS_SCALABLE(handles_->face) || handles_->face->units_per_EM == 0) {
    return;
  }
  // HarfBuzz's own OpenType functions on FreeType's face: positions in font units (a new font's
  // scale), scaled to pixels here like the outlines. The face has no pixel size, so FreeType's
  // metrics functions would give no advances.
  hb_face_t* face = hb_ft_face_create_referenced(handles_->face);
  handles_->font = hb_font_create(face);
  hb_face_destroy(face);
}

SystemFont::~SystemFont() = default;

bool SystemFont::usable() const {
  return handles_->font != nullptr;
}

std::vector<ShapedGlyph> SystemFont::shape(std::string_view line, double size) const {
  std::vector<ShapedGlyph> glyphs;
  if (!usable() || line.empty() || line.size() > INT_MAX) {
    return glyphs;
  }
  std::unique_ptr<hb_buffer_t, decltype(&hb_buffer_destroy)> buffer(hb_buffer_create(),
                                                                    hb_buffer_destroy);
  hb_buffer_add_utf8(buffer.get(), line.data(), static_cast<int>(line.size()), 0,
                     static_cast<int>(line.size()));
  hb_buffer_guess_segment_properties(buffer.get());
  // Letters are set one by one at their own advances, as other players place them: no kerning
  // pairs and no ligatures.
  const std::array<hb_feature_t, 2> features{
      {{HB_TAG('k', 'e', 'r', 'n'), 0, HB_FEATURE_GLOBAL_START, HB_FEATURE_GLOBAL_END},
       {HB_TAG('l', 'i', 'g', 'a'), 0, HB_FEATURE_GLOBAL_START, HB_FEATURE_GLOBAL_END}}};
  hb_shape(handles_->font, buffer.get(), features.data(), static_cast<unsigned>(features.size()));
  unsigned count = 0;
  const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer.get(), &count);
  const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer.get(), &count);
  const double scale = size / handles_->face->units_per_EM;
  FT_Outline_Funcs funcs{&PathBuilder::moveTo,
                         &PathBuilder::lineTo,
                         &PathBuilder::conicTo,
                         &PathBuilder::cubicTo,
                         0,
                         0};
  for (unsigned i = 0; i < count; ++i) {
    ShapedGlyph glyph;
    glyph.advance = positions[i].x_advance * scale;
    PathBuilder builder(scale, {positions[i].x_offset * scale, -positions[i].y_offset * scale});
    if (FT_Load_Glyph(handles_->face, infos[i].codepoint, FT_LOAD_NO_SCALE) == 0 &&
        handles_->face->glyph->format == FT_GLYPH_FORMAT_OUTLINE &&
        handles_->face->glyph->outline.n_points <= maxOutlinePoints) {
      FT_Outline_Decompose(&handles_->face->glyph->outline, &funcs, &builder);
    }
    glyph.paths = builder.finish();
    glyphs.push_back(std::move(glyph));
  }
  return glyphs;
}

} // namespace frameloom::renderer
