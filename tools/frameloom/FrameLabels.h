#pragma once

#include <frameloom/platform/graphics/Image.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace frameloom::tool {

// A sheet or a comparison holds all its frames until it is drawn.
constexpr std::size_t maxSheetFrames = 10000;

// `count` frame numbers spread evenly from 0 to `last`, both included.
std::vector<float> evenlySpacedFrames(std::size_t count, float last);

// A copy of a contact sheet of `columns` x `rows` equal cells with each cell's frame number drawn
// in its bottom-left corner, in white on a translucent black box.
std::shared_ptr<const platform::Image> labelFrames(const platform::Image& sheet,
                                                   std::size_t columns, std::size_t rows,
                                                   const std::vector<float>& frames);

} // namespace frameloom::tool
