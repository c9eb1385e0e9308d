#pragma once

#include <frameloom/files/ColorMap.h>

#include <array>
#include <cstddef>
#include <frameloom/platform/Export.h>
#include <functional>
#include <string>
#include <string_view>

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
//
// `observer`, when given, is told of every replaced array: the pass (0 to 3, in the order above),
// the array's byte range in that pass's input text and the text put in its place.
using ColorEditObserver =
    std::function<void(int pass, std::size_t begin, std::size_t end, std::string_view replacement)>;
FRAMELOOM_EXPORT std::string rewriteColors(std::string text, ColorMap& map, int precision,
                                           const ColorEditObserver& observer = {});

// The regular expressions of the four passes, in pass order. Group 1 of each is the colour array.
FRAMELOOM_EXPORT extern const std::array<const char*, 4> colorPassPatterns;

} // namespace frameloom
