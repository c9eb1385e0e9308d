#pragma once

#include <stdexcept>

namespace frameloom {

// The base of every error the animation-file layer raises itself (DotLottieError,
// DotLottieFile::DotLottiePlayerError, DotLottieFile::LottieHead::DecodingError), so that one
// catch takes them all. Errors of Ziploom and the file system pass through as they are.
class AnimationFileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace frameloom
