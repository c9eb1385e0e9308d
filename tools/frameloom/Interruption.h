#pragma once

#include <frameloom/platform/core/Progress.h>

#include <memory>
#include <mutex>
#include <thread>

namespace frameloom::tool {

// Turns Ctrl-C (SIGINT) and SIGTERM into a cancellation of the work in progress, so that a
// writing command rolls back instead of dying halfway through an archive. Made in main() before
// any other thread: it blocks both signals for the whole process and waits for them on a thread
// of its own (so nothing runs inside a signal handler).
//
// While a progress record is registered, a signal cancels it and the command ends with the
// library's "cancelled" error. Without one, the signal ends the process as it would have anyway.
class Interruption {
public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // Cancels `progress` on a signal until the returned registration is destroyed.
  class Registration {
  public:
    ~Registration();
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

  private:
    friend class Interruption;
    explicit Registration(Interruption& owner) : owner_(owner) {}
    Interruption& owner_;
  };
  [[nodiscard]] Registration cancelOnSignal(std::shared_ptr<platform::Progress> progress);

private:
  void waitForSignals();

  std::mutex mutex_;
  std::shared_ptr<platform::Progress> current_;
  std::thread waiter_;
};

} // namespace frameloom::tool
