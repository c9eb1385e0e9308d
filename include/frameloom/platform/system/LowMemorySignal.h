#pragma once

#include <cstdint>
#include <frameloom/platform/Export.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace frameloom::platform {

// The process's "memory is running low" notification. The host (or a test) calls post(); every
// current subscriber's callback then runs on the posting thread, in subscription order.
//
// Thread-safe: post, subscribe and unsubscribe may be called from any thread, also from inside a
// callback. Once unsubscribing has returned, that callback is not running on any other thread
// and never runs again; a callback may unsubscribe itself. Callbacks must not throw.
class FRAMELOOM_EXPORT LowMemorySignal {
  struct Subscriber;

public:
  using Callback = std::function<void()>;

  // Ends its subscription when destroyed or reset. Movable, not copyable.
  class Subscription {
  public:
    Subscription() = default;
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    ~Subscription();

    void reset();
    explicit operator bool() const { return subscriber_ != nullptr; }

  private:
    friend class LowMemorySignal;
    Subscription(LowMemorySignal* signal, std::shared_ptr<Subscriber> subscriber)
        : signal_(signal), subscriber_(std::move(subscriber)) {}

    LowMemorySignal* signal_ = nullptr;
    std::shared_ptr<Subscriber> subscriber_;
  };

  // The process-wide signal, created on first use and never destroyed.
  static LowMemorySignal& shared();

  LowMemorySignal() = default;
  LowMemorySignal(const LowMemorySignal&) = delete;
  LowMemorySignal& operator=(const LowMemorySignal&) = delete;

  // The signal must outlive the returned subscription.
  [[nodiscard]] Subscription subscribe(Callback callback);

  void post();

private:
  struct Subscriber {
    Callback callback;
    // Held while the callback runs; recursive so that a callback can unsubscribe itself.
    std::recursive_mutex running;
    bool active = true;
  };

  void unsubscribe(const std::shared_ptr<Subscriber>& subscriber);

  std::mutex mutex_;
  std::uint64_t nextId_ = 0;
  std::map<std::uint64_t, std::shared_ptr<Subscriber>> subscribers_;
};

} // namespace frameloom::platform
