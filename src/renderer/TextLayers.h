#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// Turns every text layer of a parsed Lottie document (ty 5, which rlottie does not draw) into a
// shape layer drawing the same text: each text document keyframe becomes a group shown from its
// time to the next one's, laid out with its size, tracking, line height, baseline shift,
// justification, lines and box, filled and stroked with its colours and stroke width. Glyph
// outlines come from the document's own "chars" when it has them for the font, otherwise from the
// system font closest to the font's family and style (SystemFont). Text animators and text on a
// path are not expressed: the text is drawn as its document says. Returns whether it changed
// anything. Runs on the caller's thread; throws only on memory exhaustion.
bool textLayersAsShapes(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
