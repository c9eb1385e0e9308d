#include "../player/RequestRecorder.h"
#include "TestHttpServer.h"
#include "frameloom/cache/CacheFolder.h"
#include "frameloom/cache/CacheKey.h"
#include "frameloom/cache/MemoryCache.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"
#include <frameloom/cache/HttpClient.h>
#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/SharedExecutor.h>

#include <asio/co_spawn.hpp>
#include <asio/use_future.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <future>
#include <iterator>
#include <set>
#include <thread>

namespace frameloom {
namespace {
namespace fs = std::filesystem;
using platform::MainLoop;
using platform::Url;
using ::testing::ElementsAre;

// Reference values computed independently over the UTF-16 units of each text.
TEST(CacheKeyTest, MatchesReferenceHashes) {
  auto longUrl = [](std::size_t length) {
    std::string text = "https://example.com/";
    for (std::size_t i = 0; text.size() < length; ++i) {
      text += static_cast<char>('0' + i % 40);
    }
    return text;
  };
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

// Concurrent use of the memory level is covered by LottieCacheTest under ThreadSanitizer.
TEST(MemoryCacheTest, EvictsLeastRecentlyUsedPastEitherLimit) {
  auto bytes = [](std::size_t count) {
    return std::make_shared<const std::vector<std::uint8_t>>(count, 7);
  };
  MemoryCache cache(3, 100);
  cache.setObject("a", bytes(40));
  cache.setObject("b", bytes(30));
  cache.setObject("c", bytes(1));
  cache.object("a");              // b is now the least recently used
  cache.setObject("d", bytes(1)); // count limit: b goes
  EXPECT_EQ(cache.object("b"), nullptr);
  cache.setObject("c", bytes(60)); // replacing frees the old cost; cost limit: a goes
  EXPECT_EQ(cache.object("a"), nullptr);
  EXPECT_EQ(cache.totalCost(), 61);
  cache.setObject("huge", bytes(101)); // over the limit on its own: not kept, nothing evicted
  EXPECT_EQ(cache.object("huge"), nullptr);
  EXPECT_EQ(cache.count(), 2u);
}

TEST(EvictionCandidatesTest, OldestFirstStableOnEqualDatesWithoutUndatedOrUnsized) {
  using Date = std::chrono::sys_time<std::chrono::nanoseconds>;
  const Date early{std::chrono::nanoseconds(100)}, late{std::chrono::nanoseconds(200)};
  std::vector<FolderItem> items = {
      {"late-a", late, 1}, {"undated", std::nullopt, 1},    {"early", early, 1},
      {"late-b", late, 1}, {"folder", early, std::nullopt}, {"late-c", late, 1},
  };
  std::vector<std::string> order;
  for (const FolderItem& item : evictionCandidates(items)) {
    order.push_back(item.path.string());
  }
  EXPECT_THAT(order, ::testing::ElementsAre("early", "late-a", "late-b", "late-c"));
}

// The chain of an error and its causes, e.g. "network(HTTP 204)".
std::string nesting(const std::exception& error) {
  if (const auto* cache = dynamic_cast<const LottieCacheError*>(&error)) {
    const std::string name = std::array{"network", "diskWrite", "diskRead", "invalidData"}.at(
        static_cast<std::size_t>(cache->code()));
    return cache->cause() ? name + "(" + nesting(*cache->cause()) + ")" : name;
  }
  if (const auto* status = dynamic_cast<const HttpStatusError*>(&error)) {
    return "HTTP " + std::to_string(status->code());
  }
  const auto* transfer = dynamic_cast<const TransferError*>(&error);
  return transfer ? "transfer " + std::to_string(transfer->code()) : "system";
}

// Waits, with no deadline, for what the cache's detached tasks do.
void eventually(const std::function<bool()>& condition) {
  while (!condition()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

class LottieCacheTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    server = std::make_unique<testing::TestHttpServer>();
    client = std::make_unique<HttpClient>();
  }
  static void TearDownTestSuite() {
    client.reset();
    server.reset();
  }

  std::unique_ptr<LottieCache> makeCache() {
    return std::make_unique<LottieCache>(
        folder, TransferLimits{.stallTimeout = std::chrono::milliseconds(500),
                               .minimumRate = 1000,
                               .rateWindow = std::chrono::seconds(1),
                               .maxBodySize = 1'000'000});
  }
  static Url url(const std::string& path) { return *Url::parse(server->url(path)); }
  static LottieCache::Data load(LottieCache& cache, const Url& from) {
    return MainLoop::shared().runUntilComplete(cache.loadLottie(from));
  }
  // The number the test server answers at `path` ("/requests", "/open").
  static int count(const std::string& path) {
    auto answer = MainLoop::shared().runUntilComplete(client->get(server->url(path), {})).body;
    return std::stoi(std::string(answer.begin(), answer.end()));
  }
  static int requestsServed() { return count("/requests"); }
  static std::string text(const LottieCache::Data& data) {
    return std::string(data->begin(), data->end());
  }
  // A file of `size` bytes that takes no disk space; made after a pause for a later date.
  void makeSparseFile(const std::string& name, std::int64_t size) {
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    std::ofstream(folder / name).close();
    fs::resize_file(folder / name, static_cast<std::uintmax_t>(size));
  }
  std::set<std::string> names() const {
    std::set<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder)) {
      result.insert(entry.path().filename());
    }
    return result;
  }

