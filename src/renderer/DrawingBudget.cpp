#include "renderer/DrawingBudget.h"

#include "renderer/DocumentRepairs.h"
#include "renderer/Limits.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace frameloom::renderer {

namespace {

using Json = nlohmann::ordered_json;

// Counts stop growing here: far past the budget, far below overflow.
constexpr std::uint64_t beyondBudget = limits::maxDrawnItems + 1;

std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
  return std::min(beyondBudget, a + b);
}

std::uint64_t product(std::uint64_t a, std::uint64_t b) {
  return a != 0 && b > beyondBudget / a ? beyondBudget : std::min(beyondBudget, a * b);
}

// The most copies a repeater makes at any time: its static count, or the largest start or end
// value of its keyframes; at least 1.
std::uint64_t largestCopies(const Json& repeater) {
  const Json* copies = propertyValue(repeater, "c");
  if (!copies) {
    return 1;
  }
  double largest = 1;
  const auto consider = [&](const Json& value) {
    if (const auto count = firstNumber(value); count && *count > largest) {
      largest = *count;
    }
  };
  const Json& value = *copies;
  consider(value);
  if (value.is_array()) {
    for (const Json& keyframe : value) {
      if (keyframe.is_object()) {
        for (const char* key : {"s", "e"}) {
          if (keyframe.contains(key)) {
            consider(keyframe[key]);
          }
        }
      }
    }
  }
  return std::isfinite(largest) && largest < static_cast<double>(beyondBudget)
             ? static_cast<std::uint64_t>(std::ceil(largest))
             : beyondBudget;
}

class Tally {
public:
  explicit Tally(Json& document) : document_(document) {}

  bool clamped() const { return clamped_; }

  std::uint64_t layers(Json& owner) {
    const auto list = owner.find("layers");
    if (list == owner.end() || !list->is_array()) {
      return 0;
    }
    std::uint64_t count = 0;
    for (Json& layer : *list) {
      if (layer.is_object()) {
        count = sum(count, this->layer(layer));
      }
    }
    return count;
  }

private:
  std::uint64_t layer(Json& layer) {
    std::uint64_t count = 1;
    if (const Json* masks = masksOf(layer)) {
      count = sum(count, masks->size());
    }
    const auto shapes = layer.find("shapes");
    if (shapes != layer.end() && shapes->is_array()) {
      count = sum(count, items(*shapes));
    }
    const std::string reference = stringMember(layer, "refId");
    if (!reference.empty()) {
      count = sum(count, precomposition(reference));
    }
    return count;
  }

  // A repeater copies everything before it in its list, so the count so far is multiplied.
  std::uint64_t items(Json& list) {
    std::uint64_t count = 0;
    for (Json& item : list) {
      if (!item.is_object()) {
        continue;
      }
      const std::string type = stringMember(item, "ty");
      if (type == "gr") {
        const auto children = item.find("it");
        count = sum(count, children != item.end() && children->is_array() ? items(*children) : 0);
      } else if (type == "rp") {
        std::uint64_t copies = largestCopies(item);
        if (product(count, copies) > limits::maxDrawnItems) {
          copies =
              std::max<std::uint64_t>(1, limits::maxDrawnItems / std::max<std::uint64_t>(1, count));
          item["c"] = Json{{"a", 0}, {"k", copies}};
          clamped_ = true;
        }
        count = product(count, copies);
      }
      count = sum(count, 1);
    }
    return count;
  }

  // What a precomposition draws, counted once however many layers show it. One that is being
  // counted already refers to itself: rlottie would recurse without end, so it never fits.
  std::uint64_t precomposition(const std::string& id) {
    if (const auto known = counted_.find(id); known != counted_.end()) {
      return known->second.value_or(beyondBudget);
    }
    counted_.emplace(id, std::nullopt);
    std::uint64_t count = 0;
    const auto assets = document_.find("assets");
    if (assets != document_.end() && assets->is_array()) {
      const auto asset = std::find_if(assets->begin(), assets->end(), [&](const Json& candidate) {
        return candidate.is_object() && stringMember(candidate, "id") == id;
      });
      if (asset != assets->end()) {
        count = layers(*asset);
      }
    }
    counted_[id] = count;
    return count;
  }

  Json& document_;
  std::map<std::string, std::optional<std::uint64_t>> counted_;
  bool clamped_ = false;
};

// Halves the copies of every repeater in `items` that makes more than one; whether any did.
bool halveRepeaters(Json& items) {
  bool halved = false;
  for (Json& item : items) {
    if (!item.is_object()) {
      continue;
    }
    const std::string type = stringMember(item, "ty");
    if (type == "gr" && item.contains("it") && item["it"].is_array()) {
      halved = halveRepeaters(item["it"]) || halved;
    } else if (const std::uint64_t copies = largestCopies(item); type == "rp" && copies > 1) {
      item["c"] = Json{{"a", 0}, {"k", (copies + 1) / 2}};
      halved = true;
    }
  }
  return halved;
}

// Halves the repeaters of every shape layer, in the document and in its precompositions.
bool halveAllRepeaters(Json& document) {
  bool halved = false;
  const auto halveLayers = [&](Json& owner) {
    if (!owner.contains("layers") || !owner["layers"].is_array()) {
      return;
    }
    for (Json& layer : owner["layers"]) {
      if (layer.is_object() && layer.contains("shapes") && layer["shapes"].is_array()) {
        halved = halveRepeaters(layer["shapes"]) || halved;
      }
    }
  };
  halveLayers(document);
  if (document.contains("assets") && document["assets"].is_array()) {
    for (Json& asset : document["assets"]) {
      if (asset.is_object()) {
        halveLayers(asset);
      }
    }
  }
  return halved;
}

} // namespace

BudgetFit fitDrawingBudget(Json& document) {
  if (!document.is_object()) {
    return BudgetFit::fits;
  }
  // Repeaters that pass the budget alone are clamped while counting; when the whole still does
  // not fit, typically nested repeaters that each fit alone, every repeater gives up half its
  // copies until it fits. Counts stop at beyondBudget, so this takes a dozen rounds at most.
  bool clamped = false;
  for (;;) {
    Tally tally(document);
    const std::uint64_t drawn = tally.layers(document);
    clamped = clamped || tally.clamped();
    if (drawn <= limits::maxDrawnItems) {
      return clamped ? BudgetFit::clamped : BudgetFit::fits;
    }
    if (!halveAllRepeaters(document)) {
      return BudgetFit::refused;
    }
    clamped = true;
  }
}

} // namespace frameloom::renderer
