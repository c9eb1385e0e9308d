#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string_view>

namespace frameloom::renderer {

// Parses a Lottie document into a tree that keeps its members' order, as nlohmann's own parser
// does (a repeated name keeps its first place and its last value), but in time proportional to
// the text: nlohmann's ordered objects copy their members whenever they grow, subtrees included.
// None when the text is not one JSON value. Runs on the caller's thread; throws only when out of
// memory. Callers bound the nesting first: the tree's depth is the text's.
std::optional<nlohmann::ordered_json> parseDocument(std::string_view text);

} // namespace frameloom::renderer
