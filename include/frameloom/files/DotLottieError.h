#pragma once

#include <frameloom/files/AnimationFileError.h>

#include <string>
#include <string_view>

namespace frameloom {

// A failure that recolouring a .lottie file detects itself, in the error domain "DotLottie": a
// numbered code and its fixed message. Errors of the archive layer and the file system that it
// does not replace by one of these pass through unchanged.
class DotLottieError : public AnimationFileError {
public:
  enum class Code : int {
    failedToReadArchive = 1,          // "Failed to read archive"
    noAnimationJSON = 2,              // "No animation JSON found"
    failedToReadOriginalArchive = 10, // "Failed to read original .lottie archive"
    failedToCreateNewArchive = 11,    // "Failed to create new archive"
    entryOutsideWorkFolder = 12,      // "Archive entry would leave the work folder: " + path
    animationJSONNotUTF8 = 300,       // "Animation JSON not UTF-8"
    utf8EncodeFailed = 301,           // "UTF-8 encode failed"
  };

  static constexpr std::string_view domain = "DotLottie";

  explicit DotLottieError(Code code);
  // For codes whose message names the item involved.
  DotLottieError(Code code, std::string_view detail);

  Code code() const noexcept { return code_; }

private:
  Code code_;
};

} // namespace frameloom
