#include "renderer/DocumentRepairs.h"

#include "renderer/GradientRepairs.h"
#include "renderer/MatteRepairs.h"
#include "renderer/PolystarRepairs.h"
#include "renderer/SkewRepairs.h"
#include "renderer/TextLayers.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Exporters give a precomposition layer a size of 99999 to mean "not clipped". rlottie's clip
// rectangle of such a layer lands tens of thousands of pixels away, beyond the coordinates its
// rasterizer holds, and clips everything away. No composition of this size is drawn whole, so
// beyond this side the layer's size is dropped and rlottie clips nothing.
constexpr double largestClippedPrecompositionSide = 16384;

bool isThreeDimensional(const Json& layer) {
  const auto member = layer.find("ddd");
  return member != layer.end() && member->is_number() && member->get<double>() == 1;
}

bool isFractional(const Json& value) {
  return value.is_number_float() && std::isfinite(value.get<double>()) &&
         value.get<double>() != std::trunc(value.get<double>());
}

} // namespace

void forEachValue(Json& root, const std::function<void(Json&)>& visit) {
  std::vector<Json*> pending{&root};
  while (!pending.empty()) {
    Json& value = *pending.back();
    pending.pop_back();
    visit(value);
    if (value.is_structured()) {
      for (auto& child : value) {
        pending.push_back(&child);
      }
    }
  }
}

std::string stringMember(const Json& object, const char* key) {
  const auto member = object.find(key);
  return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

const Json* propertyValue(const Json& owner, const char* key) {
  const auto property = owner.is_object() ? owner.find(key) : owner.end();
  if (property == owner.end() || !property->is_object()) {
    return nullptr;
  }
  const auto value = property->find("k");
  return value == property->end() ? nullptr : &*value;
}

Json* propertyValue(Json& owner, const char* key) {
  return const_cast<Json*>(propertyValue(std::as_const(owner), key));
}

std::optional<double> firstNumber(const Json& value) {
  if (value.is_number()) {
    return value.get<double>();
  }
  if (value.is_array() && !value.empty() && value.front().is_number()) {
    return value.front().get<double>();
  }
  return std::nullopt;
}

void forEachLayerList(Json& document, const std::function<void(Json&)>& visit) {
  if (!document.is_object()) {
    return;
  }
  const auto visitLayers = [&](Json& owner) {
    const auto layers = owner.find("layers");
    if (layers != owner.end() && layers->is_array()) {
      visit(*layers);
    }
  };
  visitLayers(document);
  const auto assets = document.find("assets");
  if (assets != document.end() && assets->is_array()) {
    for (auto& asset : *assets) {
      if (asset.is_object()) {
        visitLayers(asset);
      }
    }
  }
}

void forEachLayer(Json& document, const std::function<void(Json&)>& visit) {
  forEachLayerList(document, [&](Json& layers) {
    for (auto& layer : layers) {
      if (layer.is_object()) {
        visit(layer);
      }
    }
  });
}

Json* masksOf(Json& layer) {
  const auto masks = layer.find("masksProperties");
  return masks != layer.end() && masks->is_array() ? &*masks : nullptr;
}

bool dropLastKeyframeEasing(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    if (!value.is_object()) {
      return;
    }
    const auto keyframes = value.find("k");
    if (keyframes != value.end() && keyframes->is_array() && !keyframes->empty() &&
        keyframes->back().is_object() && keyframes->back().contains("t")) {
      changed |= keyframes->back().erase("i") + keyframes->back().erase("o") > 0;
    }
  });
  return changed;
}

bool dropInertMasks(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    Json* masks = masksOf(layer);
    if (!masks) {
      return;
    }
    const auto inert = [](const Json& mask) {
      return mask.is_object() && stringMember(mask, "mode") == "n";
    };
    const auto kept = std::remove_if(masks->begin(), masks->end(), inert);
    if (kept == masks->end()) {
      return;
    }
    masks->erase(kept, masks->end());
    if (masks->empty()) {
      layer.erase("masksProperties");
      layer["hasMask"] = false;
    }
    changed = true;
  });
  return changed;
}

