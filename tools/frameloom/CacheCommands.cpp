#include "CacheCommands.h"

#include "ProgressBar.h"
#include "Usage.h"

#include <frameloom/cache/LottieCache.h>
#include <frameloom/platform/runtime/MainLoop.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace frameloom::tool {
namespace {

void fetch(Console& console, const std::string& text) {
  const std::optional<platform::Url> url =
      platform::Url::isHttp(text) ? platform::Url::parse(text) : std::nullopt;
  if (!url) {
    throw UsageError("'" + text + "' is not an http(s) URL");
  }
  LottieCache& cache = LottieCache::shared();
  LottieCache::Data data;
  try {
    const ProgressBar bar(console, "fetch", "", ProgressBar::Units::bytes);
    data = platform::MainLoop::shared().runUntilComplete(cache.loadLottie(*url, bar.progress()));
  } catch (const CacheError& error) {
    throw std::runtime_error(text + ": " + error.what());
  }
  std::cout << data->size() << " bytes, cached at " << cache.cacheFile(*url).string() << std::endl;
}

void clear() {
  LottieCache& cache = LottieCache::shared();
  cache.clearCache();
  // clearCache wipes the folder in the background; this waits for a wipe of its own.
  try {
    platform::MainLoop::shared().runUntilComplete(cache.removeAllDiskFiles());
  } catch (const std::filesystem::filesystem_error& error) {
    throw std::runtime_error(cache.cacheFolder().string() + ": " + error.code().message());
  }
}

} // namespace

void addCacheCommands(CLI::App& app, Console& console) {
  auto url = std::make_shared<std::string>();
  CLI::App* fetchCommand =
      app.add_subcommand("fetch", "Load a .lottie file by URL through the cache");
  fetchCommand->add_option("URL", *url, "http or https URL")->required();
  fetchCommand->callback([url, &console] { fetch(console, *url); });

  CLI::App* cacheCommand = app.add_subcommand("cache", "Manage the download cache");
  cacheCommand->require_subcommand(1);
  cacheCommand->add_subcommand("clear", "Empty the cache and its folder")->callback(clear);
}

} // namespace frameloom::tool
