#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// rlottie ignores the skew of a transform ("sk", along the axis "sa"). skewAsNestedGroups()
// rewrites each shape group whose transform skews along the horizontal axis (skew axis 0) with a
// fixed skew and scale as three nested groups that draw the same without skew: a fixed skew and
// scale is a turn, a scale along the axes and another turn. The outer group keeps the position,
// rotation and opacity (animated or not), the middle one the first turn and the scale, the inner
// one the second turn and the anchor. Works in place like the other document repairs, walks the
// document without recursion, throws nothing on odd input, and returns whether it changed
// anything. Layer transforms with a skew are left alone.
bool skewAsNestedGroups(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
