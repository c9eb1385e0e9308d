#include <frameloom/cache/LottieCache.h>

#include "frameloom/cache/CacheKey.h"
#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/runtime/Task.h>
#include <frameloom/platform/system/Directories.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <system_error>

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

bool isHttpScheme(std::string_view scheme) {
  auto lower = std::string(scheme);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower == "http" || lower == "https";
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
  HttpTransfer::initialiseLibrary();
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
  Outcome outcome = co_await platform::runOn(
      platform::sharedExecutor(), loadFromDiskOrNetwork(std::move(from), std::move(key)));
  if (const auto* error = std::get_if<LottieCacheError>(&outcome)) {
    throw *error;
  }
  co_return std::get<Data>(std::move(outcome));
}

asio::awaitable<LottieCache::Outcome> LottieCache::loadFromDiskOrNetwork(platform::Url from,
                                                                         std::string key) {
  Data data;
  const bool onDisk = folder_.contains(key);
  try {
    data = onDisk ? readFromDisk(key) : downloadAndCache(from, key);
  } catch (const LottieCacheError& error) {
    co_return error;
  }
  if (!onDisk && co_await diskCacheSize() > maxDiskSize) {
    platform::spawnDetached(platform::sharedExecutor(), trim(folder_));
  }
  co_return data;
}

LottieCache::Data LottieCache::readFromDisk(const std::string& key) {
  Data data;
  try {
    data = std::make_shared<const std::vector<std::uint8_t>>(folder_.read(key));
  } catch (const std::system_error& error) {
    throw LottieCacheError::diskReadError(std::make_shared<std::system_error>(error));
  }
  memoryCache_.setObject(key, data);
  return data;
}

// Blocks the calling worker of the shared executor for the transfer and the write. Every failure
// after the transfer itself is wrapped once more in networkError.
LottieCache::Data LottieCache::downloadAndCache(const platform::Url& from, const std::string& key) {
  auto wrapped = [](LottieCacheError error) {
    return LottieCacheError::networkError(std::make_shared<LottieCacheError>(std::move(error)));
  };
  // Only http and https give HTTP responses; any other answer counts as one without a status.
  if (!isHttpScheme(from.scheme())) {
    throw wrapped(LottieCacheError::networkError(std::make_shared<HttpStatusError>(0)));
  }
  HttpResponse response;
  try {
    response = HttpTransfer(limits_).get(from.absoluteString());
  } catch (const TransferError& error) {
    throw LottieCacheError::networkError(std::make_shared<TransferError>(error));
  }
  if (response.statusCode != 200) {
    throw wrapped(
        LottieCacheError::networkError(std::make_shared<HttpStatusError>(response.statusCode)));
  }
  if (response.body.empty()) {
    throw wrapped(LottieCacheError::invalidData());
  }
  auto data = std::make_shared<const std::vector<std::uint8_t>>(std::move(response.body));
  try {
    folder_.write(key, *data);
  } catch (const std::system_error& error) {
    throw wrapped(LottieCacheError::diskWriteError(std::make_shared<std::system_error>(error)));
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
