#include "renderer/SkewRepairs.h"

#include "renderer/DocumentRepairs.h"

#include <cmath>
#include <numbers>
#include <optional>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Skews this close to a right angle shear a shape to infinity; they are left as they are.
constexpr double largestSkewDegrees = 85;

std::optional<double> fixedNumber(const Json& property, std::size_t index = 0) {
  if (!property.is_object() || (property.contains("a") && property["a"] != 0)) {
    return std::nullopt;
  }
  const auto value = property.find("k");
  if (value == property.end()) {
    return std::nullopt;
  }
  if (value->is_number() && index == 0) {
    return value->get<double>();
  }
  if (value->is_array() && value->size() > index && (*value)[index].is_number()) {
    return (*value)[index].get<double>();
  }
  return std::nullopt;
}

double radians(double degrees) {
  return degrees * std::numbers::pi / 180;
}

double degrees(double radians) {
  return radians * 180 / std::numbers::pi;
}

Json fixed(Json value) {
  return {{"a", 0}, {"k", std::move(value)}};
}

Json transform(Json anchor, double scaleX, double scaleY, double rotation) {
  return {{"ty", "tr"},
          {"p", fixed({0, 0})},
          {"a", std::move(anchor)},
          {"s", fixed({scaleX, scaleY})},
          {"r", fixed(rotation)},
          {"o", fixed(100)}};
}

// A turn, a scale along the axes and another turn equal to a skew and scale.
struct Decomposed {
  double firstTurn;
  double scaleX;
  double scaleY;
  double secondTurn;
};

// The skewed and scaled matrix [[a, b], [c, d]] (y pointing down) = turn(first) * scale *
// turn(second), from the closed form of the 2 x 2 singular value decomposition; the second
// scale comes out negative for a mirroring matrix.
Decomposed decompose(double skewDegrees, double scaleX, double scaleY) {
  const double shear = -std::tan(radians(skewDegrees));
  const double a = scaleX;
  const double b = shear * scaleY;
  const double c = 0;
  const double d = scaleY;
  const double e = (a + d) / 2;
  const double f = (a - d) / 2;
  const double g = (c + b) / 2;
  const double h = (c - b) / 2;
  const double q = std::hypot(e, h);
  const double r = std::hypot(f, g);
  const double a1 = std::atan2(g, f);
  const double a2 = std::atan2(h, e);
  return {degrees((a2 + a1) / 2), q + r, q - r, degrees((a2 - a1) / 2)};
}

// Rewrites the group when its transform (its last item) skews in a way the nested groups
// express.
bool unskewGroup(Json& group) {
  const auto items = group.find("it");
  if (items == group.end() || !items->is_array() || items->empty() || !items->back().is_object() ||
      items->back().value("ty", Json()) != "tr") {
    return false;
  }
  Json& outer = items->back();
  const double skew = outer.contains("sk") ? fixedNumber(outer["sk"]).value_or(0) : 0;
  const auto axis = outer.contains("sa") ? fixedNumber(outer["sa"]) : 0.0;
  const auto scaleX = outer.contains("s") ? fixedNumber(outer["s"], 0) : 100.0;
  const auto scaleY = outer.contains("s") ? fixedNumber(outer["s"], 1) : 100.0;
  if (skew == 0 || !std::isfinite(skew) || std::abs(skew) > largestSkewDegrees || axis != 0.0 ||
      !scaleX || !scaleY || !std::isfinite(*scaleX) || !std::isfinite(*scaleY)) {
    return false;
  }
  const Decomposed parts = decompose(skew, *scaleX / 100, *scaleY / 100);
  const Json anchor = outer.contains("a") ? outer["a"] : fixed({0, 0});
  Json inner = Json::array();
  for (std::size_t i = 0; i + 1 < items->size(); ++i) {
    inner.push_back(std::move((*items)[i]));
  }
  inner.push_back(transform(anchor, 100, 100, parts.secondTurn));
  const Json middle = {{"ty", "gr"},
                       {"it", Json::array({Json{{"ty", "gr"}, {"it", std::move(inner)}},
                                           transform(fixed({0, 0}), parts.scaleX * 100,
                                                     parts.scaleY * 100, parts.firstTurn)})}};
  outer.erase("sk");
  outer.erase("sa");
  outer["s"] = fixed({100, 100});
  outer["a"] = fixed({0, 0});
  *items = Json::array({middle, std::move(outer)});
  return true;
}

} // namespace

bool skewAsNestedGroups(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    if (value.is_object() && value.value("ty", Json()) == "gr" && unskewGroup(value)) {
      changed = true;
    }
  });
  return changed;
}

} // namespace frameloom::renderer
