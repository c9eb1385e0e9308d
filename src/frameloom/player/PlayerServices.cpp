#include <frameloom/player/PlayerServices.h>

#include <frameloom/actor/DotLottieActor.h>
#include <frameloom/cache/LottieCache.h>

namespace frameloom {
namespace {

class SharedServices final : public PlayerServices {
public:
  asio::awaitable<platform::Bytes> loadLottie(platform::Url from) override {
    // The cache shares its buffer; the actor takes bytes of its own.
    auto data = co_await LottieCache::shared().loadLottie(std::move(from));
    co_return platform::Bytes(*data);
  }
  asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) override {
    co_return co_await DotLottieActor::load(std::move(from), size, std::nullopt);
  }
  asio::awaitable<Model> load(platform::Bytes from, std::optional<platform::Size> size) override {
    co_return co_await DotLottieActor::load(std::move(from), size);
  }
  asio::awaitable<Frame> seek(float frame, Model model) override {
    co_return co_await DotLottieActor::shared().seek(frame, std::move(model));
  }
  asio::awaitable<void> destroy(Model model) override {
    co_await DotLottieActor::shared().destroy(std::move(model));
  }
};

} // namespace

asio::awaitable<PlayerServices::Model>
PlayerServices::loadRecolored(platform::Url from, std::optional<platform::Size> size,
                              std::vector<platform::Color> colors) {
  const std::string& text = from.absoluteString();
  if (text.starts_with("http://") || text.starts_with("https://")) {
    // Recolouring works on a file: the cache's copy of the download.
    auto& cache = LottieCache::shared();
    co_await cache.loadLottie(from);
    from = platform::Url::fromFilePath(cache.cacheFile(from));
  }
  co_return co_await DotLottieActor::load(std::move(from), size, std::move(colors));
}

std::shared_ptr<PlayerServices> PlayerServices::shared() {
  static const std::shared_ptr<PlayerServices> services = std::make_shared<SharedServices>();
  return services;
}

} // namespace frameloom
