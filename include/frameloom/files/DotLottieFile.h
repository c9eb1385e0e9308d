#pragma once

#include <frameloom/files/AnimationFileError.h>
#include <frameloom/files/ColorMap.h>
#include <frameloom/platform/graphics/Size.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace frameloom {

// A dotLottie (.lottie) file: a ZIP archive holding Lottie animation JSON under "animations/".
// Constructing one checks the archive and reads its animation's natural size; nothing else is
// kept, and no file stays open. The static operations recolour animations.
//
// Everything here is synchronous on the caller's thread and keeps no shared state, so calls may
// run on several threads at once.
class DotLottieFile {
public:
  // What the size reader refuses; the code is the case's number.
  class DotLottiePlayerError : public AnimationFileError {
  public:
    enum class Code : int {
      containsImages = 0,
      missingAnimationJSON = 1,
      invalidAnimationJSON = 2
    };
    explicit DotLottiePlayerError(Code code);
    Code code() const noexcept { return code_; }
    friend bool operator==(const DotLottiePlayerError& lhs, const DotLottiePlayerError& rhs) {
      return lhs.code_ == rhs.code_;
    }

  private:
    Code code_;
  };

  // The top-level "w" and "h" of an animation JSON; every other key is ignored.
  struct LottieHead {
    // Why a document does not decode: it is not JSON (or not an object at the top), a key is
    // missing, or a key's value is not a number.
    class DecodingError : public AnimationFileError {
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

  // One distinct source colour of a document: its key, the first value met with that key
  // (normalised to four components) and how many colour values share it.
  struct PaletteColor {
    std::string key;
    ColorComponents color;
    std::size_t uses = 0;
  };

  // Opens the archive at `dotLottieURL`, refuses it when any entry lies under "images/" (any
  // letter case), takes the first entry whose lower-cased path begins with "animations/" and ends
  // with ".json", and reads its "w" and "h". Throws the archive layer's errors unchanged,
  // DotLottiePlayerError, and LottieHead::DecodingError.
  explicit DotLottieFile(const std::filesystem::path& dotLottieURL);

  // The animation's width and height, exactly as written in its JSON.
  const platform::Size& size() const { return size_; }

  // Replaces every static colour of the animation JSON `text` with `colors`: the first distinct
  // source colour met gets the first colour, the next the second, round the list again when it
  // runs out. Solid and text colours are written with `precision` decimals. Every byte outside
  // the replaced colour arrays stays as it was, whatever the text holds.
  // Throws std::invalid_argument when `colors` is empty or a colour has fewer than three
  // components.
  static std::string replaceColors(std::string text, std::vector<ColorComponents> colors,
                                   int precision);

  // The distinct source colours of `text` in the order in which replaceColors hands out
  // replacements.
  static std::vector<PaletteColor> palette(std::string text);

  // The palette of the animation JSON that recolor would rewrite in the .lottie at
  // `dotLottieURL`. Throws as recolor does before it writes anything.
  static std::vector<PaletteColor> readPalette(const std::filesystem::path& dotLottieURL);

  // Writes a copy of the .lottie at `dotLottieURL` whose animation JSON (the first entry whose
  // path contains "animations/" and ends in ".json" in any letter case) has its colours replaced
  // as replaceColors does, and returns its path, "<temporary directory>/modified_<UUID>.lottie".
  // The archive is unpacked into a work folder "<temporary directory>/<UUID>", the JSON replaced
  // there, and the folder packed again with every entry stored. Neither the work folder nor the
  // copy is ever removed here. Pictures and other entries are carried over byte for byte.
  // Throws DotLottieError (codes 1, 2, 10, 11, 12, 300, 301), the archive layer's and the file
  // system's errors unchanged, and std::invalid_argument as replaceColors does.
  static std::filesystem::path recolor(const std::filesystem::path& dotLottieURL,
                                       std::vector<ColorComponents> colors, int precision);

private:
  struct AnimationJSON {
    std::string data;
    std::string path; // as stored in the archive
  };

  static platform::Size readAnimationSize(const std::filesystem::path& url);
  static AnimationJSON readAnimationJSON(const std::filesystem::path& url);
  static std::filesystem::path rebuildArchive(const std::filesystem::path& url,
                                              const std::string& jsonPath,
                                              std::string_view jsonData);

  platform::Size size_;
};

} // namespace frameloom
