#include <frameloom/platform/system/LowMemorySignal.h>

#include <utility>
#include <vector>

namespace frameloom::platform {

LowMemorySignal& LowMemorySignal::shared() {
  // Never destroyed, so that subscribers released during exit still find it.
  static LowMemorySignal* const signal = new LowMemorySignal;
  return *signal;
}

LowMemorySignal::Subscription LowMemorySignal::subscribe(Callback callback) {
  auto subscriber = std::make_shared<Subscriber>();
  subscriber->callback = std::move(callback);
  std::lock_guard lock(mutex_);
  subscribers_.emplace(nextId_++, subscriber);
  return Subscription(this, std::move(subscriber));
}

void LowMemorySignal::post() {
  std::vector<std::shared_ptr<Subscriber>> current;
  {
    std::lock_guard lock(mutex_);
    current.reserve(subscribers_.size());
    for (const auto& [id, subscriber] : subscribers_) {
      current.push_back(subscriber);
    }
  }
  for (const auto& subscriber : current) {
    std::lock_guard running(subscriber->running);
    if (subscriber->active) {
      subscriber->callback();
    }
  }
}

void LowMemorySignal::unsubscribe(const std::shared_ptr<Subscriber>& subscriber) {
  {
    std::lock_guard lock(mutex_);
    std::erase_if(subscribers_, [&](const auto& entry) { return entry.second == subscriber; });
  }
  // Waits for a call in progress on another thread; the callback itself is released with the
  // last reference, outside every lock.
  std::lock_guard running(subscriber->running);
  subscriber->active = false;
}

LowMemorySignal::Subscription::Subscription(Subscription&& other) noexcept
    : signal_(std::exchange(other.signal_, nullptr)), subscriber_(std::move(other.subscriber_)) {}

LowMemorySignal::Subscription&
LowMemorySignal::Subscription::operator=(Subscription&& other) noexcept {
  if (this != &other) {
    reset();
    signal_ = std::exchange(other.signal_, nullptr);
    subscriber_ = std::move(other.subscriber_);
  }
  return *this;
}

LowMemorySignal::Subscription::~Subscription() {
  reset();
}

void LowMemorySignal::Subscription::reset() {
  if (subscriber_) {
    signal_->unsubscribe(subscriber_);
    subscriber_.reset();
    signal_ = nullptr;
  }
}

} // namespace frameloom::platform
