#pragma once

#include <frameloom/platform/core/Bytes.h>
#include <frameloom/renderer/AnimationChoice.h>
#include <frameloom/renderer/Refusal.h>

#include <optional>
#include <string>

namespace frameloom::renderer {

// Reads the animation `rule` chooses (see AnimationChoice.h) out of .lottie archive bytes. Pictures
// the document names that the archive holds under images/ or i/ are inlined into it as data URIs,
// WebP ones re-encoded as PNG (see inlinePictures()). None when the bytes are not an archive, hold
// no animation, or an entry cannot be read or is larger than the renderer accepts; `refusal` then
// says which size it passed. Never throws on bad input.
std::optional<std::string> dotLottieAnimationDocument(platform::ByteView bytes, AnimationRule rule,
                                                      std::optional<Refusal>& refusal);

} // namespace frameloom::renderer
