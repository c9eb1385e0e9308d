#pragma once

#include <frameloom/platform/runtime/DisplayLink.h>
#include <frameloom/platform/runtime/Task.h>
#include <frameloom/platform/system/Url.h>
#include <frameloom/player/LottiePlayerDelegate.h>
#include <frameloom/player/PlayerServices.h>

#include <asio/awaitable.hpp>

#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <optional>

namespace frameloom {

// Plays one looping animation: a display link on the main loop drives a clock, the clock's time
// picks a frame index, each new index is rendered by the animation actor, and each rendered frame
// is handed to the delegate on the main thread.
//
// Made shared by create(). Owns its display link, its current animation (handed to the actor's
// destroy by stop() and by the destructor) and its pending frame request. The link, which the
// main loop keeps while it is valid, holds the player strongly: a player whose host lets go of it
// keeps playing until stop() invalidates the link, and ends once its last owner lets go after
// that. Frame requests and loads in flight hold the player weakly.
//
// Threading: every operation except loadAnimation is called on the main thread (the thread
// running platform::MainLoop, or the test's thread with a manual link), never concurrently.
// loadAnimation is awaited on the main loop; it fetches and loads on the shared executor and
// installs the animation on the main loop. Only loadAnimation throws. Not copyable or movable.
class FRAMELOOM_EXPORT LottiePlayer : public std::enable_shared_from_this<LottiePlayer> {
  struct Private {};

public:
  // Creates the display link, paused, asking for `frameRate` frames per second (at least 5),
  // and attaches it to the main loop. Uses the shared cache and actor.
  static std::shared_ptr<LottiePlayer> create(float frameRate);
  // The same with the given services and, for a manual clock, a link that ticks only when the
  // caller fires it (see displayLink()).
  static std::shared_ptr<LottiePlayer> create(float frameRate,
                                              std::shared_ptr<PlayerServices> services,
                                              platform::DisplayLink::Clock clock);

  // Reachable only through create(), which finishes the player once it is shared.
  LottiePlayer(Private, float frameRate, std::shared_ptr<PlayerServices> services);
  ~LottiePlayer();
  LottiePlayer(const LottiePlayer&) = delete;
  LottiePlayer& operator=(const LottiePlayer&) = delete;

  std::weak_ptr<LottiePlayerDelegate> delegate() const { return delegate_; }
  void setDelegate(std::weak_ptr<LottiePlayerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }

  // Length of one loop in seconds, as the renderer reported it at the last load. Writing it
  // changes the loop length and the time-to-frame mapping from the next tick on; 0 stops the
  // clock.
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }

  // Additions for hosts. The size frames are rendered at, in pixels (250 x 250 unless set), and
  // the colours that replace the animation's own (none unless set; see DotLottieActor's
  // recoloured load). Both apply from the next loadAnimation on.
  platform::Size renderSize() const { return renderSize_; }
  void setRenderSize(platform::Size size) { renderSize_ = size; }
  const std::vector<platform::Color>& colors() const { return colors_; }
  void setColors(std::vector<platform::Color> colors) { colors_ = std::move(colors); }

  // Loads the animation at `url`: "http://" and "https://" URLs through the cache, anything else
  // as a local .lottie file. On success the animation replaces the current one, the clock goes
  // back to 0 and a playing player carries on with it. A load that finds no animation changes
  // nothing; one that throws (the cache's and the actor's errors, unchanged) changes nothing
  // either.
  asio::awaitable<void> loadAnimation(platform::Url url);

  // Runs the clock from where it stands; the first tick renders the frame at the current time.
  void play();
  // Moves the clock to `fromTime` seconds (clamped to 0...duration), renders that frame at once
  // (delivered even if the player is paused by then) and runs the clock. Ignored without an
  // animation.
  void play(float fromTime);
  // Stops the clock where it stands; frames rendered for ticks are no longer delivered.
  void pause();
  // Runs the clock again from where it stands, without a jump for the time spent paused.
  void resume();
  // Stops for good: the clock goes back to 0, the link is invalidated (it never ticks again and
  // lets go of the player) and the animation is handed to the actor to be destroyed.
  void stop();

  // The frame at the clock's time, fractional, within 0...totalFrames - 1.
  float currentFrame() const;
  // The clock's time as a fraction of the duration; not clamped.
  float progress() const;
  bool isAnimationLoaded() const { return lottieModel_ != nullptr; }

  // The tick: advances the clock by the time since the previous tick, wraps it at the duration
  // and requests the frame when its index changed. Called by the display link.
  void displayLinkFired(platform::DisplayLink& link);

  // The state behind the operations above, for hosts that drive a manual link and for tests.
  const std::shared_ptr<platform::DisplayLink>& displayLink() const { return displayLink_; }
  const PlayerServices::Model& lottieModel() const { return lottieModel_; }
  float currentTime() const { return currentTime_; }
  float totalFrames() const { return totalFrames_; }
  float frameRate() const { return frameRate_; }
  bool isPlaying() const { return isPlaying_; }
  std::optional<double> lastTimestamp() const { return lastTimestamp_; }
  std::int64_t lastSentFrameIndex() const { return lastSentFrameIndex_; }

private:
  enum class Delivery { tick, time };

  void setupDisplayLink(platform::DisplayLink::Clock clock);
  void install(PlayerServices::Model model);
  void requestFrame(float frame, Delivery delivery);
  void cancelPendingRequest();
  void destroyModel();

  static asio::awaitable<PlayerServices::Model>
  fetchAndLoad(std::shared_ptr<PlayerServices> services, platform::Url url, platform::Size size,
               std::vector<platform::Color> colors);
  static asio::awaitable<void> installOnMainLoop(std::weak_ptr<LottiePlayer> player,
                                                 std::shared_ptr<PlayerServices> services,
                                                 PlayerServices::Model model);
  static asio::awaitable<void> renderAndDeliver(std::weak_ptr<LottiePlayer> player,
                                                std::shared_ptr<PlayerServices> services,
                                                float frame, PlayerServices::Model model,
                                                Delivery delivery);

  std::weak_ptr<LottiePlayerDelegate> delegate_;
  std::shared_ptr<platform::DisplayLink> displayLink_;
  PlayerServices::Model lottieModel_;
  float currentTime_ = 0;
  float duration_ = 0;
  float totalFrames_ = 0;
  float frameRate_;
  bool isPlaying_ = false;
  std::optional<double> lastTimestamp_;
  std::optional<platform::Task<void>> pendingSeekTask_;
  std::int64_t lastSentFrameIndex_ = -1;
  platform::Size renderSize_{250.0, 250.0};
  std::vector<platform::Color> colors_;

  const std::shared_ptr<PlayerServices> services_;
};

} // namespace frameloom