bool lightenAndDarkenMasksAsAdding(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    Json* masks = masksOf(layer);
    if (!masks) {
      return;
    }
    for (auto& mask : *masks) {
      const std::string mode = mask.is_object() ? stringMember(mask, "mode") : "";
      if (mode == "l" || mode == "d") {
        mask["mode"] = "a";
        changed = true;
      }
    }
  });
  return changed;
}

bool wholeFrameLayerTimes(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    for (const char* key : {"ip", "op"}) {
      const auto time = layer.find(key);
      if (time != layer.end() && isFractional(*time) &&
          std::abs(time->get<double>()) < largestExactWhole) {
        *time = static_cast<std::int64_t>(std::ceil(time->get<double>()));
        changed = true;
      }
    }
  });
  return changed;
}

bool maskOpacityAsLayerOpacity(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    Json* masks = masksOf(layer);
    const auto transform = layer.find("ks");
    if (!masks || masks->size() != 1 || !masks->front().is_object() || transform == layer.end() ||
        !transform->is_object()) {
      return;
    }
    Json& mask = masks->front();
    const auto inverted = mask.find("inv");
    const auto maskOpacity = mask.find("o");
    const Json* maskValue = propertyValue(mask, "o");
    if (stringMember(mask, "mode") != "a" ||
        (inverted != mask.end() && (!inverted->is_boolean() || inverted->get<bool>())) ||
        !maskValue) {
      return;
    }
    if (maskValue->is_number() && maskValue->get<double>() == 100) {
      return;
    }
    // The layer's own opacity must be fixed to fold the mask's into it.
    double layerOpacity = 100;
    const auto opacity = transform->find("o");
    if (opacity != transform->end()) {
      const auto value = opacity->is_object() ? opacity->find("k") : opacity->end();
      if (!opacity->is_object() || value == opacity->end() || !value->is_number()) {
        return;
      }
      layerOpacity = value->get<double>();
    }
    Json folded = *maskOpacity;
    forEachValue(folded["k"], [&](Json& value) {
      if (value.is_number()) {
        value = value.get<double>() * layerOpacity / 100;
      }
    });
    (*transform)["o"] = std::move(folded);
    *maskOpacity = Json{{"a", 0}, {"k", 100}};
    changed = true;
  });
  return changed;
}

namespace {

// The members of an object that hold a property of one number: for a layer's transform, a mask,
// or a shape item by its type.
std::vector<const char*> oneNumberProperties(const std::string& type) {
  if (type == "fl" || type == "gf") {
    return {"o"};
  }
  if (type == "st" || type == "gs") {
    return {"o", "w"};
  }
  if (type == "rc" || type == "rd") {
    return {"r"};
  }
  if (type == "tm") {
    return {"s", "e", "o"};
  }
  if (type == "sr") {
    return {"pt", "r", "ir", "or", "is", "os"};
  }
  if (type == "rp") {
    return {"c", "o"};
  }
  if (type == "tr") {
    return {"o", "r", "sk", "sa", "so", "eo"};
  }
  return {};
}

bool unwrapOneNumberArrays(Json& owner, const std::vector<const char*>& keys) {
  bool changed = false;
  for (const char* key : keys) {
    Json* value = propertyValue(owner, key);
    if (value && value->is_array() && value->size() == 1 && value->front().is_number()) {
      *value = Json(value->front());
      changed = true;
    }
  }
  return changed;
}

} // namespace

