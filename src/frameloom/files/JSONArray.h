#pragma once

#include <nlohmann/json.hpp>

#include <string_view>

namespace frameloom {

// The JSON array `array` parses to, or a null value when it is not a JSON array. Never throws but
// std::bad_alloc.
inline nlohmann::json parseJSONArray(std::string_view array) {
  nlohmann::json parsed = nlohmann::json::parse(array, nullptr, false);
  return parsed.is_array() ? parsed : nlohmann::json();
}

} // namespace frameloom
