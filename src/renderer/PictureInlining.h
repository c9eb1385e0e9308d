#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace frameloom::renderer {

// Gives the bytes of the picture file of that name, or none.
using PictureLookup = std::function<std::optional<std::string>(std::string_view fileName)>;

// Rewrites the image assets of a Lottie document so that the renderer needs no files and gets
// only pictures it can decode:
// - a "p" naming a picture file that `lookup` finds by its file name becomes a base64 data URI of
//   the picture, with "u" empty and "e" 1;
// - WebP pictures, whether found by `lookup` or already inlined as a data URI (whatever media
//   type either claims), are re-encoded as PNG;
// - a picture whose size cannot be read (a format other than PNG, JPEG or GIF, a WebP that cannot
//   be decoded, a data URI that is not base64) is left out: its "p" becomes empty, so the layer
//   draws nothing and its "w" and "h" become 0, so the layer costs nothing to draw;
// - so is every picture, in document order, that would take the pixels of all the pictures kept
//   beyond limits::maxPicturePixels (Limits.h); an asset counts however many others share its
//   picture;
// - an asset showing the same picture at the same size as an earlier one is left out too, and the
//   layers showing it (in the document and its precompositions) show the earlier one: rlottie
//   decodes each asset's picture on its own;
// - each picture file is looked up once, however many assets name it.
// Key order and all other values are kept. Text that is not a JSON object, or that needs none of
// this, is returned unchanged. Exceptions of `lookup` pass through.
std::string inlinePictures(std::string json, const PictureLookup& lookup);

// Whether the document may hold a picture as a data URI, a cheap test on the text that decides
// whether inlinePictures() has anything to do for a document that names no picture files.
bool mayHoldDataUri(std::string_view json);

// RFC 4648 base64 with padding, and back. Decoding skips nothing: none when a character lies
// outside the alphabet or the padding is wrong.
std::string base64Encoded(std::string_view bytes);
std::optional<std::string> base64Decoded(std::string_view text);

} // namespace frameloom::renderer