  static inline std::unique_ptr<testing::TestHttpServer> server;
  const testing::TemporaryFolder temporary;
  // Made by the cache itself.
  const fs::path folder = temporary / "cache";
  static inline std::unique_ptr<HttpClient> client;
};

TEST_F(LottieCacheTest, StoresUnderTheKeyHitsMemoryAndDiskAndClears) {
  const Url from = url("/redirect/10"); // the last of ten redirects answers 64 bytes
  auto cache = makeCache();
  // A progress record counts the body's bytes, those of a download and those of a hit alike.
  const auto downloading = platform::Progress::make();
  LottieCache::Data data =
      MainLoop::shared().runUntilComplete(cache->loadLottie(from, downloading));
  ASSERT_EQ(data->size(), 64u);
  const auto hitting = platform::Progress::make();
  MainLoop::shared().runUntilComplete(cache->loadLottie(from, hitting));
  for (const auto& progress : {downloading, hitting}) {
    EXPECT_EQ(progress->totalUnitCount(), 64);
    EXPECT_EQ(progress->completedUnitCount(), 64);
  }
  EXPECT_THAT(names(), ElementsAre(cacheKey(from.absoluteString()))); // and no temporary file
  EXPECT_EQ(cache->cacheFile(from), folder / cacheKey(from.absoluteString()));
  const int requests = requestsServed();
  fs::rename(cache->cacheFile(from), folder / "moved");
  EXPECT_EQ(load(*cache, from), data); // the same buffer: no file, no request
  fs::rename(folder / "moved", cache->cacheFile(from));

  cache = makeCache();
  EXPECT_EQ(load(*cache, from)->size(), 64u); // a new instance reads the file
  std::ofstream(cache->cacheFile(from), std::ios::binary) << "changed";
  platform::LowMemorySignal::shared().post(); // memory is emptied; the file is read again
  LottieCache::Data reread = load(*cache, from);
  EXPECT_EQ(std::string(reread->begin(), reread->end()), "changed");
  EXPECT_EQ(requestsServed(), requests + 1); // only the count itself

  cache->clearCache(); // empties memory at once and the folder soon
  eventually([&] { return names().empty(); });
  load(*cache, from);
  EXPECT_EQ(requestsServed(), requests + 13);
}

TEST_F(LottieCacheTest, FailuresNestTheirCausesAndStoreNothing) {
  auto cache = makeCache();
  const std::string http = "Network error: Network error: The operation couldn't be completed. ";
  auto expectFailure = [&](const Url& from, const std::string& chain, const std::string& text) {
    SCOPED_TRACE(from.absoluteString());
    try {
      load(*cache, from);
      ADD_FAILURE() << "loaded";
    } catch (const LottieCacheError& error) {
      EXPECT_EQ(nesting(error), chain);
      EXPECT_THAT(error.what(), ::testing::StartsWith(text));
    }
  };
  expectFailure(url("/status/204"), "network(network(HTTP 204))", http + "(HTTP error 204.)");
  expectFailure(url("/status/206"), "network(network(HTTP 206))", http);
  expectFailure(url("/status/404"), "network(network(HTTP 404))", http);
  expectFailure(url("/bytes/0"), "network(invalidData)",
                "Network error: Invalid or corrupted data received");
  // Answers that are not HTTP responses: no status, so HTTP error 0, and no transfer is tried.
  for (const auto* text : {"file:///etc/hostname", "ftp://127.0.0.1:1/a", "data:,abc"}) {
    expectFailure(*Url::parse(text), "network(network(HTTP 0))", http + "(HTTP error 0.)");
  }
  const std::vector<std::tuple<Url, int, std::string>> transfers = {
      {url("/redirect/11"), 47, "Number of redirects"},
      {url("/redirect-to?ftp://127.0.0.1/a"), 1, "Unsup"},
      {url("/drop"), 18, "Transferred a partial file"},
      {url("/reset"), 56, "Failure when receiving data"},
      {url("/slow"), 28, "Timeout was reached: nothing received for 500 ms"},
      {url("/trickle"), 28, "Timeout was reached: fewer than 1000 bytes per second"},
      {url("/slow-headers"), 28, "Timeout was reached: "}, // lines never complete: no progress
      {url("/bytes/1000001"), 63, "Maximum file size"},
      {*Url::parse("http://127.0.0.1:1/"), 7, "Could"},
  };
  for (const auto& [from, code, text] : transfers) {
    expectFailure(from, "network(transfer " + std::to_string(code) + ")", "Network error: " + text);
  }
  // An oversized body whose length was announced is named once.
  try {
    load(*cache, url("/bytes/1000001"));
    ADD_FAILURE() << "loaded";
  } catch (const LottieCacheError& error) {
    EXPECT_STREQ(error.what(),
                 "Network error: Maximum file size exceeded: the body exceeds 1000000 bytes");
  }
  EXPECT_TRUE(names().empty());

  const Url from = url("/bytes/10");
  fs::create_directory(cache->cacheFile(from)); // exists, but cannot be read as a file
  expectFailure(from, "diskRead(system)", "Failed to read from disk: ");
  fs::remove_all(folder);
  expectFailure(from, "network(diskWrite(system))", "Network error: Failed to write to disk: ");
}

TEST_F(LottieCacheTest, TrimsAtStartUpAndWhenADownloadCrossesTheLimit) {
  constexpr std::int64_t mebibyte = 1024 * 1024;
  fs::create_directories(folder);
  makeSparseFile("old", 60 * mebibyte);
  makeSparseFile("middle", 30 * mebibyte);
  makeSparseFile("new", 30 * mebibyte);
  auto cache = makeCache();
  eventually([&] { return !fs::exists(folder / "old"); });
  EXPECT_THAT(names(), ElementsAre("middle", "new"));

  makeSparseFile("filler", LottieCache::maxDiskSize - 60 * mebibyte - 1000);
  // A download right after the filler could share its date to the clock's tick, and equal dates
  // are trimmed in listing order: the pause keeps the download the newer.
  std::this_thread::sleep_for(std::chrono::milliseconds(15));
  const Url exact = url("/bytes/1000/exact"); // brings the folder to exactly the limit
  load(*cache, exact);
  EXPECT_EQ(MainLoop::shared().runUntilComplete(cache->diskCacheSize()), LottieCache::maxDiskSize);
  std::this_thread::sleep_for(std::chrono::milliseconds(200)); // time for a wrong trim to show
  EXPECT_EQ(names().size(), 4u);

  const Url over = url("/bytes/1/over"); // one byte more: the oldest go, down to the target
  load(*cache, over);
  eventually([&] { return !fs::exists(folder / "filler"); });
  EXPECT_THAT(names(), ::testing::UnorderedElementsAre(cacheKey(exact.absoluteString()),
                                                       cacheKey(over.absoluteString())));
}

TEST_F(LottieCacheTest, ConcurrentLoadsOfTheSameAndDifferentUrls) {
  auto cache = makeCache();
  auto loads = [](LottieCache* cache, int t) -> asio::awaitable<std::size_t> {
    std::size_t total = 0;
    for (int i = 0; i < 8; ++i) {
      total +=
          (co_await cache->loadLottie(url("/bytes/" + std::to_string(100 + (t + i) % 4))))->size();
      if (i % 3 == 0) {
        platform::LowMemorySignal::shared().post();
      }
    }
    co_await cache->trimDiskCache();
    co_return total;
  };
  std::vector<std::future<std::size_t>> running;
  for (int t = 0; t < 16; ++t) {
    running.push_back(
        asio::co_spawn(platform::sharedExecutor(), loads(cache.get(), t), asio::use_future));
  }
  for (auto& result : running) {
    EXPECT_EQ(result.get(), 2u * (100 + 101 + 102 + 103));
  }
  EXPECT_EQ(names().size(), 4u);
}

// The tool's fetch goes through a cache in $XDG_CACHE_HOME/LottieCache; cache clear empties it.
TEST_F(LottieCacheTest, ToolFetchesThroughTheDiskCacheAndClearsIt) {
  fs::create_directories(folder);
  ::setenv("XDG_CACHE_HOME", folder.c_str(), 1);
  const std::string from = server->url("/bytes/4321/tool.lottie");
  const fs::path file = folder / "LottieCache" / cacheKey(from);
  EXPECT_EQ(testing::runTool("fetch '" + from + "'", folder).out,
            "4321 bytes, cached at " + file.string() + "\n");
  std::ofstream(file, std::ios::binary) << "from disk"; // a second run reads the file
  EXPECT_EQ(testing::runTool("fetch '" + from + "'", folder).out,
            "9 bytes, cached at " + file.string() + "\n");
  EXPECT_THAT(testing::runTool("fetch http://127.0.0.1:1/a", folder).err,
              ::testing::StartsWith("frameloom: http://127.0.0.1:1/a: Network error: "));
  EXPECT_EQ(testing::runTool("cache clear", folder).status, 0);
  EXPECT_TRUE(fs::is_empty(folder / "LottieCache"));
  ::unsetenv("XDG_CACHE_HOME");
}

// Two long URLs that differ only where the key does not look: each gets its own bytes, from
// memory, from the folder and after a restart.
TEST_F(LottieCacheTest, UrlsSharingAKeyNeverGetEachOthersBytes) {
  const std::string padding(150, 'p');
  const Url alice = url("/echo/abcdefghij/user=alice" + padding);
  const Url mallory = url("/echo/abcdefghij/user=mallo" + padding);
  ASSERT_EQ(cacheKey(alice.absoluteString()), cacheKey(mallory.absoluteString()));
  auto path = [](const Url& from) {
    const std::string url = from.absoluteString();
    return url.substr(url.find("/echo/"));
  };
  const int requests = requestsServed();
  auto cache = makeCache();
  EXPECT_EQ(text(load(*cache, alice)), path(alice));
  EXPECT_EQ(text(load(*cache, mallory)), path(mallory)); // replaces alice's file
  EXPECT_EQ(text(load(*cache, alice)), path(alice));     // from memory
  cache = makeCache();
  EXPECT_EQ(text(load(*cache, alice)), path(alice)); // the file is mallory's: downloaded again
  cache = makeCache();
  EXPECT_EQ(text(load(*cache, alice)), path(alice)); // the file is alice's now
  EXPECT_EQ(requestsServed(), requests + 4);
  std::ifstream file(cache->cacheFile(alice), std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), path(alice)); // the body only
}

