#pragma once

#include <frameloom/renderer/Refusal.h>

#include <memory>
#include <optional>
#include <string>

namespace rlottie {
class Animation;
}

namespace frameloom::renderer {

// Loads a Lottie document into an rlottie model, repaired on the way (DocumentRepairs.h): the
// misreading repairs always, the refusal repairs only when rlottie loads nothing or a model whose
// middle frame is empty, and then kept only when the repaired model does better. Repeaters are
// clamped to the drawing budget (DrawingBudget.h). No model for a document that is not JSON,
// nests deeper than limits::maxNesting or draws beyond the budget (these two also set `refusal`),
// nor when neither loads. Runs on the caller's thread; throws only on memory exhaustion.
std::unique_ptr<rlottie::Animation> loadRepairedModel(std::string document,
                                                      std::optional<Refusal>& refusal);

} // namespace frameloom::renderer
