#include <frameloom/platform/runtime/DisplayLink.h>

#include <frameloom/platform/runtime/MainLoop.h>

#include <cmath>

namespace frameloom::platform {
namespace {

constexpr double defaultRate = 60;
constexpr double highestRate = 1000;

// The rate actually used: the preferred rate, else the maximum, else 60, kept within the range
// when the range is a sensible one.
double effectiveRate(const FrameRateRange& range) {
  auto usable = [](float rate) { return std::isfinite(rate) && rate > 0; };
  double rate = usable(range.preferred) ? range.preferred
                : usable(range.maximum) ? range.maximum
                                        : defaultRate;
  if (usable(range.maximum) && rate > range.maximum) {
    rate = range.maximum;
  }
  if (usable(range.minimum) && rate < range.minimum) {
    rate = range.minimum;
  }
  return std::min(rate, highestRate);
}

double seconds(std::chrono::steady_clock::time_point time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

} // namespace

std::shared_ptr<DisplayLink> DisplayLink::make(Target target, Clock clock) {
  return std::make_shared<DisplayLink>(Private{}, std::move(target), clock);
}

DisplayLink::DisplayLink(Private, Target target, Clock clock)
    : target_(std::make_shared<Target>(std::move(target))), clock_(clock),
      origin_(std::chrono::steady_clock::now()), timer_(MainLoop::shared().executor()) {}

void DisplayLink::setPreferredFrameRateRange(FrameRateRange range) {
  range_ = range;
  reschedule();
}

void DisplayLink::setPaused(bool paused) {
  if (paused_ != paused) {
    paused_ = paused;
    reschedule();
  }
}

double DisplayLink::duration() const {
  return 1.0 / effectiveRate(range_);
}

void DisplayLink::addToMainLoop() {
  if (!added_ && valid_) {
    added_ = true;
    MainLoop::shared().attach(shared_from_this());
    reschedule();
  }
}

void DisplayLink::invalidate() {
  if (!valid_) {
    return;
  }
  valid_ = false;
  reschedule();
  // Released in this order when the function returns: the target (which may own the last other
  // reference to this link), then the loop's reference, which may be the link's last.
  auto attached = added_ ? MainLoop::shared().detach(this) : nullptr;
  auto target = std::move(target_);
}

void DisplayLink::fire(double timestamp) {
  if (paused_ || !valid_) {
    return;
  }
  // Both stay alive even if the target drops the last reference to the link or invalidates it.
  auto self = shared_from_this();
  auto target = target_;
  timestamp_ = timestamp;
  (*target)(*this);
}

std::chrono::steady_clock::duration DisplayLink::period() const {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(duration()));
}

void DisplayLink::reschedule() {
  ++generation_;
  timer_.cancel();
  if (isTicking()) {
    scheduleNext();
  }
}

void DisplayLink::scheduleNext() {
  auto step = period();
  auto elapsed = std::chrono::steady_clock::now() - origin_;
  auto next = origin_ + (elapsed / step + 1) * step;
  timer_.expires_at(next);
  MainLoop::shared().wakeAt(next);
  timer_.async_wait(
      [weak = weak_from_this(), generation = generation_, next](const std::error_code& error) {
        MainLoop::shared().wakeDone(next);
        auto self = weak.lock();
        if (error || !self || self->generation_ != generation) {
          return;
        }
        self->fire(seconds(next));
        if (self->generation_ == generation && self->isTicking()) {
          self->scheduleNext();
        }
      });
}

} // namespace frameloom::platform