// A player on the real clock keeps receiving frames while 16 downloads wait on servers that stall
// or trickle; cancelling the loads ends their transfers.
TEST_F(LottieCacheTest, FramesKeepComingWhileDownloadsWaitAndCancellingEndsThem) {
  auto cache = std::make_unique<LottieCache>(folder); // stalls and trickles last a minute
  std::vector<platform::Task<LottieCache::Data>> loads;
  for (int i = 0; i < 16; ++i) {
    const Url from = url((i % 2 ? "/slow/" : "/trickle/") + std::to_string(i));
    loads.push_back(platform::spawn(MainLoop::shared().executor(), cache->loadLottie(from)));
  }
  while (count("/open") < 16) {
    MainLoop::shared().runFor(std::chrono::milliseconds(20));
  }
  auto recorder = std::make_shared<testing::RequestRecorder>();
  auto player = LottiePlayer::create(30, recorder, platform::DisplayLink::Clock::mainLoop);
  player->setDelegate(recorder);
  const auto asset = fs::path(FRAMELOOM_SOURCE_DIR) / "assets/demo-animation.json";
  MainLoop::shared().runUntilComplete(player->loadAnimation(Url::fromFilePath(asset)));
  player->play();
  while (recorder->deliveries.size() < 15) {
    MainLoop::shared().runFor(std::chrono::milliseconds(20));
  }
  player->stop();
  EXPECT_EQ(count("/open"), 16); // every transfer still waiting while the frames came

  for (const auto& load : loads) {
    load.cancel();
  }
  for (const auto& load : loads) {
    try {
      MainLoop::shared().runUntilComplete(load.value());
      ADD_FAILURE() << "loaded";
    } catch (const LottieCacheError& error) {
      EXPECT_EQ(nesting(error), "network(transfer 42)");
    }
  }
  eventually([] { return count("/open") == 0; });
}

