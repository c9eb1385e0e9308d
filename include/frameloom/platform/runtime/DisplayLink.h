#pragma once

#include <asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <functional>
#include <memory>

namespace frameloom::platform {

// The refresh rates a display link is asked for, in frames per second. Zero means "no
// preference": a zero preferred rate falls back to the maximum, a zero maximum to 60.
struct FRAMELOOM_EXPORT FrameRateRange {
  float minimum = 0;
  float maximum = 0;
  float preferred = 0;
};

// A display-refresh clock: calls its target on the main thread at the preferred rate while it is
// not paused. It is created paused and starts ticking once added to the main loop and unpaused.
// Ticks fall on a fixed grid, the creation time plus whole periods: a late tick is followed by
// the next grid point still ahead, never by a burst of missed ones, and timestamp() of a tick is
// its grid time (seconds of the monotonic clock). The link holds its target strongly; once added
// to the main loop, the loop holds the link, so neither ends while the link is valid even if
// nobody else holds them. invalidate() stops the link for good, detaches it from the loop and
// releases the target.
//
// A link made with Clock::manual never ticks by itself: its ticks come from fire(), with the
// timestamps the caller chooses (tests and hosts drive players this way). fire() works the same
// on either kind and delivers nothing while the link is paused or invalidated.
//
// Used on the main thread only. The link holds itself alive while its target runs, so the target
// may invalidate or pause it. The target must not throw.
class FRAMELOOM_EXPORT DisplayLink : public std::enable_shared_from_this<DisplayLink> {
  struct Private {};

public:
  using Target = std::function<void(DisplayLink&)>;
  enum class Clock { mainLoop, manual };

  static std::shared_ptr<DisplayLink> make(Target target, Clock clock = Clock::mainLoop);

  DisplayLink(Private, Target target, Clock clock);
  DisplayLink(const DisplayLink&) = delete;
  DisplayLink& operator=(const DisplayLink&) = delete;

  FrameRateRange preferredFrameRateRange() const { return range_; }
  void setPreferredFrameRateRange(FrameRateRange range);

  bool isPaused() const { return paused_; }
  void setPaused(bool paused);

  // Seconds of the monotonic clock at the tick being delivered (or the last one); 0 before any.
  double timestamp() const { return timestamp_; }

  // The time between ticks at the current rate, in seconds.
  double duration() const;

  // Attaches the link to the main loop (MainLoop::shared()), which then holds it until
  // invalidate(); idempotent.
  void addToMainLoop();

  void invalidate();
  bool isValid() const { return valid_; }

  // Delivers one tick with the given timestamp, unless paused or invalidated.
  void fire(double timestamp);

private:
  std::chrono::steady_clock::duration period() const;
  bool isTicking() const { return clock_ == Clock::mainLoop && added_ && !paused_ && valid_; }
  // Cancels the pending tick and, when the link should tick, waits for the next grid point.
  void reschedule();
  void scheduleNext();

  std::shared_ptr<Target> target_;
  const Clock clock_;
  FrameRateRange range_;
  bool paused_ = true;
  bool added_ = false;
  bool valid_ = true;
  double timestamp_ = 0;
  // Bumped by every reschedule, so that a tick already on its way from an earlier schedule is
  // recognised and dropped.
  std::uint64_t generation_ = 0;
  const std::chrono::steady_clock::time_point origin_;
  asio::steady_timer timer_;
};

} // namespace frameloom::platform
