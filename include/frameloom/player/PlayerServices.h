#pragma once

#include <frameloom/platform/core/Bytes.h>
#include <frameloom/platform/graphics/Color.h>
#include <frameloom/platform/graphics/Image.h>
#include <frameloom/platform/graphics/Size.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/renderer/DotLottieAnimation.h>

#include <asio/awaitable.hpp>

#include <frameloom/platform/Export.h>
#include <memory>
#include <optional>
#include <vector>

namespace frameloom {

// What a LottiePlayer asks of the download cache and of the animation actor. The shared instance
// forwards to LottieCache::shared() and DotLottieActor::shared(); tests give a player their own.
// Every operation may be awaited from any executor and resumes the caller on its own executor.
class FRAMELOOM_EXPORT PlayerServices {
public:
  using Model = std::shared_ptr<renderer::DotLottieAnimation>;
  using Frame = std::shared_ptr<const platform::Image>;

  virtual ~PlayerServices() = default;

  // LottieCache::loadLottie: the bytes of a remote .lottie file; throws the cache's errors.
  virtual asio::awaitable<platform::Bytes> loadLottie(platform::Url from) = 0;
  // DotLottieActor::load with a local URL and no colours; none when the file cannot be read.
  virtual asio::awaitable<Model> load(platform::Url from, std::optional<platform::Size> size) = 0;
  // DotLottieActor::load with .lottie bytes.
  virtual asio::awaitable<Model> load(platform::Bytes from, std::optional<platform::Size> size) = 0;
  // Addition for hosts: DotLottieActor's recoloured load of `from` with `colors` (not empty);
  // "http://" and "https://" URLs are fetched through the shared cache first and the cached file
  // is recoloured. None when the file cannot be read; throws what the cache and recolouring
  // throw. Overriding it is optional: the default uses the shared cache and actor.
  virtual asio::awaitable<Model> loadRecolored(platform::Url from,
                                               std::optional<platform::Size> size,
                                               std::vector<platform::Color> colors);
  // DotLottieActor::seek: one rendered frame, or none when the calling task was cancelled before
  // rendering or the renderer gave none.
  virtual asio::awaitable<Frame> seek(float frame, Model model) = 0;
  // DotLottieActor::destroy: releases the renderer's resources of `model`.
  virtual asio::awaitable<void> destroy(Model model) = 0;

  // The cache's and the actor's shared instances, made on first use and never destroyed.
  static std::shared_ptr<PlayerServices> shared();
};

} // namespace frameloom
