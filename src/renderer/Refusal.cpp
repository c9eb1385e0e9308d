#include <frameloom/renderer/Refusal.h>

#include "renderer/Limits.h"
#include <frameloom/renderer/Limits.h>

namespace frameloom::renderer {

std::string refusalMessage(Refusal refusal) {
  switch (refusal) {
  case Refusal::nestedTooDeep:
    return "animation refused: values nested more than " + std::to_string(limits::maxNesting) +
           " levels deep";
  case Refusal::tooManyDrawnItems:
    return "animation refused: more than " + std::to_string(limits::maxDrawnItems) +
           " drawn items per frame";
  case Refusal::documentTooLarge:
    return "animation refused: its document unpacks to more than " +
           std::to_string(maximumAnimationDocumentSize >> 20) + " MiB";
  case Refusal::archiveTooLarge:
    return "animation refused: the archive unpacks to more than " +
           std::to_string(maximumUnpackedArchiveSize >> 20) + " MiB";
  }
  return "animation refused";
}

} // namespace frameloom::renderer
