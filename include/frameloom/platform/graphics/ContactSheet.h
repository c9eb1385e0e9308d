#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <frameloom/platform/Export.h>
#include <memory>
#include <vector>

namespace frameloom::platform {

// Lays frames out left to right, top to bottom, on a grid of `columns` x `rows` cells the size of
// the first frame; cells without a frame, and frames smaller than the cell, leave transparent
// pixels, and larger frames are cut at the cell's edge. Throws std::invalid_argument when there is
// no first frame, the grid is empty or has fewer cells than frames, or the sheet would exceed
// Image::maxDimension on a side.
FRAMELOOM_EXPORT std::shared_ptr<const Image>
makeContactSheet(const std::vector<std::shared_ptr<const Image>>& frames, std::size_t columns,
                 std::size_t rows);

} // namespace frameloom::platform
