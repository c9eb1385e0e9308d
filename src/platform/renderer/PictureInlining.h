#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace frameloom::platform {

// Gives the bytes of the picture file of that name, or none.
using PictureLookup = std::function<std::optional<std::string>(std::string_view fileName)>;

// Rewrites the image assets of a Lottie document whose "p" names a picture file (not a data URI)
// that `lookup` finds by its file name: "p" becomes a base64 data URI of the picture, "u" empty
// and "e" 1, so that the renderer needs no files. Key order and all other values are kept. Text
// that is not a JSON object is returned unchanged. Exceptions of `lookup` pass through.
std::string inlinePictures(std::string json, const PictureLookup& lookup);

// RFC 4648 base64 with padding.
std::string base64Encoded(std::string_view bytes);

} // namespace frameloom::platform
