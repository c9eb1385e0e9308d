#include "platform/renderer/LottieDocument.h"

#include "platform/renderer/DotLottieArchive.h"

#include <algorithm>

namespace frameloom::platform {

namespace {

bool looksLikeJson(std::span<const std::uint8_t> bytes) {
  const auto first = std::find_if(bytes.begin(), bytes.end(), [](std::uint8_t byte) {
    return byte != ' ' && byte != '\t' && byte != '\r' && byte != '\n';
  });
  return first != bytes.end() && *first == '{';
}

} // namespace

std::optional<std::string> lottieDocument(std::span<const std::uint8_t> bytes) {
  if (looksLikeJson(bytes)) {
    return std::string(bytes.begin(), bytes.end());
  }
  return dotLottieAnimationDocument(bytes);
}

} // namespace frameloom::platform
