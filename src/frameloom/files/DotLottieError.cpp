#include <frameloom/files/DotLottieError.h>

namespace frameloom {
namespace {

std::string messageFor(DotLottieError::Code code) {
  switch (code) {
  case DotLottieError::Code::failedToReadArchive:
    return "Failed to read archive";
  case DotLottieError::Code::noAnimationJSON:
    return "No animation JSON found";
  case DotLottieError::Code::failedToReadOriginalArchive:
    return "Failed to read original .lottie archive";
  case DotLottieError::Code::failedToCreateNewArchive:
    return "Failed to create new archive";
  case DotLottieError::Code::entryOutsideWorkFolder:
    return "Archive entry would leave the work folder";
  case DotLottieError::Code::animationJSONNotUTF8:
    return "Animation JSON not UTF-8";
  case DotLottieError::Code::utf8EncodeFailed:
    return "UTF-8 encode failed";
  }
  return "DotLottie error " + std::to_string(static_cast<int>(code));
}

} // namespace

DotLottieError::DotLottieError(Code code) : AnimationFileError(messageFor(code)), code_(code) {}

DotLottieError::DotLottieError(Code code, std::string_view detail)
    : AnimationFileError(messageFor(code) + ": " + std::string(detail)), code_(code) {}

} // namespace frameloom
