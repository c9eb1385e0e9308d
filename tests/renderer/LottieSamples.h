#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

using Rgb = std::array<double, 3>;

// A solid rectangle; with more than one colour it switches (hold keyframes) at the given frames.
struct SampleRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  std::vector<std::pair<double, Rgb>> colors;
};

struct SampleTimeline {
  double inPoint = 0;
  double outPoint = 60;
  double frameRate = 30;
};

// A Lottie document of the given size (whole numbers: rlottie refuses fractional ones) holding one
// shape layer per rectangle, the first on top. Keys keep the order exporters write ("ty" first),
// which rlottie needs.
inline std::string sampleLottie(int width, int height, const std::vector<SampleRect>& rects,
                                SampleTimeline timeline = {}) {
  using json = nlohmann::ordered_json;
  const auto fixed = [](json value) { return json{{"a", 0}, {"k", std::move(value)}}; };
  json layers = json::array();
  for (const SampleRect& rect : rects) {
    json color;
    if (rect.colors.size() == 1) {
      const Rgb& c = rect.colors.front().second;
      color = fixed({c[0], c[1], c[2], 1});
    } else {
      json keys = json::array();
      for (const auto& [frame, c] : rect.colors) {
        keys.push_back({{"t", frame}, {"s", {c[0], c[1], c[2], 1}}, {"h", 1}});
      }
      color = {{"a", 1}, {"k", keys}};
    }
    layers.push_back({{"ty", 4},
                      {"ip", timeline.inPoint},
                      {"op", timeline.outPoint},
                      {"st", 0},
                      {"ks",
                       {{"o", fixed(100)},
                        {"r", fixed(0)},
                        {"p", fixed({0, 0})},
                        {"a", fixed({0, 0})},
                        {"s", fixed({100, 100})}}},
                      {"shapes",
                       {{{"ty", "rc"},
                         {"p", fixed({rect.x + rect.width / 2, rect.y + rect.height / 2})},
                         {"s", fixed({rect.width, rect.height})},
                         {"r", fixed(0)}},
                        {{"ty", "fl"}, {"o", fixed(100)}, {"c", color}}}}});
  }
  return json{{"v", "5.7.0"},
              {"fr", timeline.frameRate},
              {"ip", timeline.inPoint},
              {"op", timeline.outPoint},
              {"w", width},
              {"h", height},
              {"layers", layers}}
      .dump();
}

inline std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

} // namespace frameloom::testing
