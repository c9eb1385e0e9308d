#include "renderer/PictureHeaders.h"

namespace frameloom::renderer {

namespace {

std::uint32_t byteAt(std::string_view bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

std::uint32_t bigEndian16(std::string_view bytes, std::size_t at) {
  return byteAt(bytes, at) << 8 | byteAt(bytes, at + 1);
}

std::uint32_t bigEndian32(std::string_view bytes, std::size_t at) {
  return bigEndian16(bytes, at) << 16 | bigEndian16(bytes, at + 2);
}

std::optional<PictureExtent> pngExtent(std::string_view bytes) {
  // Signature, then the IHDR chunk: length, type, width, height.
  if (bytes.size() < 24 || bytes.substr(12, 4) != "IHDR") {
    return std::nullopt;
  }
  return PictureExtent{bigEndian32(bytes, 16), bigEndian32(bytes, 20)};
}

std::optional<PictureExtent> gifExtent(std::string_view bytes) {
  // The logical screen, little-endian, after the six-byte signature.
  if (bytes.size() < 10) {
    return std::nullopt;
  }
  return PictureExtent{byteAt(bytes, 6) | byteAt(bytes, 7) << 8, byteAt(bytes, 8) | byteAt(bytes, 9)
                                                                                        << 8};
}

// Walks the JPEG's marker segments up to the first start of frame, which holds the size.
std::optional<PictureExtent> jpegExtent(std::string_view bytes) {
  std::size_t at = 2;
  while (at + 4 <= bytes.size()) {
    if (byteAt(bytes, at) != 0xFF) {
      return std::nullopt;
    }
    const std::uint32_t marker = byteAt(bytes, at + 1);
    if (marker == 0xFF) {
      ++at; // fill byte
      continue;
    }
    if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD9)) {
      at += 2; // markers without a segment
      continue;
    }
    const std::uint32_t length = bigEndian16(bytes, at + 2);
    const bool startOfFrame =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (startOfFrame) {
      // Length, precision, height, width.
      if (at + 9 > bytes.size()) {
        return std::nullopt;
      }
      return PictureExtent{bigEndian16(bytes, at + 7), bigEndian16(bytes, at + 5)};
    }
    if (length < 2) {
      return std::nullopt;
    }
    at += 2 + length;
  }
  return std::nullopt;
}

} // namespace

std::optional<PictureExtent> pictureExtent(std::string_view bytes) {
  if (bytes.starts_with("\x89PNG\r\n\x1A\n")) {
    return pngExtent(bytes);
  }
  if (bytes.starts_with("\xFF\xD8")) {
    return jpegExtent(bytes);
  }
  if (bytes.starts_with("GIF87a") || bytes.starts_with("GIF89a")) {
    return gifExtent(bytes);
  }
  return std::nullopt;
}

} // namespace frameloom::renderer
