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
#include <variant>

namespace frameloom {
namespace {

// What the shared executor hands back to a load: the bytes (null for a miss) or the error,
// thrown on the caller's side so that no exception object is shared between threads.
using Outcome = std::variant<LottieCache::Data, LottieCacheError>;

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

asio::awaitable<Outcome> readFromDisk(CacheFolder folder, std::string key, std::string url) {
  try {
    auto bytes = folder.read(key, url);
    co_return bytes ? std::make_shared<const std::vector<std::uint8_t>>(std::move(*bytes))
                    : LottieCache::Data();
  } catch (const std::system_error& error) {
    co_return LottieCacheError::diskReadError(std::make_shared<std::system_error>(error));
  }
}

// Every failure after the transfer itself is wrapped once more in networkError.
LottieCacheError wrapped(LottieCacheError error) {
  return LottieCacheError::networkError(std::make_shared<LottieCacheError>(std::move(error)));
}

// Stores a downloaded body and starts a trim when the folder has grown past its limit.
asio::awaitable<Outcome> writeToDisk(CacheFolder folder, std::string key, std::string url,
                                     LottieCache::Data data) {
  try {
    folder.write(key, url, *data);
  } catch (const std::system_error& error) {
    co_return wrapped(LottieCacheError::diskWriteError(std::make_shared<std::system_error>(error)));
  }
  if (folder.size() > LottieCache::maxDiskSize) {
    platform::spawnDetached(platform::sharedExecutor(), trim(folder));
  }
  co_return data;
}

LottieCache::Data valueOf(Outcome outcome) {
  if (const auto* error = std::get_if<LottieCacheError>(&outcome)) {
    throw *error;
  }
  return std::get<LottieCache::Data>(std::move(outcome));
}

// Counts a hit's bytes all at once.
void countAll(const std::shared_ptr<platform::Progress>& progress, const LottieCache::Data& data) {
  if (progress) {
    progress->setTotalUnitCount(static_cast<std::int64_t>(data->size()));
    progress->setCompletedUnitCount(static_cast<std::int64_t>(data->size()));
  }
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

asio::awaitable<LottieCache::Data>
LottieCache::loadLottie(platform::Url from, std::shared_ptr<platform::Progress> progress) {
  std::string url = from.absoluteString();
  if (Data cached = memoryCache_.object(url)) {
    countAll(progress, cached);
    co_return cached;
  }
  std::string key = cacheKey(url);
  Outcome read =
      co_await platform::runOn(platform::sharedExecutor(), readFromDisk(folder_, key, url));
  Data data = valueOf(std::move(read));
  if (data) {
    countAll(progress, data);
  } else {
    data = co_await download(url, progress);
    Outcome written =
        co_await platform::runOn(platform::sharedExecutor(), writeToDisk(folder_, key, url, data));
    data = valueOf(std::move(written));
  }
  memoryCache_.setObject(url, data);
  co_return data;
}

// Waits for the transfer on the network thread without holding any executor's thread.
asio::awaitable<LottieCache::Data>
LottieCache::download(const std::string& url, std::shared_ptr<platform::Progress> progress) {
  // Only http and https give HTTP responses; any other answer counts as one without a status.
  if (!isHttpScheme(std::string_view(url).substr(0, url.find(':')))) {
    throw wrapped(LottieCacheError::networkError(std::make_shared<HttpStatusError>(0)));
  }
  HttpResponse response;
  try {
    response = co_await client_.get(url, limits_, std::move(progress));
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
  co_return std::make_shared<const std::vector<std::uint8_t>>(std::move(response.body));
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
