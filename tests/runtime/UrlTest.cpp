#include "platform/system/Url.h"

#include <gtest/gtest.h>

using frameloom::platform::Url;

TEST(Url, KeepsTheTextExactlyReadsItsPartsAndRefusesRelativeText) {
  auto url = Url::parse("HTTPS://Example.com/a%20b.lottie?x=1#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "HTTPS://Example.com/a%20b.lottie?x=1#frag");
  EXPECT_EQ(url->description(), url->absoluteString());
  EXPECT_EQ(url->scheme(), "HTTPS");
  EXPECT_FALSE(url->isFileUrl());
  EXPECT_EQ(url->path(), "/a b.lottie");
  EXPECT_NE(*url, *Url::parse("HTTPS://Example.com/a%20b.lottie?x=1#other"));

  for (const char* text : {"", "relative/path", "/absolute/path", "1http://x", "https://host/a b",
                           "https://host/\xC3\xA9", ":nothing"}) {
    EXPECT_FALSE(Url::parse(text)) << text;
  }
  EXPECT_TRUE(Url::parse("mailto:someone@example.com"));
}

TEST(Url, FileAndMemoryUrls) {
  Url url = Url::fromFilePath("/tmp/a b/%c#d?é.lottie");
  EXPECT_EQ(url.absoluteString(), "file:///tmp/a%20b/%25c%23d%3F%C3%A9.lottie");
  EXPECT_TRUE(url.isFileUrl());
  EXPECT_EQ(url.path(), "/tmp/a b/%c#d?é.lottie");

  auto parsed = Url::parse("FILE:///x/../y");
  ASSERT_TRUE(parsed);
  EXPECT_TRUE(parsed->isFileUrl());
  EXPECT_EQ(parsed->path(), "/x/../y");

  EXPECT_EQ(Url::memory().absoluteString(), "memory://");
  EXPECT_EQ(Url::memory().scheme(), "memory");
  EXPECT_EQ(Url::parse("memory://"), Url::memory());
  EXPECT_EQ(Url::memory().path(), "");
}
