#include "frameloom/LottieCache.h"

#include "frameloom/CacheKey.h"
#include "platform/runtime/SharedExecutor.h"
#include "platform/runtime/Task.h"
#include "platform/system/Directories.h"

namespace frameloom {
namespace {

// The folder work below runs as separate coroutines over a copy of the folder, so that a
// background trim or wipe never refers to the cache object that started it.
asio::awaitable<std::int64_t> measure(CacheFolder folder) {
  co_return folder.size();
}

asio::awaitable<void> trim(CacheFolder folder) {
  folder.trim(LottieCache::diskTrimTarget);
  co_return;
}

asio::awaitable<void> wipe(CacheFolder folder) {
  folder.removeAll();
  co_return;
}

} // namespace

LottieCache& LottieCache::shared() {
  // Never destroyed: loads and background tasks may still be running while the process exits.
  static LottieCache* const instance =
      new LottieCache(platform::userCachesDirectory() / "LottieCache");
  return *instance;
}

LottieCache::LottieCache(std::filesystem::path cacheFolder, TransferLimits limits)
    : folder_(std::move(cacheFolder)), limits_(limits) {
  folder_.create();
  memoryWarnings_ =
      platform::LowMemorySignal::shared().subscribe([this] { handleMemoryWarning(); });
  platform::spawnDetached(platform::sharedExecutor(), trim(folder_));
}

LottieCache::~LottieCache() = default;

asio::awaitable<LottieCache::Data> LottieCache::loadLottie(platform::Url from) {
  std::string key = cacheKey(from.absoluteString());
  if (Data cached = memoryCache_.object(key)) {
    co_return cached;
  }
  co_return co_await platform::runOn(platform::sharedExecutor(),
                                     loadFromDiskOrNetwork(std::move(from), std::move(key)));
}

asio::awaitable<LottieCache::Data> LottieCache::loadFromDiskOrNetwork(platform::Url from,
                                                                      std::string key) {
  if (folder_.contains(key)) {
    Data data;
    try {
      data = std::make_shared<const std::vector<std::uint8_t>>(folder_.read(key));
    } catch (...) {
      throw LottieCacheError::diskReadError(std::current_exception());
    }
    memoryCache_.setObject(key, data);
    co_return data;
  }
  Data data = downloadAndCache(from, key);
  if (co_await diskCacheSize() > maxDiskSize) {
    platform::spawnDetached(platform::sharedExecutor(), trim(folder_));
  }
  co_return data;
}

// Blocks the calling worker of the shared executor for the transfer and the write.
LottieCache::Data LottieCache::downloadAndCache(const platform::Url& from, const std::string& key) {
  HttpResponse response;
  try {
    response = HttpTransfer(limits_).get(from.absoluteString());
  } catch (...) {
    throw LottieCacheError::networkError(std::current_exception());
  }
  Data data;
  try {
    if (response.statusCode != 200) {
      throw LottieCacheError::networkError(
          std::make_exception_ptr(HttpStatusError(response.statusCode)));
    }
    if (response.body.empty()) {
      throw LottieCacheError::invalidData();
    }
    data = std::make_shared<const std::vector<std::uint8_t>>(std::move(response.body));
    try {
      folder_.write(key, *data);
    } catch (...) {
      throw LottieCacheError::diskWriteError(std::current_exception());
    }
  } catch (...) {
    throw LottieCacheError::networkError(std::current_exception());
  }
  memoryCache_.setObject(key, data);
  return data;
}

void LottieCache::clearCache() {
  memoryCache_.removeAllObjects();
  platform::spawnDetached(platform::sharedExecutor(), wipe(folder_));
}

asio::awaitable<std::int64_t> LottieCache::diskCacheSize() {
  co_return co_await platform::runOn(platform::sharedExecutor(), measure(folder_));
}

asio::awaitable<void> LottieCache::trimDiskCache() {
  co_await platform::runOn(platform::sharedExecutor(), trim(folder_));
}

asio::awaitable<void> LottieCache::removeAllDiskFiles() {
  co_await platform::runOn(platform::sharedExecutor(), wipe(folder_));
}

std::filesystem::path LottieCache::cacheFile(const platform::Url& url) const {
  return folder_.fileFor(cacheKey(url.absoluteString()));
}

void LottieCache::handleMemoryWarning() {
  memoryCache_.removeAllObjects();
}

} // namespace frameloom
