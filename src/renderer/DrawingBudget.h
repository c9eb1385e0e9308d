#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// Keeps a parsed Lottie document within limits::maxDrawnItems (Limits.h): counts what one frame
// draws (layers, masks and shape items, with repeater copies and precomposition reuse multiplied
// through), clamps repeaters whose copies alone would pass the budget to as many copies as fit,
// then halves every repeater until the whole fits, and says whether the document fits as it was,
// fits once clamped, or is refused. A document whose
// precompositions refer to themselves never fits. Works in place on any JSON value without throwing
// on odd input; recursion follows the document's nesting, which the caller bounds
// (limits::maxNesting). Runs on the caller's thread and shares no state.
enum class BudgetFit { fits, clamped, refused };
BudgetFit fitDrawingBudget(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
