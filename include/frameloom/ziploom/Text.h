#pragma once

#include <cstdint>
#include <frameloom/platform/ZiploomExport.h>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace frameloom::ziploom {

// The text encodings that archive entry names come in.
enum class TextEncoding { utf8, codePage437 };

// Pure functions over byte strings; safe to call from any thread.

// True when the bytes are well-formed UTF-8 (no overlong forms, surrogates or values past
// U+10FFFF).
FRAMELOOM_ZIPLOOM_EXPORT bool isValidUTF8(std::span<const std::uint8_t> bytes);

// The bytes, in the named iconv encoding, as UTF-8 text; nothing when the encoding is unknown or
// the bytes are not valid in it.
FRAMELOOM_ZIPLOOM_EXPORT std::optional<std::string>
convertToUTF8(std::span<const std::uint8_t> bytes, const char* encoding);

// Code page 437 (DOS Latin US) to UTF-8. Every byte maps to one character, so this never fails.
FRAMELOOM_ZIPLOOM_EXPORT std::string decodeCodePage437(std::span<const std::uint8_t> bytes);

// The bytes as UTF-8 text, or nothing when they are not valid in the given encoding.
FRAMELOOM_ZIPLOOM_EXPORT std::optional<std::string> decodeText(std::span<const std::uint8_t> bytes,
                                                               TextEncoding encoding);

// Unicode canonical equivalence: equal after canonical decomposition, so a precomposed "é" matches
// "e" followed by a combining acute accent. Texts that are not valid UTF-8 compare byte by byte.
FRAMELOOM_ZIPLOOM_EXPORT bool canonicallyEquivalent(std::string_view lhs, std::string_view rhs);

} // namespace frameloom::ziploom