bool oneNumberArraysAsNumbers(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    if (const auto transform = layer.find("ks"); transform != layer.end()) {
      changed |= unwrapOneNumberArrays(*transform, {"o", "r", "rx", "ry", "rz", "sk", "sa"});
    }
    if (Json* masks = masksOf(layer)) {
      for (auto& mask : *masks) {
        changed |= unwrapOneNumberArrays(mask, {"o", "x"});
      }
    }
    const auto shapes = layer.find("shapes");
    if (shapes != layer.end()) {
      forEachValue(*shapes, [&](Json& value) {
        if (value.is_object()) {
          changed |= unwrapOneNumberArrays(value, oneNumberProperties(stringMember(value, "ty")));
        }
      });
    }
  });
  return changed;
}

bool shortSolidColorsInFull(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    const std::string color = stringMember(layer, "sc");
    if (color.size() != 4 || color[0] != '#' ||
        !std::all_of(color.begin() + 1, color.end(),
                     [](unsigned char c) { return std::isxdigit(c) != 0; })) {
      return;
    }
    std::string full = "#";
    for (std::size_t i = 1; i < color.size(); ++i) {
      full.append(2, color[i]);
    }
    layer["sc"] = full;
    changed = true;
  });
  return changed;
}

bool roundCornersOnRectangles(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    const auto items =
        value.is_object() ? value.find(value.contains("it") ? "it" : "shapes") : value.end();
    if (items == value.end() || !items->is_array()) {
      return;
    }
    // Rectangles before a round-corner item, in the same list, are the ones it rounds.
    std::vector<Json*> rectangles;
    for (auto& item : *items) {
      if (!item.is_object()) {
        continue;
      }
      const std::string type = stringMember(item, "ty");
      const Json* radius = propertyValue(item, "r");
      if (type == "rc" &&
          (!item.contains("r") || (radius && radius->is_number() && radius->get<double>() == 0))) {
        rectangles.push_back(&item);
      } else if (type == "rd" && radius && radius->is_number() && radius->get<double>() > 0 &&
                 std::isfinite(radius->get<double>())) {
        for (Json* rectangle : rectangles) {
          (*rectangle)["r"] = Json{{"a", 0}, {"k", *radius}};
        }
        changed |= !rectangles.empty();
        rectangles.clear();
      }
    }
  });
  return changed;
}

bool invertedFirstMaskAsSubtracting(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    Json* masks = masksOf(layer);
    if (!masks || masks->empty() || !masks->front().is_object()) {
      return;
    }
    Json& mask = masks->front();
    const auto inverted = mask.find("inv");
    const Json* opacity = propertyValue(mask, "o");
    if (stringMember(mask, "mode") != "a" || inverted == mask.end() || *inverted != true ||
        (mask.contains("o") &&
         !(opacity && opacity->is_number() && opacity->get<double>() == 100))) {
      return;
    }
    mask["mode"] = "s";
    *inverted = false;
    changed = true;
  });
  return changed;
}

bool unclipHugePrecompositions(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    const auto type = layer.find("ty");
    if (type == layer.end() || !type->is_number() || type->get<double>() != 0) {
      return;
    }
    const auto isHuge = [&](const char* key) {
      const auto side = layer.find(key);
      return side != layer.end() && side->is_number() &&
             side->get<double>() > largestClippedPrecompositionSide;
    };
    if (isHuge("w") || isHuge("h")) {
      changed |= layer.erase("w") + layer.erase("h") > 0;
    }
  });
  return changed;
}

bool wholeFloatsAsIntegers(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    if (value.is_number_float() && !isFractional(value) && std::isfinite(value.get<double>()) &&
        std::abs(value.get<double>()) <= largestExactWhole) {
      value = static_cast<std::int64_t>(value.get<double>());
      changed = true;
    }
  });
  return changed;
}

