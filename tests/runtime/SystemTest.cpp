#include <frameloom/platform/system/Directories.h>
#include <frameloom/platform/system/LowMemorySignal.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/platform/system/Uuid.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace frameloom::platform;

// Nothing else in this program reads these variables, so they are not restored.
TEST(Directories, FollowTheEnvironment) {
  setenv("HOME", "/home/someone", 1);
  setenv("XDG_CACHE_HOME", "/var/cache/someone", 1);
  setenv("TMPDIR", "/scratch", 1);
  EXPECT_EQ(userCachesDirectory(), "/var/cache/someone");
  EXPECT_EQ(temporaryDirectory(), "/scratch");
  setenv("XDG_CACHE_HOME", "relative/cache", 1);
  unsetenv("TMPDIR");
  EXPECT_EQ(userCachesDirectory(), "/home/someone/.cache");
  EXPECT_EQ(temporaryDirectory(), "/tmp");
}

TEST(Url, KeepsTheTextDecodesThePathAndRefusesRelativeText) {
  auto url = Url::parse("HTTPS://Example.com/a%20b.lottie?x=1#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "HTTPS://Example.com/a%20b.lottie?x=1#frag");
  EXPECT_EQ(url->scheme(), "HTTPS");
  EXPECT_FALSE(url->isFileUrl());
  EXPECT_EQ(url->path(), "/a b.lottie");
  EXPECT_NE(*url, *Url::parse("HTTPS://Example.com/a%20b.lottie?x=1#other"));
  for (const char* text : {"", "relative/path", "/absolute/path", "1http://x", "https://host/a b",
                           "https://host/\xC3\xA9", ":nothing"}) {
    EXPECT_FALSE(Url::parse(text)) << text;
  }
  EXPECT_TRUE(Url::parse("mailto:someone@example.com"));

  Url file = Url::fromFilePath("/tmp/a b/%c#d?é.lottie");
  EXPECT_EQ(file.absoluteString(), "file:///tmp/a%20b/%25c%23d%3F%C3%A9.lottie");
  EXPECT_EQ(file.path(), "/tmp/a b/%c#d?é.lottie");
  EXPECT_TRUE(Url::parse("FILE:///x/../y")->isFileUrl());
  EXPECT_EQ(Url::parse("memory://"), Url::memory());
}

TEST(Uuid, RandomIdentifiersAreUpperCaseVersionFourAndDistinct) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 200; ++i) {
    EXPECT_TRUE(std::regex_match(*seen.insert(Uuid::random().uuidString()).first, form));
  }
  EXPECT_EQ(seen.size(), 200u);
}

// Calls reach current subscribers only; a callback may end its own subscription and subscribe
// another (which hears from the next post on) while it is being called.
TEST(LowMemorySignal, DeliversToCurrentSubscribersOnly) {
  LowMemorySignal signal;
  std::vector<int> calls;
  auto first = signal.subscribe([&] { calls.push_back(1); });
  std::optional<LowMemorySignal::Subscription> second;
  LowMemorySignal::Subscription late;
  second = signal.subscribe([&] {
    calls.push_back(2);
    second.reset();
    late = signal.subscribe([&] { calls.push_back(3); });
  });
  signal.post();
  signal.post();
  first = {};
  signal.post();
  EXPECT_EQ(calls, (std::vector<int>{1, 2, 1, 3, 3}));
}

// Once unsubscribing has returned, the callback must not be running on another thread.
TEST(LowMemorySignal, UnsubscribeWaitsForCallsInProgressOnOtherThreads) {
  LowMemorySignal signal;
  std::atomic<bool> stop{false};
  std::thread poster([&] {
    while (!stop.load()) {
      signal.post();
    }
  });
  for (int round = 0; round < 200; ++round) {
    auto alive = std::make_unique<std::atomic<int>>(0);
    auto subscription = signal.subscribe([counter = alive.get()] { counter->fetch_add(1); });
    std::this_thread::yield();
    subscription.reset();
    alive.reset();
  }
  stop = true;
  poster.join();
}
