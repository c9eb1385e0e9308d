#include <frameloom/renderer/Refusal.h>

#include "renderer/Limits.h"

namespace frameloom::renderer {

std::string refusalMessage(Refusal refusal) {
  switch (refusal) {
  case Refusal::nestedTooDeep:
    return "animation refused: values nested more than " + std::to_string(limits::maxNesting) +
           " levels deep";
  case Refusal::tooManyDrawnItems:
    return "animation refused: more than " + std::to_string(limits::maxDrawnItems) +
           " drawn items per frame";
  }
  return "animation refused";
}

} // namespace frameloom::renderer
