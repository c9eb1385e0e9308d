#pragma once

#include <cstddef>
#include <cstdint>

// Budgets that keep a small hostile document from taking the machine while the renderer loads
// and draws it. Each holds for one animation; the renderer checks them before rlottie sees the
// document, so rlottie never decodes or draws more than they allow.
namespace frameloom::renderer::limits {

// Decoded pixels of all the pictures of one animation: 64 Mi pixels, 256 MiB as RGBA, four
// pictures of 4096 x 4096. A picture is a few kilobytes when compressed but decodes to its whole
// canvas, so a small archive could otherwise hold gigabytes of pixels. Pictures beyond the budget
// (and pictures whose size cannot be read from their header) are left out: their layers draw
// nothing.
constexpr std::uint64_t maxPicturePixels = std::uint64_t{1} << 26;

// Shape items (paths, paints, modifiers), masks and layers drawn per frame, with the copies of
// repeaters and the reuse of precompositions multiplied through. The largest real animations
// seen draw under a thousand; every item costs rlottie a path and often a pass over the pixels,
// and at 4000 x 4000 pixels the thousand canvas-sized fills two thousand items can make take some
// 3 s of one core per frame.
// Repeaters that would pass the budget on their own are clamped to as many copies as fit, then
// all repeaters are halved until the whole fits; a document still beyond it is refused.
constexpr std::uint64_t maxDrawnItems = 2000;

// Nesting of a document's values. Parsing, checking and rewriting recurse once per level; real
// documents nest a few dozen levels. Deeper documents are refused.
constexpr std::size_t maxNesting = 256;

} // namespace frameloom::renderer::limits
