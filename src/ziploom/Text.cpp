#include <frameloom/ziploom/Text.h>

#include <iconv.h>
#include <utf8proc.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace frameloom::ziploom {

namespace {

bool isASCII(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte < 0x80; });
}

struct IconvCloser {
  void operator()(void* descriptor) const { iconv_close(static_cast<iconv_t>(descriptor)); }
};

// Canonical decomposition (NFD) of valid UTF-8 text; nothing when the text is not valid UTF-8.
std::optional<std::string> decompose(std::string_view text) {
  utf8proc_uint8_t* result = nullptr;
  const auto length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &result, UTF8PROC_DECOMPOSE);
  if (length < 0) {
    return std::nullopt;
  }
  std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, &std::free);
  return std::string(reinterpret_cast<const char*>(result), static_cast<std::size_t>(length));
}

} // namespace

bool isValidUTF8(std::span<const std::uint8_t> bytes) {
  std::size_t position = 0;
  while (position < bytes.size()) {
    if (bytes[position] < 0x80) {
      ++position;
      continue;
    }
    utf8proc_int32_t codepoint = 0;
    const auto length =
        utf8proc_iterate(bytes.data() + position,
                         static_cast<utf8proc_ssize_t>(bytes.size() - position), &codepoint);
    if (length <= 0) {
      return false;
    }
    position += static_cast<std::size_t>(length);
  }
  return true;
}

std::optional<std::string> convertToUTF8(std::span<const std::uint8_t> bytes,
                                         const char* encoding) {
  std::unique_ptr<void, IconvCloser> descriptor(iconv_open("UTF-8", encoding));
  if (descriptor.get() == reinterpret_cast<void*>(-1)) {
    descriptor.release();
    return std::nullopt;
  }
  // No character of the encodings in use takes more than three UTF-8 bytes per source byte.
  std::string output(bytes.size() * 3 + 4, '\0');
  auto* in = const_cast<char*>(reinterpret_cast<const char*>(bytes.data()));
  std::size_t inLeft = bytes.size();
  char* out = output.data();
  std::size_t outLeft = output.size();
  if (iconv(static_cast<iconv_t>(descriptor.get()), &in, &inLeft, &out, &outLeft) ==
      static_cast<std::size_t>(-1)) {
    return std::nullopt;
  }
  output.resize(output.size() - outLeft);
  return output;
}

std::string decodeCodePage437(std::span<const std::uint8_t> bytes) {
  if (isASCII(bytes)) {
    return std::string(bytes.begin(), bytes.end());
  }
  auto text = convertToUTF8(bytes, "CP437");
  if (!text) {
    throw std::runtime_error("code page 437 conversion is not available");
  }
  return std::move(*text);
}

std::optional<std::string> decodeText(std::span<const std::uint8_t> bytes, TextEncoding encoding) {
  if (encoding == TextEncoding::codePage437) {
    return decodeCodePage437(bytes);
  }
  if (!isValidUTF8(bytes)) {
    return std::nullopt;
  }
  return std::string(bytes.begin(), bytes.end());
}

bool canonicallyEquivalent(std::string_view lhs, std::string_view rhs) {
  if (lhs == rhs) {
    return true;
  }
  auto asBytes = [](std::string_view text) {
    return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  };
  if (isASCII(asBytes(lhs)) && isASCII(asBytes(rhs))) {
    return false;
  }
  const auto left = decompose(lhs);
  const auto right = decompose(rhs);
  return left && right && *left == *right;
}

} // namespace frameloom::ziploom
