#pragma once

#include <frameloom/platform/Export.h>

#include <string>

// Why the renderer refused an animation's document: which of its budgets the document passed. A
// refused animation loads nothing and draws nothing; the reason is there to tell the user.
// Plain values; never throw.
namespace frameloom::renderer {

enum class Refusal {
  // Values nested deeper than the renderer checks.
  nestedTooDeep,
  // More layers, masks and shape items per frame than the drawing budget, after clamping
  // repeaters.
  tooManyDrawnItems,
};

// One line naming the budget, such as "animation refused: more than 2000 drawn items per frame".
FRAMELOOM_EXPORT std::string refusalMessage(Refusal refusal);

} // namespace frameloom::renderer
