#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// rlottie draws nothing of a shape, solid or picture layer under a track matte ("tt") unless the
// layer covers the whole frame, while it mattes a precomposition layer correctly.
// mattedShapesAsPrecompositions() moves each such layer into a precomposition of its own: a new
// asset holding the layer without its matte and parent, shown by a precomposition layer with the
// same index, times, matte (used and given) and parent, an identity transform and no clipping, so
// that it draws where the layer drew. Layers that other layers name as their parent stay as they
// are (their children follow the layer's own transform). Works in place like the other document
// repairs, walks the document without recursion, throws nothing on odd input, and returns whether
// it changed anything.
bool mattedShapesAsPrecompositions(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
