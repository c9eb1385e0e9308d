#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace frameloom::renderer {

// The Lottie JSON document held by bytes given to the renderer: the bytes themselves when they
// are plain JSON, otherwise the animation a .lottie archive in them holds. None when they hold
// no animation. Inlined WebP pictures come back re-encoded as PNG. Never throws on bad input.
std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes);

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
