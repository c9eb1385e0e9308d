#include <frameloom/player/LottiePlayer.h>

#include <frameloom/platform/core/DecimalText.h>
#include <frameloom/platform/runtime/MainLoop.h>
#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/system/Log.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

namespace frameloom {
namespace {

constexpr float lowestFrameRate = 5.0f;
constexpr float smallestDuration = 0.0001f;

// The shortest text that reads back as `value`, whole numbers with one decimal ("2.0", "0.2").
std::string describe(float value) {
  return platform::shortestDecimal(value, platform::WholeNumbers::withPoint);
}

// Truncates toward zero into the 64-bit range; not-a-number gives 0.
std::int64_t truncated(float value) {
  constexpr float limit = 9.2e18f;
  if (std::isnan(value)) {
    return 0;
  }
  return static_cast<std::int64_t>(std::clamp(value, -limit, limit));
}

// Hands `model` to the actor in a task nobody awaits; the task keeps the services alive.
void destroyDetached(std::shared_ptr<PlayerServices> services, PlayerServices::Model model) {
  auto destroy = [](std::shared_ptr<PlayerServices> services,
                    PlayerServices::Model model) -> asio::awaitable<void> {
    co_await services->destroy(std::move(model));
  };
  platform::spawnDetached(platform::sharedExecutor(),
                          destroy(std::move(services), std::move(model)));
}

} // namespace

std::shared_ptr<LottiePlayer> LottiePlayer::create(float frameRate) {
  return create(frameRate, PlayerServices::shared(), platform::DisplayLink::Clock::mainLoop);
}

std::shared_ptr<LottiePlayer> LottiePlayer::create(float frameRate,
                                                   std::shared_ptr<PlayerServices> services,
                                                   platform::DisplayLink::Clock clock) {
  auto player = std::make_shared<LottiePlayer>(Private{}, frameRate, std::move(services));
  player->setupDisplayLink(clock);
  return player;
}

LottiePlayer::LottiePlayer(Private, float frameRate, std::shared_ptr<PlayerServices> services)
    : frameRate_(frameRate), services_(std::move(services)) {}

// Runs once the link is invalidated and the last owner has let go; a pending frame request is
// released as it is and finds the player gone.
LottiePlayer::~LottiePlayer() {
  destroyModel();
  platform::logLine("LottiePlayer did deint successfully");
}

void LottiePlayer::setupDisplayLink(platform::DisplayLink::Clock clock) {
  displayLink_ = platform::DisplayLink::make(
      [player = shared_from_this()](platform::DisplayLink& link) {
        player->displayLinkFired(link);
      },
      clock);
  displayLink_->setPreferredFrameRateRange({lowestFrameRate, frameRate_, frameRate_});
  displayLink_->setPaused(true);
  displayLink_->addToMainLoop();
}

asio::awaitable<void> LottiePlayer::loadAnimation(platform::Url url) {
  std::weak_ptr<LottiePlayer> player = weak_from_this();
  auto services = services_;
  auto model = co_await platform::runOn(platform::sharedExecutor(),
                                        fetchAndLoad(services, url, renderSize_, colors_));
  if (model) {
    co_await platform::runOn(platform::MainLoop::shared().executor(),
                             installOnMainLoop(player, services, std::move(model)));
  }
}

asio::awaitable<PlayerServices::Model>
LottiePlayer::fetchAndLoad(std::shared_ptr<PlayerServices> services, platform::Url url,
                           platform::Size size, std::vector<platform::Color> colors) {
  if (!colors.empty()) {
    co_return co_await services->loadRecolored(std::move(url), size, std::move(colors));
  }
  if (url.isHttp()) {
    auto bytes = co_await services->loadLottie(url);
    co_return co_await services->load(std::move(bytes), size);
  }
  co_return co_await services->load(std::move(url), size);
}

asio::awaitable<void> LottiePlayer::installOnMainLoop(std::weak_ptr<LottiePlayer> player,
                                                      std::shared_ptr<PlayerServices> services,
                                                      PlayerServices::Model model) {
  if (auto target = player.lock()) {
    target->install(std::move(model));
  } else {
    // Nobody is left to own the animation.
    destroyDetached(std::move(services), std::move(model));
  }
  co_return;
}

void LottiePlayer::install(PlayerServices::Model model) {
  lottieModel_ = std::move(model);
  duration_ = lottieModel_->duration();
  totalFrames_ = lottieModel_->totalFrames();
  currentTime_ = 0;
  platform::logLine("LottiePlayer: Loaded animation with " + describe(totalFrames_) +
                    " frames, duration: " + describe(duration_) + "s");
}

void LottiePlayer::play() {
  if (!lottieModel_) {
    platform::logLine("LottiePlayer: No animation loaded");
    return;
  }
  lastTimestamp_.reset();
  lastSentFrameIndex_ = -1;
  isPlaying_ = true;
  displayLink_->setPaused(false);
  platform::logLine("LottiePlayer: Started playing");
}

void LottiePlayer::play(float fromTime) {
  if (!lottieModel_ || !(duration_ > 0)) {
    return;
  }
  float clamped = fromTime >= 0 ? fromTime : 0;
  if (duration_ < clamped) {
    clamped = duration_;
  }
  currentTime_ = clamped;
  lastTimestamp_.reset();
  lastSentFrameIndex_ = -1;
  isPlaying_ = true;
  displayLink_->setPaused(false);
  requestFrame(currentTime_ * (totalFrames_ / std::max(duration_, smallestDuration)),
               Delivery::time);
  platform::logLine("LottiePlayer: Playing from time " + describe(clamped) + "s");
}

void LottiePlayer::pause() {
  isPlaying_ = false;
  cancelPendingRequest();
  displayLink_->setPaused(true);
  platform::logLine("LottiePlayer: Paused");
}

void LottiePlayer::resume() {
  lastTimestamp_.reset();
  isPlaying_ = true;
  displayLink_->setPaused(false);
  platform::logLine("LottiePlayer: Resumed");
}

void LottiePlayer::stop() {
  // Invalidating the link lets go of the player, which may have been its last owner.
  const auto self = shared_from_this();
  cancelPendingRequest();
  isPlaying_ = false;
  currentTime_ = 0;
  lastTimestamp_.reset();
  lastSentFrameIndex_ = -1;
  displayLink_->setPaused(true);
  displayLink_->invalidate();
  destroyModel();
  platform::logLine("LottiePlayer: Stopped");
}

float LottiePlayer::currentFrame() const {
  if (!(duration_ > 0 && totalFrames_ > 0)) {
    return 0;
  }
  float frame = (totalFrames_ / duration_) * currentTime_;
  if (totalFrames_ - 1 < frame) {
    frame = totalFrames_ - 1;
  }
  return frame >= 0 ? frame : 0;
}

float LottiePlayer::progress() const {
  return duration_ > 0 ? currentTime_ / duration_ : 0;
}

void LottiePlayer::displayLinkFired(platform::DisplayLink& link) {
  if (!isPlaying_ || !lottieModel_ || !(duration_ > 0) || !(totalFrames_ > 0)) {
    return;
  }
  if (lastTimestamp_) {
    double elapsed = link.timestamp() - *lastTimestamp_;
    currentTime_ += static_cast<float>(elapsed >= 0 ? elapsed : 0);
  }
  lastTimestamp_ = link.timestamp();

  if (currentTime_ >= duration_) {
    currentTime_ = std::fmod(currentTime_, duration_);
  } else if (currentTime_ < 0) {
    currentTime_ = 0;
  }

  float rate = totalFrames_ / std::max(duration_, smallestDuration);
  std::int64_t raw = truncated(std::floor(currentTime_ * rate));
  std::int64_t last = truncated(totalFrames_ - 1);
  std::int64_t index = std::max<std::int64_t>(0, std::min(last, raw));
  if (index == lastSentFrameIndex_) {
    return;
  }
  lastSentFrameIndex_ = index;
  requestFrame(static_cast<float>(index), Delivery::tick);
}

void LottiePlayer::requestFrame(float frame, Delivery delivery) {
  cancelPendingRequest();
  pendingSeekTask_ =
      platform::spawn(platform::MainLoop::shared().executor(),
                      renderAndDeliver(weak_from_this(), services_, frame, lottieModel_, delivery));
}

asio::awaitable<void> LottiePlayer::renderAndDeliver(std::weak_ptr<LottiePlayer> player,
                                                     std::shared_ptr<PlayerServices> services,
                                                     float frame, PlayerServices::Model model,
                                                     Delivery delivery) {
  if (player.expired()) {
    co_return;
  }
  auto image = co_await services->seek(frame, std::move(model));
  if (!image) {
    co_return;
  }
  // Back on the main loop, where the request was started. Cancellation no longer matters here:
  // what was rendered is delivered by the rules of its variant.
  auto target = player.lock();
  if (!target || (delivery == Delivery::tick && !target->isPlaying_)) {
    co_return;
  }
  if (auto delegate = target->delegate_.lock()) {
    delegate->lottiePlayer(*target, std::move(image));
  }
}

void LottiePlayer::cancelPendingRequest() {
  if (pendingSeekTask_) {
    pendingSeekTask_->cancel();
    pendingSeekTask_.reset();
  }
}

void LottiePlayer::destroyModel() {
  if (lottieModel_) {
    destroyDetached(services_, std::move(lottieModel_));
    lottieModel_.reset();
  }
}

} // namespace frameloom