// Processes sharing the folder: others' files in flight are neither counted nor deleted, and
// neither a trim nor a wipe follows a symbolic link out of the folder.
TEST_F(LottieCacheTest, ProcessesShareTheFolderAndLinksAreNeverFollowed) {
  const fs::path cacheFolder = folder / "LottieCache";
  const fs::path outside = folder / "outside";
  fs::create_directories(cacheFolder);
  fs::create_directories(outside);
  std::ofstream(outside / "keep") << "keep";
  fs::create_symlink(outside / "keep", cacheFolder / "file-link");
  fs::create_directory_symlink(outside, cacheFolder / "folder-link");
  // Another process's download in flight, large enough that a trim counting it would delete it.
  const fs::path inFlight = cacheFolder / ".1234.AbCdEf";
  std::ofstream(inFlight).close();
  fs::resize_file(inFlight, 300 * 1024 * 1024);
  ::setenv("XDG_CACHE_HOME", folder.c_str(), 1);

  const std::string from = server->url("/bytes/3000000/shared.lottie");
  std::vector<std::future<testing::ToolRun>> runs;
  for (int i = 0; i < 4; ++i) {
    const fs::path workFolder = folder / ("run" + std::to_string(i));
    fs::create_directories(workFolder);
    runs.push_back(std::async(std::launch::async, [from, workFolder] {
      return testing::runTool("fetch '" + from + "'", workFolder);
    }));
  }
  for (auto& run : runs) {
    const testing::ToolRun result = run.get();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, ::testing::StartsWith("3000000 bytes, cached at "));
  }
  EXPECT_TRUE(fs::exists(inFlight));

  EXPECT_EQ(testing::runTool("cache clear", folder).status, 0);
  std::set<std::string> left;
  for (const auto& entry : fs::directory_iterator(cacheFolder)) {
    left.insert(entry.path().filename());
  }
  EXPECT_THAT(left, ElementsAre(inFlight.filename()));
  EXPECT_TRUE(fs::exists(outside / "keep"));

  fs::remove_all(cacheFolder); // a cache folder that is a link to another folder
  fs::create_directory_symlink(outside, cacheFolder);
  const testing::ToolRun clear = testing::runTool("cache clear", folder);
  EXPECT_NE(clear.status, 0);
  EXPECT_THAT(clear.err, ::testing::HasSubstr("Too many levels of symbolic links"));
  EXPECT_TRUE(fs::exists(outside / "keep"));
  ::unsetenv("XDG_CACHE_HOME");
}

// play --seconds bounds the whole command, load included: a trickling download is cancelled.
TEST_F(LottieCacheTest, ToolPlayEndsOnTimeWhileItsDownloadTrickles) {
  fs::create_directories(folder);
  ::setenv("XDG_CACHE_HOME", folder.c_str(), 1);
  const std::string from = server->url("/trickle/play.lottie");
  const testing::ToolRun play = testing::runTool("play '" + from + "' --seconds 0.5", folder);
  EXPECT_EQ(play.status, 1);
  EXPECT_EQ(play.err, "frameloom: " + from + ": not loaded within 0.5 s\n");
  eventually([] { return count("/open") == 0; });
  ::unsetenv("XDG_CACHE_HOME");
}

} // namespace
} // namespace frameloom
