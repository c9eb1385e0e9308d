#include "renderer/PolystarRepairs.h"

#include "renderer/DocumentRepairs.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Animated point counts are sampled at every whole frame between their first and last
// keyframes; real animations span a few hundred frames and hold a handful of polystars. Counts
// beyond this many frames per document are left as they are rather than costing a sample per
// frame of a hostile timeline.
constexpr double maxSampledFrames = 100000;

// Bisection steps that find where an easing curve reaches a time: 2^-40 is far below a frame.
constexpr int easingSteps = 40;

// Calls `visit` on every polystar shape item of the tree.
void forEachPolystar(Json& root, const std::function<void(Json&)>& visit) {
  forEachValue(root, [&](Json& value) {
    const auto type = value.is_object() ? value.find("ty") : value.end();
    if (type != value.end() && *type == "sr") {
      visit(value);
    }
  });
}

std::optional<double> numberMember(const Json& object, const char* key) {
  const auto member = object.find(key);
  return member == object.end() ? std::nullopt : firstNumber(*member);
}

void halve(Json& value) {
  if (value.is_number()) {
    value = value.get<double>() / 2;
  } else if (value.is_array()) {
    for (auto& element : value) {
      if (element.is_number()) {
        element = element.get<double>() / 2;
      }
    }
  }
}

double bezier(double first, double second, double at) {
  const double rest = 1 - at;
  return 3 * rest * rest * at * first + 3 * rest * at * at * second + at * at * at;
}

// How far the keyframe's easing has gone at `progress` (0 to 1) of its time.
double eased(const Json& keyframe, double progress) {
  const auto handle = [&](const char* key, const char* axis, double otherwise) {
    const auto member = keyframe.find(key);
    if (member == keyframe.end() || !member->is_object()) {
      return otherwise;
    }
    const auto value = numberMember(*member, axis);
    return value && std::isfinite(*value) ? *value : otherwise;
  };
  const double x1 = std::clamp(handle("o", "x", 0), 0.0, 1.0);
  const double y1 = handle("o", "y", 0);
  const double x2 = std::clamp(handle("i", "x", 1), 0.0, 1.0);
  const double y2 = handle("i", "y", 1);
  // With both x handles in 0...1 the curve's x grows with its parameter.
  double low = 0;
  double high = 1;
  for (int step = 0; step < easingSteps; ++step) {
    const double middle = (low + high) / 2;
    (bezier(x1, x2, middle) < progress ? low : high) = middle;
  }
  return bezier(y1, y2, (low + high) / 2);
}

struct Keyframe {
  const Json* source;
  double time;
  double start;
  std::optional<double> end;
  bool hold;
};

// The keyframes of an animated value, each with a number to start from; nothing when one lacks
// its time or value or the times go backwards.
std::optional<std::vector<Keyframe>> readKeyframes(const Json& keyframes) {
  std::vector<Keyframe> read;
  for (const Json& keyframe : keyframes) {
    if (!keyframe.is_object()) {
      return std::nullopt;
    }
    const auto time = numberMember(keyframe, "t");
    // The last keyframe of older documents has only a time; it starts where the one before ends.
    auto start = numberMember(keyframe, "s");
    if (!start && !read.empty()) {
      start = read.back().end;
    }
    if (!time || !start || !std::isfinite(*time) || !std::isfinite(*start) ||
        (!read.empty() && *time < read.back().time)) {
      return std::nullopt;
    }
    const auto hold = keyframe.find("h");
    read.push_back({&keyframe, *time, *start, numberMember(keyframe, "e"),
                    hold != keyframe.end() && hold->is_number() && hold->get<double>() == 1});
  }
  return read;
}

// The value at `frame`, for frames asked in increasing order: `at` is the keyframe the last one
// fell after, so that a whole timeline costs one pass over the keyframes.
double valueAt(const std::vector<Keyframe>& keyframes, double frame, std::size_t& at) {
  while (at + 1 < keyframes.size() && keyframes[at + 1].time <= frame) {
    ++at;
  }
  const Keyframe& from = keyframes[at];
  if (at + 1 == keyframes.size() || from.hold || frame <= from.time) {
    return from.start;
  }
  const Keyframe& to = keyframes[at + 1];
  const double end = from.end.value_or(to.start);
  return from.start +
         (end - from.start) * eased(*from.source, (frame - from.time) / (to.time - from.time));
}

// An animated count as hold keyframes of its whole part at whole frames; false when the
// keyframes cannot be read or span more frames than `budget` has left.
bool wholeAnimatedCount(Json& keyframes, double& budget) {
  const auto read = readKeyframes(keyframes);
  if (!read || read->empty() || std::abs(read->front().time) >= largestExactWhole ||
      std::abs(read->back().time) >= largestExactWhole ||
      read->back().time - read->front().time >= budget) {
    return false;
  }
  budget -= read->back().time - read->front().time + 1;
  std::size_t at = 0;
  Json whole = Json::array();
  std::optional<double> last;
  const double lastFrame = std::ceil(read->back().time);
  for (double frame = std::ceil(read->front().time); frame <= lastFrame; ++frame) {
    // From the last keyframe on the count stays at its value; just before it, the easing may
    // leave it a hair below.
    const double count =
        std::floor(frame == lastFrame ? read->back().start : valueAt(*read, frame, at));
    if (!last || count != *last) {
      whole.push_back({{"t", frame}, {"s", Json::array({count})}, {"h", 1}});
      last = count;
    }
  }
  whole.back().erase("h");
  keyframes = std::move(whole);
  return true;
}

} // namespace

bool polystarRotationOnce(Json& document) {
  bool changed = false;
  forEachPolystar(document, [&](Json& polystar) {
    Json* rotation = propertyValue(polystar, "r");
    if (!rotation) {
      return;
    }
    Json& value = *rotation;
    if (firstNumber(value)) {
      halve(value);
      changed = true;
      return;
    }
    if (!value.is_array()) {
      return;
    }
    for (auto& keyframe : value) {
      if (!keyframe.is_object()) {
        continue;
      }
      for (const char* key : {"s", "e"}) {
        if (keyframe.contains(key)) {
          halve(keyframe[key]);
          changed = true;
        }
      }
    }
  });
  return changed;
}

bool wholePolystarPoints(Json& document) {
  bool changed = false;
  double budget = maxSampledFrames;
  forEachPolystar(document, [&](Json& polystar) {
    Json* points = propertyValue(polystar, "pt");
    if (!points) {
      return;
    }
    Json& value = *points;
    if (value.is_number_float() && std::isfinite(value.get<double>())) {
      if (value.get<double>() != std::floor(value.get<double>())) {
        value = std::floor(value.get<double>());
        changed = true;
      }
    } else if (value.is_array() && !value.empty() && value.front().is_object()) {
      changed |= wholeAnimatedCount(value, budget);
    }
  });
  return changed;
}

} // namespace frameloom::renderer
