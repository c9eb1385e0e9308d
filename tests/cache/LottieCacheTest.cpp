#include "frameloom/LottieCache.h"

#include "TestHttpServer.h"
#include "frameloom/CacheKey.h"
#include "platform/runtime/MainLoop.h"
#include "platform/runtime/SharedExecutor.h"

#include <asio/co_spawn.hpp>
#include <asio/use_future.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <thread>

namespace frameloom {
namespace {
namespace fs = std::filesystem;
using platform::MainLoop;
using platform::Url;
using ::testing::ElementsAre;

// The chain of an error and its causes, e.g. "networkError(networkError(HTTP 204))".
std::string nesting(const std::exception& error) {
  if (const auto* cacheError = dynamic_cast<const LottieCacheError*>(&error)) {
    static const char* const names[] = {"networkError", "diskWriteError", "diskReadError",
                                        "invalidData"};
    const std::string name = names[static_cast<int>(cacheError->code())];
    return cacheError->cause() ? name + "(" + nesting(*cacheError->cause()) + ")" : name;
  }
  if (const auto* status = dynamic_cast<const HttpStatusError*>(&error)) {
    return std::string(HttpStatusError::domain) + " " + std::to_string(status->code());
  }
  if (const auto* transfer = dynamic_cast<const TransferError*>(&error)) {
    return "transfer " + std::to_string(transfer->code());
  }
  return dynamic_cast<const std::system_error*>(&error) ? "system" : "other";
}

// Waits, with no deadline, for what the cache's detached tasks do.
template <class Condition>
void eventually(Condition condition) {
  while (!condition()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

class LottieCacheTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() { server = new testing::TestHttpServer(); }
  static void TearDownTestSuite() { delete server; }
  void SetUp() override { fs::remove_all(folder); }
  void TearDown() override { fs::remove_all(folder); }

  std::unique_ptr<LottieCache> makeCache() {
    return std::make_unique<LottieCache>(
        folder,
        TransferLimits{.stallTimeout = std::chrono::milliseconds(500), .maxBodySize = 1'000'000});
  }
  static Url url(const std::string& path) { return *Url::parse(server->url(path)); }
  static LottieCache::Data load(LottieCache& cache, const Url& from) {
    return MainLoop::shared().runUntilComplete(cache.loadLottie(from));
  }
  static int requestsServed() {
    auto answer = HttpTransfer(TransferLimits{}).get(server->url("/requests")).body;
    return std::stoi(std::string(answer.begin(), answer.end()));
  }
  // A file of `size` bytes that takes no disk space; made after a pause for a later date.
  void makeSparseFile(const std::string& name, std::int64_t size) {
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    std::ofstream(folder / name).close();
    fs::resize_file(folder / name, static_cast<std::uintmax_t>(size));
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder)) {
      result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  static inline testing::TestHttpServer* server = nullptr;
  const fs::path folder =
      fs::temp_directory_path() / ("frameloom-cache-" + std::to_string(::getpid()));
};

TEST_F(LottieCacheTest, StoresUnderTheKeyThenHitsMemoryAndDisk) {
  const Url from = url("/redirect/10"); // the last of ten redirects answers 64 bytes
  {
    auto cache = makeCache();
    LottieCache::Data data = load(*cache, from);
    ASSERT_EQ(data->size(), 64u);
    EXPECT_EQ(cache->cacheFile(from), folder / cacheKey(from.absoluteString()));
    EXPECT_EQ(fs::file_size(cache->cacheFile(from)), 64u);
    const int requests = requestsServed();
    fs::rename(cache->cacheFile(from), folder / "moved");
    EXPECT_EQ(load(*cache, from), data); // the same buffer: no file, no request
    EXPECT_EQ(requestsServed(), requests + 1);
    fs::rename(folder / "moved", cache->cacheFile(from));
  }
  const int requests = requestsServed();
  auto cache = makeCache();
  EXPECT_EQ(load(*cache, from)->size(), 64u); // a new instance reads the file
  std::ofstream(cache->cacheFile(from), std::ios::binary) << "changed";
  platform::LowMemorySignal::shared().post(); // memory is emptied; the file is read again
  LottieCache::Data reread = load(*cache, from);
  EXPECT_EQ(std::string(reread->begin(), reread->end()), "changed");
  EXPECT_EQ(requestsServed(), requests + 1);
}

TEST_F(LottieCacheTest, FailuresNestTheirCausesAndStoreNothing) {
  auto cache = makeCache();
  const std::string http = "Network error: Network error: The operation couldn't be completed. ";
  const std::vector<std::tuple<Url, std::string, std::string>> cases = {
      {url("/status/204"), "networkError(networkError(HTTP 204))", http + "(HTTP error 204.)"},
      {url("/status/206"), "networkError(networkError(HTTP 206))", http + "(HTTP error 206.)"},
      {url("/status/404"), "networkError(networkError(HTTP 404))", http + "(HTTP error 404.)"},
      {url("/status/500"), "networkError(networkError(HTTP 500))", http + "(HTTP error 500.)"},
      {url("/empty"), "networkError(invalidData)",
       "Network error: Invalid or corrupted data received"},
      {url("/redirect/11"), "networkError(transfer 47)", "Network error: Number of redirects"},
      {url("/redirect-to?ftp://127.0.0.1/a"), "networkError(transfer 1)", "Network error: Unsup"},
      {*Url::parse("file:///etc/hostname"), "networkError(transfer 1)", "Network error: Unsup"},
      {url("/drop"), "networkError(transfer 18)", "Network error: Transferred a partial file"},
      {url("/slow"), "networkError(transfer 28)", "Network error: Timeout was reached"},
      {url("/garbage"), "networkError(transfer 1)", "Network error: "},
      {url("/bytes/1000001"), "networkError(transfer 63)", "Network error: Maximum file size"},
      {*Url::parse("http://127.0.0.1:1/"), "networkError(transfer 7)", "Network error: Could"},
  };
  auto expectFailure = [&](const Url& from, const std::string& chain,
                           const std::string& description) {
    SCOPED_TRACE(from.absoluteString());
    try {
      load(*cache, from);
      ADD_FAILURE() << "loaded";
    } catch (const LottieCacheError& error) {
      EXPECT_EQ(nesting(error), chain);
      EXPECT_THAT(error.what(), ::testing::StartsWith(description));
    }
  };
  for (const auto& [from, chain, description] : cases) {
    expectFailure(from, chain, description);
  }
  EXPECT_TRUE(names().empty());

  const Url from = url("/bytes/10");
  fs::create_directory(cache->cacheFile(from)); // exists, but cannot be read as a file
  expectFailure(from, "diskReadError(system)", "Failed to read from disk: ");
  fs::remove_all(folder);
  expectFailure(from, "networkError(diskWriteError(system))",
                "Network error: Failed to write to disk: ");
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
  const Url exact = url("/bytes/1000/exact"); // brings the folder to exactly the limit
  load(*cache, exact);
  EXPECT_EQ(MainLoop::shared().runUntilComplete(cache->diskCacheSize()), LottieCache::maxDiskSize);
  std::this_thread::sleep_for(std::chrono::milliseconds(200)); // time for a wrong trim to show
  EXPECT_EQ(names().size(), 4u);

  const Url over = url("/bytes/1/over"); // one byte more: the oldest go, down to the target
  load(*cache, over);
  eventually([&] { return !fs::exists(folder / "filler"); });
  EXPECT_THAT(names(), ::testing::UnorderedElementsAre(cache->cacheFile(exact).filename(),
                                                       cache->cacheFile(over).filename()));
}

TEST_F(LottieCacheTest, ClearCacheEmptiesMemoryAtOnceAndTheFolderSoon) {
  auto cache = makeCache();
  load(*cache, url("/bytes/100/a"));
  load(*cache, url("/bytes/100/a#fragment"));
  EXPECT_EQ(names().size(), 2u);
  cache->clearCache();
  eventually([&] { return names().empty(); });
  const int requests = requestsServed();
  load(*cache, url("/bytes/100/a")); // memory is empty too
  EXPECT_EQ(requestsServed(), requests + 2);
  fs::remove_all(folder);
  EXPECT_THROW(MainLoop::shared().runUntilComplete(cache->removeAllDiskFiles()),
               fs::filesystem_error);
}

TEST_F(LottieCacheTest, ConcurrentLoadsOfTheSameAndDifferentUrls) {
  auto cache = makeCache();
  std::vector<std::future<std::size_t>> running;
  for (int t = 0; t < 16; ++t) {
    auto loads = [](LottieCache* cache, int t) -> asio::awaitable<std::size_t> {
      std::size_t total = 0;
      for (int i = 0; i < 8; ++i) {
        total += (co_await cache->loadLottie(url("/bytes/" + std::to_string(100 + (t + i) % 4))))
                     ->size();
        if (i % 3 == 0) {
          platform::LowMemorySignal::shared().post();
        }
      }
      co_await cache->trimDiskCache();
      co_return total;
    };
    running.push_back(
        asio::co_spawn(platform::sharedExecutor(), loads(cache.get(), t), asio::use_future));
  }
  std::size_t total = 0;
  for (auto& result : running) {
    total += result.get();
  }
  EXPECT_EQ(total, 16u * 2 * (100 + 101 + 102 + 103));
  EXPECT_EQ(names().size(), 4u);
}

} // namespace
} // namespace frameloom