bool wholeCompositionSize(Json& document) {
  bool changed = false;
  const auto roundSize = [&](Json& owner) {
    for (const char* key : {"w", "h"}) {
      const auto side = owner.find(key);
      if (side != owner.end() && isFractional(*side) &&
          std::abs(side->get<double>()) < largestExactWhole) {
        *side = std::max<std::int64_t>(1, std::llround(side->get<double>()));
        changed = true;
      }
    }
  };
  if (!document.is_object()) {
    return false;
  }
  roundSize(document);
  const auto assets = document.find("assets");
  if (assets != document.end() && assets->is_array()) {
    for (auto& asset : *assets) {
      if (asset.is_object()) {
        roundSize(asset);
      }
    }
  }
  return changed;
}

bool planeRotations(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    const auto transform = layer.find("ks");
    if (isThreeDimensional(layer) || transform == layer.end() || !transform->is_object()) {
      return;
    }
    // A 2D layer turns by "r" alone; 3D rotations on it are ignored by other players, where
    // rlottie refuses the document.
    for (const char* key : {"rx", "ry", "rz"}) {
      changed |= transform->erase(key) > 0;
    }
  });
  return changed;
}

bool dropNullMembers(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    if (!value.is_object()) {
      return;
    }
    for (auto member = value.begin(); member != value.end();) {
      if (member->is_null()) {
        member = value.erase(member);
        changed = true;
      } else {
        ++member;
      }
    }
  });
  return changed;
}

// Rebuilds `object` with `key` first, holding `value`, and its other members after it in their
// order. Built at its final size: the ordered map copies its members, subtrees and all, when it
// grows.
void putFirst(Json& object, const std::string& key, Json value) {
  Json reordered = Json::object();
  auto& members = reordered.get_ref<Json::object_t&>();
  members.reserve(object.size() + 1);
  members.emplace_back(key, std::move(value));
  for (auto& [name, member] : object.get_ref<Json::object_t&>()) {
    if (name != key) {
      members.emplace_back(name, std::move(member));
    }
  }
  object = std::move(reordered);
}

bool typeFirst(Json& document) {
  bool changed = false;
  forEachValue(document, [&](Json& value) {
    if (!value.is_object() || value.empty() || value.begin().key() == "ty" ||
        !value.contains("ty")) {
      return;
    }
    putFirst(value, "ty", std::move(value["ty"]));
    changed = true;
  });
  return changed;
}

bool dimensionBeforeTransform(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    const auto& members = layer.get_ref<const Json::object_t&>();
    const auto position = [&](const char* key) {
      return std::find_if(members.begin(), members.end(),
                          [key](const auto& member) { return member.first == key; });
    };
    const auto dimension = position("ddd");
    if (dimension != members.end() && dimension < position("ks")) {
      return;
    }
    putFirst(layer, "ddd", dimension == members.end() ? Json(0) : std::move(layer["ddd"]));
    changed = true;
  });
  return changed;
}

bool keyframedStaticTimeRemap(Json& document) {
  bool changed = false;
  forEachLayer(document, [&](Json& layer) {
    const auto remap = layer.find("tm");
    if (remap == layer.end() || !remap->is_object() || !remap->contains("k")) {
      return;
    }
    Json& value = (*remap)["k"];
    const bool isStatic =
        value.is_number() || (value.is_array() && value.size() == 1 && value.front().is_number());
    if (!isStatic) {
      return;
    }
    const Json seconds = value.is_number() ? Json::array({value}) : value;
    // Two keyframes holding the same value: the same time everywhere, read as a remap.
    value = Json::array({{{"t", 0}, {"s", seconds}, {"h", 1}}, {{"t", 1}, {"s", seconds}}});
    // Last: adding a member may move the others, `value` among them.
    (*remap)["a"] = 1;
    changed = true;
  });
  return changed;
}

