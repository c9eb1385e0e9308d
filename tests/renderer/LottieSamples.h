#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

using Json = nlohmann::ordered_json;
using Rgb = std::array<double, 3>;

// A solid rectangle; with more than one colour it switches (hold keyframes) at the given frames.
struct SampleRect {
  double x, y, width, height;
  std::vector<std::pair<double, Rgb>> colors;
};

struct SampleTimeline {
  double inPoint = 0;
  double outPoint = 60;
  double frameRate = 30;
};

// A layer of type `ty` with no transform, over the timeline. Keys keep the order exporters write
// ("ty" first), which rlottie needs.
inline Json sampleLayer(int ty, SampleTimeline timeline) {
  Json layer =
      Json::parse(R"({"ty":0,"ddd":0,"ip":0,"op":0,"st":0,"ks":{"o":{"a":0,"k":100},"r":{"a":0,)"
                  R"("k":0},"p":{"a":0,"k":[0,0]},"a":{"a":0,"k":[0,0]},"s":{"a":0,"k":)"
                  R"([100,100]}}})");
  layer["ty"] = ty;
  layer["ip"] = timeline.inPoint;
  layer["op"] = timeline.outPoint;
  return layer;
}

// A Lottie document of the given size (whole numbers: rlottie refuses fractional ones) holding the
// given layers, then one shape layer per rectangle (the first on top), and the given assets.
inline std::string sampleLottie(int width, int height, const std::vector<SampleRect>& rects,
                                SampleTimeline timeline = {}, Json layers = Json::array(),
                                Json assets = Json::array()) {
  for (const SampleRect& rect : rects) {
    Json keys = Json::array();
    for (const auto& [frame, c] : rect.colors) {
      keys.push_back({{"t", frame}, {"s", {c[0], c[1], c[2], 1}}, {"h", 1}});
    }
    Json layer = sampleLayer(4, timeline);
    layer["shapes"] = Json::parse(R"([{"ty":"rc","p":{"a":0},"s":{"a":0},"r":{"a":0,"k":0}},)"
                                  R"({"ty":"fl","o":{"a":0,"k":100}}])");
    layer["shapes"][0]["p"]["k"] = {rect.x + rect.width / 2, rect.y + rect.height / 2};
    layer["shapes"][0]["s"]["k"] = {rect.width, rect.height};
    layer["shapes"][1]["c"] = {{"a", keys.size() > 1 ? 1 : 0},
                               {"k", keys.size() > 1 ? keys : keys[0]["s"]}};
    layers.push_back(layer);
  }
  Json document = Json::parse(R"({"v":"5.7.0","fr":0,"ip":0,"op":0,"w":0,"h":0})");
  document.update(
      {{"fr", timeline.frameRate}, {"ip", timeline.inPoint}, {"op", timeline.outPoint}});
  document.update({{"w", width}, {"h", height}, {"assets", assets}, {"layers", layers}});
  return document.dump();
}

} // namespace frameloom::testing
