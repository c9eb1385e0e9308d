#include "platform/core/Text.h"

#include <gtest/gtest.h>

#include <string>

using namespace frameloom::platform;

namespace {

std::span<const std::uint8_t> bytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

} // namespace

TEST(Text, UTF8ValidationRejectsMalformedSequences) {
  EXPECT_TRUE(isValidUTF8(bytes("plain/ascii.json")));
  EXPECT_TRUE(isValidUTF8(bytes("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\x89")));
  EXPECT_TRUE(isValidUTF8(bytes(std::string("nul\0inside", 10))));
  EXPECT_FALSE(isValidUTF8(bytes("\xC3")));             // truncated
  EXPECT_FALSE(isValidUTF8(bytes("\xC0\xAF")));         // overlong "/"
  EXPECT_FALSE(isValidUTF8(bytes("\xED\xA0\x80")));     // surrogate
  EXPECT_FALSE(isValidUTF8(bytes("\xF4\x90\x80\x80"))); // past U+10FFFF
  EXPECT_FALSE(isValidUTF8(bytes("\x80")));             // stray continuation
}

TEST(Text, CodePage437DecodesEveryByte) {
  EXPECT_EQ(decodeCodePage437(bytes("caf\x82")), "caf\xC3\xA9");
  EXPECT_EQ(decodeCodePage437(bytes("\xB0\xDB\xE1\xFF")),
            "\xE2\x96\x91\xE2\x96\x88\xC3\x9F\xC2\xA0");
  std::string all;
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    all += static_cast<char>(byte);
  }
  const auto decoded = decodeCodePage437(bytes(all));
  EXPECT_TRUE(isValidUTF8(bytes(decoded)));
  EXPECT_FALSE(decodeText(bytes(all), TextEncoding::utf8));
}

TEST(Text, CanonicalEquivalenceIsTheOnlyLeniency) {
  EXPECT_TRUE(canonicallyEquivalent("caf\xC3\xA9", "cafe\xCC\x81"));
  // Combining marks in either canonical order are equivalent.
  EXPECT_TRUE(canonicallyEquivalent("a\xCC\xA3\xCC\x81", "a\xCC\x81\xCC\xA3"));
  EXPECT_FALSE(canonicallyEquivalent("Caf\xC3\xA9", "caf\xC3\xA9"));
  // Compatibility forms are not canonical: the "fi" ligature is not "fi".
  EXPECT_FALSE(canonicallyEquivalent("\xEF\xAC\x81", "fi"));
  EXPECT_FALSE(canonicallyEquivalent("\xFF", "\xFE"));
  EXPECT_TRUE(canonicallyEquivalent("\xFF", "\xFF"));
}
