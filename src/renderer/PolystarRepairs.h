#pragma once

#include <nlohmann/json.hpp>

namespace frameloom::renderer {

// Rewrites of the stars and polygons ("sr" shape items) of a parsed Lottie document that rlottie
// draws otherwise than other players. Like the other document repairs they work in place, walk
// the document without recursion, throw nothing on odd input and return whether they changed
// anything; they run on the caller's thread and share no state.
//
// - rlottie turns a polystar by twice its rotation "r": polystarRotationOnce() halves it, every
//   keyframe included.
// - A polystar has as many points as the whole part of its count "pt"; rlottie draws a fraction
//   of a point as well. wholePolystarPoints() drops the fraction of a fixed count and writes an
//   animated count as hold keyframes of whole counts, one wherever the count changes at a whole
//   frame between its first and last keyframes.
bool polystarRotationOnce(nlohmann::ordered_json& document);
bool wholePolystarPoints(nlohmann::ordered_json& document);

} // namespace frameloom::renderer
