#pragma once

#include <frameloom/renderer/AnimationChoice.h>
#include <frameloom/renderer/Refusal.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace frameloom::renderer {

// The Lottie JSON document held by bytes given to the renderer: the bytes themselves when they
// are plain JSON, otherwise the animation `rule` chooses in the .lottie archive they hold. None
// when they hold no animation. Pictures come back inlined and within the picture budget
// (inlinePictures(), PictureInlining.h). When an archive is refused for its size, `refusal` says
// why. Never throws on bad input.
std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes, AnimationRule rule,
                                          std::optional<Refusal>& refusal);
// The same, for callers that need no reason.
std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes,
                                          AnimationRule rule = AnimationRule::renderer);

} // namespace frameloom::renderer
