#pragma once

#include <cstdint>

// Budgets for what the renderer and the layers above it hold in memory at once, whatever an
// archive or a file declares. Each is checked while the bytes are read, not only against a size
// the input claims. Together they keep info, palette, recolor, render and play of any input well
// below 300 MB resident.
namespace frameloom::renderer {

// The largest animation JSON any path reads into memory. Real animations are a few megabytes
// (the biggest in the corpus is 0.3 MB); the text is held two or three times over (the bytes,
// the rewritten text or the parsed model), so 64 MiB leaves room for every real one.
inline constexpr std::uint64_t maximumAnimationDocumentSize = std::uint64_t{64} << 20;

// The most one .lottie archive may make the renderer unpack, whatever its entries claim: the
// animation document and the pictures inlined into it together.
inline constexpr std::uint64_t maximumUnpackedArchiveSize = std::uint64_t{96} << 20;

// The largest .lottie or JSON file read whole into memory to be rendered: the renderer takes an
// animation as bytes, and opening them as an archive copies them once more.
inline constexpr std::uint64_t maximumAnimationFileSize = std::uint64_t{64} << 20;

} // namespace frameloom::renderer
