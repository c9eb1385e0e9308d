#include <frameloom/actor/DotLottieActor.h>

#include <frameloom/files/DotLottieFile.h>
#include <frameloom/platform/graphics/TraitCollection.h>
#include <frameloom/platform/runtime/Cancellation.h>
#include <frameloom/platform/system/Log.h>
#include <frameloom/platform/system/UniqueFile.h>
#include <frameloom/renderer/Limits.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>

namespace frameloom {

using platform::Size;
using platform::Url;
using renderer::AnimationConfig;

namespace {

// The file's bytes, or none when it cannot be opened or read, is not a regular file (a FIFO
// would block, a device never end) or holds more than the renderer will take. The size is
// checked before reading and again while reading, since the file may grow meanwhile.
std::optional<platform::Bytes> readWholeFile(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    return std::nullopt;
  }
  const platform::UniqueFile file(::fdopen(descriptor, "rb"));
  if (!file) {
    ::close(descriptor);
    return std::nullopt;
  }
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
      static_cast<std::uint64_t>(status.st_size) > renderer::maximumAnimationFileSize) {
    return std::nullopt;
  }
  platform::Bytes data;
  data.reserve(static_cast<std::size_t>(status.st_size));
  std::uint8_t chunk[65536];
  while (const std::size_t count = std::fread(chunk, 1, sizeof chunk, file.get())) {
    if (data.size() + count > renderer::maximumAnimationFileSize) {
      return std::nullopt;
    }
    data.insert(data.end(), chunk, chunk + count);
  }
  if (std::ferror(file.get())) {
    return std::nullopt;
  }
  return data;
}

} // namespace

DotLottieActor& DotLottieActor::shared() {
  static DotLottieActor actor;
  return actor;
}

asio::awaitable<DotLottieActor::Animation>
DotLottieActor::load(Url url, std::optional<Size> size,
                     std::optional<std::vector<platform::Color>> colors) {
  return shared().loadAnimation(std::move(url), size, std::move(colors));
}

asio::awaitable<DotLottieActor::Animation> DotLottieActor::load(platform::Bytes data,
                                                                std::optional<Size> size) {
  return shared().loadAnimation(std::move(data), size);
}

// The work handed to the executor refers to this coroutine's parameters, which live in its frame
// until the work is done, and owns nothing itself: GCC 12 can destroy a temporary in the operand
// of co_await twice, which is harmless only for trivially destructible objects.

asio::awaitable<DotLottieActor::Animation>
DotLottieActor::loadAnimation(Url url, std::optional<Size> size,
                              std::optional<std::vector<platform::Color>> colors) {
  co_return co_await executor_.run([&] { return loadFile(url, size, colors); });
}

asio::awaitable<DotLottieActor::Animation> DotLottieActor::loadAnimation(platform::Bytes data,
                                                                         std::optional<Size> size) {
  co_return co_await executor_.run([&] { return makeAnimation(data, size); });
}

asio::awaitable<DotLottieActor::Frame> DotLottieActor::seek(float frame, Animation model) {
  co_return co_await executor_.run([&]() -> Frame {
    if (platform::isCancelled() || !model) {
      return nullptr;
    }
    model->setFrame(frame);
    if (platform::isCancelled()) {
      return nullptr;
    }
    return model->tick();
  });
}

asio::awaitable<void> DotLottieActor::destroy(Animation model) {
  co_await executor_.run([&] {
    if (model) {
      model->destroy();
    }
  });
}

AnimationConfig DotLottieActor::configuration(std::optional<Size> size) {
  AnimationConfig config;
  config.backgroundColor = {};
  if (size) {
    config.width = pixels(size->width);
    config.height = pixels(size->height);
  }
  config.layout = renderer::createDefaultLayout();
  return config;
}

std::int64_t DotLottieActor::pixels(double side) {
  using Limits = std::numeric_limits<std::int64_t>;
  if (std::isnan(side)) {
    return 0;
  }
  // 2^63 is exactly representable; anything at or beyond it does not fit.
  if (side >= 0x1p63) {
    return Limits::max();
  }
  if (side < -0x1p63) {
    return Limits::min();
  }
  return static_cast<std::int64_t>(side);
}

DotLottieActor::Animation DotLottieActor::makeAnimation(const platform::Bytes& data,
                                                        std::optional<Size> size,
                                                        renderer::AnimationRule rule) const {
  AnimationConfig config = configuration(size);
  config.animationRule = rule;
  auto animation = std::make_shared<renderer::DotLottieAnimation>(data, std::move(config));
  if (size) {
    animation->resize(pixels(size->width), pixels(size->height));
  }
  return animation;
}

DotLottieActor::Animation
DotLottieActor::loadFile(const Url& url, std::optional<Size> size,
                         const std::optional<std::vector<platform::Color>>& colors) const {
  Url fileToLoad = url;
  const bool recolouring = colors && !colors->empty();
  if (recolouring) {
    std::vector<ColorComponents> components;
    components.reserve(colors->size());
    for (const platform::Color& color : *colors) {
      // The traits are read anew for every colour: a host may change them between two.
      components.push_back(color.rgbaArray(platform::TraitCollection::current()));
    }
    fileToLoad = Url::fromFilePath(DotLottieFile::recolor(url.path(), components, 3));
  }

  std::error_code error;
  if (fileToLoad.isFileUrl() && std::filesystem::exists(fileToLoad.path(), error)) {
    if (std::optional<platform::Bytes> data = readWholeFile(fileToLoad.path())) {
      return makeAnimation(*data, size,
                           recolouring ? renderer::AnimationRule::recolouring
                                       : renderer::AnimationRule::renderer);
    }
  }
  platform::logLine("Failed to load .lottie data from " + fileToLoad.description());
  return nullptr;
}

} // namespace frameloom
