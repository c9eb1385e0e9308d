#pragma once

#include <nlohmann/json.hpp>

#include <functional>
#include <optional>
#include <string>

namespace frameloom::renderer {

// Rewrites of a parsed Lottie document (key order kept) that make rlottie draw what the document
// means. Each works in place on any JSON value, walks it with an explicit stack (a hostile
// document may nest deeper than the call stack allows), never throws on odd input, and returns
// whether it changed anything. They run on the caller's thread and share no state.
//
// Misreadings, repaired for every document before rlottie sees it:
// - text layers, which rlottie does not draw, become shapes: textLayersAsShapes() (TextLayers.h);
// - rlottie keeps a multi-dimensional property at its first value when the last keyframe, which
//   leads nowhere, carries an easing: dropLastKeyframeEasing() removes it;
// - a mask in mode "n" does nothing, where rlottie hides the layer: dropInertMasks();
// - rlottie hides a layer with a mask in mode "l" (lighten) or "d" (darken), which lottie-web
//   draws as it draws an adding mask, except that where such masks overlap the more opaque one
//   counts instead of both: lightenAndDarkenMasksAsAdding() makes them adding masks, exact
//   wherever the masks are opaque or apart;
// - rlottie draws a layer's only mask (adding, not inverted) at full opacity whatever its own;
//   inside that mask the mask's opacity is the layer's: maskOpacityAsLayerOpacity() moves it
//   there when the layer's opacity is fixed;
// - a layer whose in or out point falls between frames shows from the next whole frame on, where
//   rlottie shows it one frame early: wholeFrameLayerTimes();
// - rlottie takes a layer for a 3D one, and ignores its rotation "r", unless "ddd" says otherwise
//   before the transform "ks"; a layer without "ddd" is flat: dimensionBeforeTransform() puts
//   "ddd" first, 0 when missing;
// - rlottie reads an object's members knowing its "ty", and misreads or drops objects whose "ty"
//   comes after other keys; key order means nothing in JSON, so it moves first: typeFirst();
// - rlottie ignores a time remap that does not change over time, where the precomposition should
//   stay at that time: keyframedStaticTimeRemap() writes it as two equal hold keyframes;
// - rlottie draws a precomposition stretched in time ("sr") at whole frames of its own timeline,
//   so it jumps where it should move smoothly: stretchIntoKeyframes() scales the times inside a
//   precomposition used once (keyframes, in and out points, starts of inner layers) by the
//   stretch and sets the stretch to 1. Precompositions with a time remap are left alone.
// - rlottie turns stars and polygons by twice their rotation and draws fractions of their point
//   count: polystarRotationOnce() and wholePolystarPoints() (PolystarRepairs.h).
// - rlottie ignores the skew of a group's transform: skewAsNestedGroups() (SkewRepairs.h).
// - rlottie blends a gradient's colour and opacity stops premultiplied, so a colour fading out
//   keeps its opaque neighbour's colour: opacityStopsResampled() (GradientRepairs.h).
// - rlottie draws nothing of a shape, solid or picture layer under a track matte unless it
//   covers the frame: mattedShapesAsPrecompositions() (MatteRepairs.h).
// - rlottie clips a precomposition layer of an unbounded size (99999, written by exporters) to
//   nothing, where it means no clip: unclipHugePrecompositions() drops sizes beyond 16384.
// - rlottie draws nothing of a document in which a property of one number, such as an opacity,
//   holds a fixed value written as an array of one number ("k": [50]), which lottie-web reads as
//   the number: oneNumberArraysAsNumbers() unwraps them in layer transforms, masks and shapes.
// - rlottie reads a solid layer's colour "sc" only in six hexadecimal digits and draws "#f80" as
//   white: shortSolidColorsInFull() writes three digits as six ("#ff8800").
// - rlottie rounds the corners of paths after a round-corners item "rd" but not those of a
//   rectangle "rc": roundCornersOnRectangles() gives a sharp rectangle before a fixed "rd" in the
//   same list the radius as its own roundness, which draws the same corners.
// - rlottie ignores "inv" on an adding mask and shows what the mask covers instead of what it
//   leaves out; as a layer's first mask, an inverted adding mask at full opacity means the layer
//   less the mask's area, which is what rlottie draws for a subtracting first mask:
//   invertedFirstMaskAsSubtracting() makes it one.
//
// Refusals, repaired only when rlottie loads nothing or nothing drawable, because a rewrite that
// is harmless in theory can still change how rlottie reads another document:
// - whole numbers written as floats ("ty": 3.0): wholeFloatsAsIntegers();
// - a fractional composition size: wholeCompositionSize();
// - rotations "rx", "ry" or "rz" on a 2D layer, which turns by "r" alone: planeRotations() drops
//   them;
// - members whose value is null: dropNullMembers().
bool dropLastKeyframeEasing(nlohmann::ordered_json& document);
bool dropInertMasks(nlohmann::ordered_json& document);
bool lightenAndDarkenMasksAsAdding(nlohmann::ordered_json& document);
bool maskOpacityAsLayerOpacity(nlohmann::ordered_json& document);
bool wholeFrameLayerTimes(nlohmann::ordered_json& document);
bool typeFirst(nlohmann::ordered_json& document);
bool dimensionBeforeTransform(nlohmann::ordered_json& document);
bool keyframedStaticTimeRemap(nlohmann::ordered_json& document);
bool stretchIntoKeyframes(nlohmann::ordered_json& document);
bool unclipHugePrecompositions(nlohmann::ordered_json& document);
bool oneNumberArraysAsNumbers(nlohmann::ordered_json& document);
bool shortSolidColorsInFull(nlohmann::ordered_json& document);
bool roundCornersOnRectangles(nlohmann::ordered_json& document);
bool invertedFirstMaskAsSubtracting(nlohmann::ordered_json& document);

bool wholeFloatsAsIntegers(nlohmann::ordered_json& document);
bool wholeCompositionSize(nlohmann::ordered_json& document);
bool planeRotations(nlohmann::ordered_json& document);
bool dropNullMembers(nlohmann::ordered_json& document);

// Whole numbers beyond 2^53 are not all representable as doubles: no repair turns a larger one
// into an integer or walks along times beyond it.
inline constexpr double largestExactWhole = 9007199254740992.0;

// Calls `visit` on every value of the tree, parents before children; the children walked are
// those the value has after its visit.
void forEachValue(nlohmann::ordered_json& root,
                  const std::function<void(nlohmann::ordered_json&)>& visit);

// The member's text when it is a string, else empty; nlohmann's value() would throw on a member
// of another type.
std::string stringMember(const nlohmann::ordered_json& object, const char* key);

// The value ("k") of the animatable property `key` of `owner`, or null when it has none.
const nlohmann::ordered_json* propertyValue(const nlohmann::ordered_json& owner, const char* key);
nlohmann::ordered_json* propertyValue(nlohmann::ordered_json& owner, const char* key);

// A number as rlottie reads a property's value: the number itself, or the first element of an
// array when that is a number.
std::optional<double> firstNumber(const nlohmann::ordered_json& value);

// Calls `visit` on every list of layers, the document's and those of its precomposition assets,
// and on every layer of them.
void forEachLayerList(nlohmann::ordered_json& document,
                      const std::function<void(nlohmann::ordered_json&)>& visit);
void forEachLayer(nlohmann::ordered_json& document,
                  const std::function<void(nlohmann::ordered_json&)>& visit);

// A layer's masks when it has a list of them, else null.
nlohmann::ordered_json* masksOf(nlohmann::ordered_json& layer);

// All the misreading repairs, then (when `forRefusal`) all the refusal repairs.
bool repairDocument(nlohmann::ordered_json& document, bool forRefusal);

} // namespace frameloom::renderer
