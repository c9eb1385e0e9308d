#pragma once

#include <frameloom/platform/core/Bytes.h>

#include <optional>
#include <string>

namespace frameloom::renderer {

// Reads the animation out of .lottie archive bytes the way dotLottie players choose it: the first
// animation manifest.json lists, looked up under animations/ or a/; without a usable manifest the
// first .json file under either folder. Pictures the document names that the archive holds under
// images/ or i/ are inlined into it as data URIs, WebP ones re-encoded as PNG (see
// inlinePictures()). None when the bytes are not an archive, hold no
// animation, or an entry cannot be read or is larger than the renderer accepts. Never throws on
// bad input.
std::optional<std::string> dotLottieAnimationDocument(platform::ByteView bytes);

} // namespace frameloom::renderer
