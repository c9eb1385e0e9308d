#pragma once

#include "frameloom/ColorMap.h"

#include <string>

namespace frameloom {

// Rewrites the static colour values of a Lottie animation JSON text in four passes, each one scan
// of the previous pass's result: solid colours ("k" array of a "c" object), text fill ("fc")
// and text stroke ("sc") colours, then gradient colour stops ("k" array of the "k" object of a
// "g" object). Every source colour met is handed to `map`, in that order, and its array is
// replaced by the map's answer: solid and text colours written with `precision` decimals,
// gradient arrays re-serialised compactly. Bytes outside the replaced arrays stay as they were.
//
// The text may be anything (invalid UTF-8, not JSON): arrays that cannot be read are left alone.
// Throws nothing but std::bad_alloc; runs on the caller's thread, and several calls may run at
// once with their own maps.
std::string rewriteColors(std::string text, ColorMap& map, int precision);

} // namespace frameloom
