#include "frameloom/CacheKey.h"

#include <gtest/gtest.h>

namespace frameloom {
namespace {

// Reference values computed independently over the UTF-16 units of each text.
TEST(CacheKeyTest, MatchesReferenceHashes) {
  EXPECT_EQ(cacheKey(""), "0");
  EXPECT_EQ(cacheKey("a"), "1062");
  EXPECT_EQ(cacheKey("https://example.com/a.lottie"), "7294305563325668239");
  EXPECT_EQ(cacheKey("https://example.com/b.lottie"), "-8687453759266905456");
  // Non-ASCII text: a two-unit code point (surrogate pair) and a one-unit one.
  EXPECT_EQ(cacheKey("https://example.com/\xC3\xA9\xF0\x9F\x98\x80.lottie"), "8012885034963492438");
  // A byte that is not UTF-8 counts as U+FFFD.
  EXPECT_EQ(cacheKey("http://h/\xFF"), "-6635438241336083210");
}

TEST(CacheKeyTest, LongTextsFoldHeadMiddleAndTail) {
  auto longUrl = [](std::size_t length) {
    std::string text = "https://example.com/";
    for (std::size_t i = 0; text.size() < length; ++i) {
      text += static_cast<char>('0' + i % 40);
    }
    return text;
  };
  EXPECT_EQ(cacheKey(longUrl(96)), "9003698490565716202");
  EXPECT_EQ(cacheKey(longUrl(97)), "6283330499346484674");
  EXPECT_EQ(cacheKey("https://example.com/" + std::string(200, 'x') + ".lottie"),
            "2047708869245375413");

  // Units outside the three folded runs do not change the hash; units inside them do.
  std::string base = longUrl(300);
  std::string changedOutside = base;
  changedOutside[100] = '#';
  std::string changedMiddle = base;
  changedMiddle[150] = '#';
  EXPECT_EQ(cacheKey(changedOutside), cacheKey(base));
  EXPECT_NE(cacheKey(changedMiddle), cacheKey(base));
}

TEST(CacheKeyTest, FragmentsGiveDistinctKeys) {
  EXPECT_EQ(cacheKey("https://example.com/a.lottie#x"), "1139029115418646828");
  EXPECT_NE(cacheKey("https://example.com/a.lottie#x"), cacheKey("https://example.com/a.lottie"));
}

} // namespace
} // namespace frameloom
