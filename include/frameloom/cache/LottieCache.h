#pragma once

#include <frameloom/cache/CacheFolder.h>
#include <frameloom/cache/HttpClient.h>
#include <frameloom/cache/HttpTransfer.h>
#include <frameloom/cache/LottieCacheError.h>
#include <frameloom/cache/MemoryCache.h>
#include <frameloom/platform/core/Progress.h>
#include <frameloom/platform/system/LowMemorySignal.h>
#include <frameloom/platform/system/Url.h>

#include <asio/awaitable.hpp>

#include <cstdint>
#include <filesystem>
#include <frameloom/platform/Export.h>
#include <memory>
#include <vector>

namespace frameloom {

// Fetches the bytes of .lottie files by URL through two levels: a memory level by full URL bounded
// by 100 entries and 52,428,800 bytes, and a folder with one file per URL, named by the URL's
// cache key and marked with the URL, that survives the process. A file marked with another URL
// is a miss. A miss of both is one HTTP GET; only status 200 with a non-empty body is accepted
// and stored. The folder is trimmed to 104,857,600 bytes when the cache is made and after any
// download that takes it past 209,715,200 bytes.
//
// Thread-safe without a lock of its own: loads, trims and wipes may run at once from any thread.
// Disk work runs on the shared executor, in short steps; transfers wait on the cache's own network
// thread and hold no worker, so a slow server never keeps other work of the process (the actor's
// rendering among it) from running. A memory hit completes on the caller's executor without
// touching the file system. Cancelling the task that awaits a load ends its transfer. Trims and
// wipes started by the cache run as detached tasks and report nothing. A low-memory signal
// empties the memory level.
class FRAMELOOM_EXPORT LottieCache {
public:
  // Shared immutable bytes: a hit hands out the cached buffer itself, never a copy.
  using Data = std::shared_ptr<const std::vector<std::uint8_t>>;

  static constexpr std::int64_t maxMemorySize = 52'428'800;
  static constexpr std::size_t maxMemoryCount = 100;
  static constexpr std::int64_t maxDiskSize = 209'715'200;
  static constexpr std::int64_t diskTrimTarget = 104'857'600;

  // The process-wide cache in <user caches directory>/LottieCache, made on first use (safe from
  // several threads at once) and never destroyed.
  static LottieCache& shared();

  // A cache over `cacheFolder`, which is created if missing (a failure shows later as write
  // errors). Subscribes to the low-memory signal and starts a trim of the folder.
  explicit LottieCache(std::filesystem::path cacheFolder, TransferLimits limits = {});
  virtual ~LottieCache();
  LottieCache(const LottieCache&) = delete;
  LottieCache& operator=(const LottieCache&) = delete;

  // The bytes for `from`, from memory, else the folder, else the network. Throws
  // LottieCacheError: diskReadError(cause) when a cached file cannot be read, and for a download
  // networkError(cause) wrapping the transfer's TransferError, networkError(HttpStatusError),
  // invalidData (empty body) or diskWriteError(cause). `progress`, an addition to the original
  // API, counts the bytes: those of a download as they arrive, a hit's all at once.
  virtual asio::awaitable<Data> loadLottie(platform::Url from,
                                           std::shared_ptr<platform::Progress> progress = nullptr);

  // Empties the memory level at once and starts wiping the folder in the background.
  virtual void clearCache();

  // The total byte count of the folder's files; 0 when it cannot be listed.
  asio::awaitable<std::int64_t> diskCacheSize();
  // Deletes the oldest files until the folder holds at most diskTrimTarget bytes; prints
  // "Failed to remove cache file: ..." for a file it cannot delete and goes on.
  asio::awaitable<void> trimDiskCache();
  // Deletes every item of the folder; throws std::filesystem::filesystem_error on the first
  // failure (listing or deletion).
  asio::awaitable<void> removeAllDiskFiles();

  const std::filesystem::path& cacheFolder() const { return folder_.path(); }
  // Where the bytes of `url` are (or would be) stored.
  std::filesystem::path cacheFile(const platform::Url& url) const;

private:
  asio::awaitable<Data> download(const std::string& url,
                                 std::shared_ptr<platform::Progress> progress);
  void handleMemoryWarning();

  MemoryCache memoryCache_{maxMemoryCount, maxMemorySize};
  const CacheFolder folder_;
  const TransferLimits limits_;
  HttpClient client_;
  platform::LowMemorySignal::Subscription memoryWarnings_;
};

} // namespace frameloom
