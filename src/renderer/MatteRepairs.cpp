#include "renderer/MatteRepairs.h"

#include "renderer/DocumentRepairs.h"

#include <set>
#include <string>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// The layer types rlottie fails to matte: solids, pictures and shapes (text has become shapes by
// now).
bool isMattedShape(const Json& layer) {
  const auto matte = layer.find("tt");
  const auto type = layer.find("ty");
  const auto hidden = layer.find("hd");
  return matte != layer.end() && matte->is_number() && matte->get<double>() != 0 &&
         type != layer.end() && type->is_number() &&
         (type->get<double>() == 1 || type->get<double>() == 2 || type->get<double>() == 4) &&
         (hidden == layer.end() || *hidden != true);
}

Json identityTransform() {
  return Json::parse(R"({"o":{"a":0,"k":100},"r":{"a":0,"k":0},"p":{"a":0,"k":[0,0,0]},)"
                     R"("a":{"a":0,"k":[0,0,0]},"s":{"a":0,"k":[100,100,100]}})");
}

// The precomposition layer standing for `layer`, which moves into the asset `id`.
Json precompositionFor(const Json& layer, const std::string& id) {
  Json standIn = Json::object();
  standIn["ty"] = 0;
  standIn["ddd"] = 0;
  for (const char* key : {"ind", "nm", "parent", "tt", "td", "ip", "op"}) {
    if (const auto member = layer.find(key); member != layer.end()) {
      standIn[key] = *member;
    }
  }
  standIn["refId"] = id;
  standIn["ks"] = identityTransform();
  standIn["st"] = 0;
  return standIn;
}

} // namespace

bool mattedShapesAsPrecompositions(Json& document) {
  if (!document.is_object()) {
    return false;
  }
  const auto assets = document.find("assets");
  if (assets != document.end() && !assets->is_array()) {
    return false;
  }
  std::set<std::string> ids;
  if (assets != document.end()) {
    for (const auto& asset : *assets) {
      if (asset.is_object()) {
        ids.insert(stringMember(asset, "id"));
      }
    }
  }
  // Added after the walk: the lists point into the assets array.
  std::vector<Json> added;
  std::size_t next = 0;
  forEachLayerList(document, [&](Json& layers) {
    std::set<double> parents;
    for (const auto& layer : layers) {
      if (const auto parent = layer.is_object() ? layer.find("parent") : layer.end();
          layer.is_object() && parent != layer.end() && parent->is_number()) {
        parents.insert(parent->get<double>());
      }
    }
    for (auto& layer : layers) {
      if (!layer.is_object() || !isMattedShape(layer)) {
        continue;
      }
      const auto index = layer.find("ind");
      if (index != layer.end() && index->is_number() && parents.contains(index->get<double>())) {
        continue;
      }
      std::string id;
      do {
        id = "frameloom-matted-" + std::to_string(next++);
      } while (ids.contains(id));
      ids.insert(id);
      Json standIn = precompositionFor(layer, id);
      for (const char* moved : {"tt", "td", "parent"}) {
        layer.erase(moved);
      }
      added.push_back(Json{{"id", id}, {"layers", Json::array({std::move(layer)})}});
      layer = std::move(standIn);
    }
  });
  if (added.empty()) {
    return false;
  }
  Json& target = document["assets"];
  if (target.is_null()) {
    target = Json::array();
  }
  for (auto& asset : added) {
    target.push_back(std::move(asset));
  }
  return true;
}

} // namespace frameloom::renderer