bool stretchIntoKeyframes(Json& document) {
  const auto assets = document.is_object() ? document.find("assets") : document.end();
  if (!document.is_object() || assets == document.end() || !assets->is_array()) {
    return false;
  }
  std::map<std::string, std::size_t> uses;
  forEachLayer(document, [&](Json& layer) { ++uses[stringMember(layer, "refId")]; });
  const auto assetOf = [&](const std::string& id) -> Json* {
    for (auto& asset : *assets) {
      if (asset.is_object() && stringMember(asset, "id") == id && asset.contains("layers") &&
          asset["layers"].is_array()) {
        return &asset;
      }
    }
    return nullptr;
  };
  const auto scale = [](Json& value, double factor) { value = value.get<double>() * factor; };
  std::set<std::string> bakedAssets;
  bool changed = false;
  // Each pass bakes the layers it finds; a baked precomposition hands its factor on to the
  // precompositions inside it, found by a later pass. Every pass but the last bakes one asset,
  // and no asset twice (a precomposition that holds itself would otherwise go on), so the passes
  // end.
  for (bool baked = true; baked;) {
    baked = false;
    forEachLayer(document, [&](Json& layer) {
      const auto stretch = layer.find("sr");
      const std::string id = stringMember(layer, "refId");
      if (baked || stretch == layer.end() || !stretch->is_number() || layer.contains("tm") ||
          id.empty() || uses[id] != 1 || bakedAssets.contains(id)) {
        return;
      }
      const double factor = stretch->get<double>();
      Json* asset = assetOf(id);
      if (!std::isfinite(factor) || factor <= 0 || factor == 1 || !asset) {
        return;
      }
      for (const Json& inner : (*asset)["layers"]) {
        if (inner.is_object() && inner.contains("tm")) {
          return;
        }
      }
      forEachValue((*asset)["layers"], [&](Json& value) {
        const auto keyframes = value.is_object() ? value.find("k") : value.end();
        if (!value.is_object() || keyframes == value.end() || !keyframes->is_array()) {
          return;
        }
        for (auto& keyframe : *keyframes) {
          if (keyframe.is_object() && keyframe.contains("t") && keyframe["t"].is_number()) {
            scale(keyframe["t"], factor);
          }
        }
      });
      for (auto& inner : (*asset)["layers"]) {
        if (!inner.is_object()) {
          continue;
        }
        for (const char* key : {"ip", "op", "st"}) {
          if (inner.contains(key) && inner[key].is_number()) {
            scale(inner[key], factor);
          }
        }
        if (inner.contains("refId")) {
          inner["sr"] =
              (inner.contains("sr") && inner["sr"].is_number() ? inner["sr"].get<double>() : 1.0) *
              factor;
        }
      }
      *stretch = 1;
      bakedAssets.insert(id);
      baked = true;
      changed = true;
    });
  }
  return changed;
}

bool repairDocument(Json& document, bool forRefusal) {
  bool changed = textLayersAsShapes(document);
  changed |= mattedShapesAsPrecompositions(document);
  changed |= keyframedStaticTimeRemap(document);
  changed |= stretchIntoKeyframes(document);
  changed |= dropLastKeyframeEasing(document);
  changed |= dropInertMasks(document);
  changed |= lightenAndDarkenMasksAsAdding(document);
  changed |= maskOpacityAsLayerOpacity(document);
  changed |= wholeFrameLayerTimes(document);
  changed |= polystarRotationOnce(document);
  changed |= wholePolystarPoints(document);
  changed |= skewAsNestedGroups(document);
  changed |= unclipHugePrecompositions(document);
  changed |= oneNumberArraysAsNumbers(document);
  changed |= shortSolidColorsInFull(document);
  changed |= roundCornersOnRectangles(document);
  changed |= invertedFirstMaskAsSubtracting(document);
  changed |= opacityStopsResampled(document);
  changed |= dimensionBeforeTransform(document);
  changed |= typeFirst(document);
  if (forRefusal) {
    changed |= wholeFloatsAsIntegers(document);
    changed |= wholeCompositionSize(document);
    changed |= planeRotations(document);
    changed |= dropNullMembers(document);
  }
  return changed;
}

} // namespace frameloom::renderer
