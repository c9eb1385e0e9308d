#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// rlottie blends a gradient's colour and opacity stops premultiplied, so that a colour fading to
// transparent keeps the colour of its opaque neighbour (red fading out where red turns blue while
// it fades). opacityStopsResampled() rewrites each fixed gradient of a fill or stroke ("gf",
// "gs") whose opacity stops are not all opaque as colour and opacity stops at the same, closely
// spaced offsets: the offsets of both lists, each interval between them cut into
// gradientSubdivisions, at most maxGradientStops in all. Between stops that close the two
// blends differ by little. Keyframed gradients are left as they are. Works in place like the
// other document repairs, walks the document without recursion, throws nothing on odd input,
// and returns whether it changed anything.
bool opacityStopsResampled(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
