#include "renderer/LottieDocument.h"

#include "renderer/DotLottieArchive.h"
#include "renderer/PictureInlining.h"

#include <algorithm>

namespace frameloom::renderer {

namespace {

bool looksLikeJson(std::span<const std::uint8_t> bytes) {
  const auto first = std::find_if(bytes.begin(), bytes.end(), [](std::uint8_t byte) {
    return byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n';
  });
  return first != bytes.end() && *first == '{';
}

} // namespace

std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes, AnimationRule rule,
                                          std::optional<Refusal>& refusal) {
  if (looksLikeJson(bytes)) {
    std::string json(bytes.begin(), bytes.end());
    if (!mayHoldDataUri(json)) {
      return json;
    }
    // A plain document has no picture files beside it; only its inlined pictures need checking.
    return inlinePictures(std::move(json), [](std::string_view) -> std::optional<std::string> {
      return std::nullopt;
    });
  }
  return dotLottieAnimationDocument(bytes, rule, refusal);
}

std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes, AnimationRule rule) {
  std::optional<Refusal> ignored;
  return lottieDocument(bytes, rule, ignored);
}

} // namespace frameloom::renderer
