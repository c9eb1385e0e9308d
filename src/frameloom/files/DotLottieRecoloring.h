#pragma once

#include <frameloom/files/DotLottieFile.h>

#include <filesystem>
#include <vector>

// Recolouring a .lottie file: read its animation JSON, replace the colours, unpack the archive
// into a work folder, put the new JSON there and pack the folder into a new archive. Runs on the
// caller's thread with no shared state.
namespace frameloom {

// DotLottieFile::recolor; throws as it does.
std::filesystem::path recolorDotLottie(const std::filesystem::path& dotLottieURL,
                                       std::vector<ColorComponents> colors, int precision);

// DotLottieFile::readPalette; throws as it does.
std::vector<DotLottieFile::PaletteColor>
readDotLottiePalette(const std::filesystem::path& dotLottieURL);

} // namespace frameloom
