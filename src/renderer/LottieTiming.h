#pragma once

#include <optional>
#include <string_view>

namespace frameloom::renderer {

// The document's timeline: its in point and out point in frames, and its frame rate.
struct LottieTiming {
  double inPoint = 0;
  double outPoint = 0;
  double frameRate = 0;
};

// Reads the top-level "ip", "op" and "fr" of a Lottie document, stopping as soon as it has all
// three. None when one is missing or not a finite number, when the frame rate is not positive, or
// when the document ends or stops being JSON before all three are found.
std::optional<LottieTiming> readLottieTiming(std::string_view json);

} // namespace frameloom::renderer
