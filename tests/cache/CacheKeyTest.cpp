#include "frameloom/CacheKey.h"

#include <gtest/gtest.h>

namespace frameloom {
namespace {

std::string longUrl(std::size_t length) {
  std::string text = "https://example.com/";
  for (std::size_t i = 0; text.size() < length; ++i) {
    text += static_cast<char>('0' + i % 40);
  }
  return text;
}

// Reference values computed independently over the UTF-16 units of each text.
TEST(CacheKeyTest, MatchesReferenceHashes) {
  EXPECT_EQ(cacheKey(""), "0");
  EXPECT_EQ(cacheKey("https://example.com/a.lottie"), "7294305563325668239");
  EXPECT_EQ(cacheKey("https://example.com/a.lottie#x"), "1139029115418646828");
  EXPECT_EQ(cacheKey("https://example.com/b.lottie"), "-8687453759266905456");
  // A surrogate pair and a one-unit code point; a byte that is not UTF-8 counts as U+FFFD.
  EXPECT_EQ(cacheKey("https://example.com/\xC3\xA9\xF0\x9F\x98\x80.lottie"), "8012885034963492438");
  EXPECT_EQ(cacheKey("http://h/\xFF"), "-6635438241336083210");
  // 96 units are folded whole; from 97 on, only the head, middle and tail runs count.
  EXPECT_EQ(cacheKey(longUrl(96)), "9003698490565716202");
  EXPECT_EQ(cacheKey(longUrl(97)), "6283330499346484674");
  std::string outside = longUrl(300), middle = longUrl(300);
  outside[100] = '#';
  middle[150] = '#';
  EXPECT_EQ(cacheKey(outside), cacheKey(longUrl(300)));
  EXPECT_NE(cacheKey(middle), cacheKey(longUrl(300)));
}

} // namespace
} // namespace frameloom
