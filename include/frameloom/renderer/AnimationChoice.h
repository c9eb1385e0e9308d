#pragma once

#include <frameloom/platform/Export.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Which entry of a .lottie archive is "the animation". Three readers choose differently, each for
// reasons of its own that its callers rely on, so the three rules stand here side by side. Pure
// functions over entry paths; nothing here throws except std::bad_alloc.
namespace frameloom::renderer {

// The size reader's rule (DotLottieFile's constructor): the first entry whose lower-cased path
// begins with "animations/" and ends with ".json".
FRAMELOOM_EXPORT bool isSizeReaderAnimation(std::string_view path);

// Recolouring's rule (DotLottieFile::recolor and readPalette): the first entry whose path contains
// "animations/" anywhere and ends with ".json" in any letter case.
FRAMELOOM_EXPORT bool isRecolouringAnimation(std::string_view path);

// The renderer's rule (DotLottieAnimation): the animation manifest.json lists first, looked up as
// animations/<id>.json or a/<id>.json; without such a file, the first one whose path begins with
// "animations/" or "a/" and ends with ".json" in any letter case. `filePaths` are the archive's
// file entries in archive order, `manifest` the text of its manifest.json when it has one.
// Returns the index of the chosen path.
FRAMELOOM_EXPORT std::optional<std::size_t>
rendererAnimation(std::span<const std::string> filePaths, std::optional<std::string_view> manifest);

// The rule a renderer applies to an archive. A recoloured copy keeps its manifest, which may name
// another animation than the one recolouring rewrote; it is shown with recolouring's rule, so that
// what is shown is what was recoloured.
enum class AnimationRule { renderer, recolouring };

} // namespace frameloom::renderer
