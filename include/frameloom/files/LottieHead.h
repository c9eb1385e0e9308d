#pragma once

#include <frameloom/files/AnimationFileError.h>
#include <frameloom/platform/Export.h>

#include <cstdint>
#include <span>
#include <string>

namespace frameloom {

// The top-level "w" and "h" of an animation JSON; every other key is ignored.
struct FRAMELOOM_EXPORT LottieHead {
  // Why a document does not decode: it is not JSON (or not an object at the top), a key is
  // missing, or a key's value is not a number.
  class FRAMELOOM_EXPORT DecodingError : public AnimationFileError {
  public:
    enum class Code { notJSON, missingKey, wrongType };
    DecodingError(Code code, std::string message);
    Code code() const noexcept { return code_; }

  private:
    Code code_;
  };

  double w = 0;
  double h = 0;

  // Decodes strictly: the whole input must be one JSON value. UTF-16 and UTF-32 input (with or
  // without a byte-order mark) is accepted as well as UTF-8. Reads the document as a stream,
  // so its size and depth cost no more memory than a few numbers. Throws DecodingError.
  static LottieHead decode(std::span<const std::uint8_t> json);
};

} // namespace frameloom
