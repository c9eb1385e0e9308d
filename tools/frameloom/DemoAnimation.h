#pragma once

#include <string_view>

namespace frameloom::tool {

// The Lottie JSON of assets/demo-animation.json, built into the tool.
std::string_view demoAnimationJson();

} // namespace frameloom::tool
