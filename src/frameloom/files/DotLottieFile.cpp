#include <frameloom/files/DotLottieFile.h>

#include <frameloom/files/ColorReplacement.h>
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Text.h>

#include <algorithm>
#include <cctype>

namespace frameloom {
namespace {

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

const char* playerErrorMessage(DotLottieFile::DotLottiePlayerError::Code code) {
  switch (code) {
  case DotLottieFile::DotLottiePlayerError::Code::containsImages:
    return "the .lottie file contains images (DotLottiePlayerError 0)";
  case DotLottieFile::DotLottiePlayerError::Code::missingAnimationJSON:
    return "the .lottie file has no animation JSON (DotLottiePlayerError 1)";
  case DotLottieFile::DotLottiePlayerError::Code::invalidAnimationJSON:
    return "the animation JSON is not UTF-8 (DotLottiePlayerError 2)";
  }
  return "DotLottiePlayerError";
}

} // namespace

DotLottieFile::DotLottiePlayerError::DotLottiePlayerError(Code code)
    : AnimationFileError(playerErrorMessage(code)), code_(code) {}

DotLottieFile::DotLottieFile(const std::filesystem::path& dotLottieURL)
    : size_(readAnimationSize(dotLottieURL)) {}

platform::Size DotLottieFile::readAnimationSize(const std::filesystem::path& url) {
  ziploom::Archive archive(url, ziploom::AccessMode::read);

  // Pictures are refused even when the animation itself would be usable.
  for (const ziploom::Entry& entry : archive) {
    if (lowercased(entry.path()).starts_with("images/")) {
      throw DotLottiePlayerError(DotLottiePlayerError::Code::containsImages);
    }
  }
  for (const ziploom::Entry& entry : archive) {
    const std::string path = lowercased(entry.path());
    if (!path.starts_with("animations/") || !path.ends_with(".json")) {
      continue;
    }
    platform::Bytes json;
    archive.extract(
        entry, ziploom::defaultReadChunkSize, false, nullptr,
        [&json](platform::ByteView chunk) { json.insert(json.end(), chunk.begin(), chunk.end()); });
    const LottieHead head = LottieHead::decode(json);
    // The decoder also reads UTF-16 and UTF-32; only UTF-8 is an acceptable animation.
    if (!ziploom::isValidUTF8(json)) {
      throw DotLottiePlayerError(DotLottiePlayerError::Code::invalidAnimationJSON);
    }
    return platform::Size{head.w, head.h};
  }
  throw DotLottiePlayerError(DotLottiePlayerError::Code::missingAnimationJSON);
}

std::string DotLottieFile::replaceColors(std::string text, std::vector<ColorComponents> colors,
                                         int precision) {
  ColorMap map(std::move(colors));
  return rewriteColors(std::move(text), map, precision);
}

std::vector<DotLottieFile::PaletteColor> DotLottieFile::palette(std::string text) {
  // Any colour does: only the order in which the map meets the source colours is kept.
  ColorMap map({{0.0, 0.0, 0.0, 1.0}});
  rewriteColors(std::move(text), map, 3);
  std::vector<PaletteColor> colors;
  colors.reserve(map.entries().size());
  for (const ColorMap::Entry& entry : map.entries()) {
    colors.push_back(PaletteColor{colorKey(entry.source), entry.source, entry.uses});
  }
  return colors;
}

} // namespace frameloom
