#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

// The first step of recolouring: one scan of the text for the keys at which the colour patterns'
// matches can start. Runs on the caller's thread; throws only std::bad_alloc.
namespace frameloom {

// Where each pass's matches may start: the positions of its key with its quotes ("c", "fc", "sc"
// and "g", in pass order), in text order, overlapping ones included.
using KeyPositions = std::array<std::vector<std::size_t>, 4>;

KeyPositions findColorKeys(std::string_view text);

} // namespace frameloom
