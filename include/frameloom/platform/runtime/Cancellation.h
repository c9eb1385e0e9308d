#pragma once

#include <atomic>
#include <frameloom/platform/Export.h>
#include <memory>

namespace frameloom::platform {

// The cancelled flag of one task. Cancelling is cooperative: it only sets the flag, and the
// task's code reads it where it chooses. Thread-safe.
class FRAMELOOM_EXPORT CancellationFlag {
public:
  void cancel() noexcept { cancelled_.store(true, std::memory_order_release); }
  bool isCancelled() const noexcept { return cancelled_.load(std::memory_order_acquire); }

private:
  std::atomic<bool> cancelled_{false};
};

// Whether the task whose code is running on this thread has been cancelled; false outside any
// task. Callable anywhere, also in synchronous code that a task's coroutine calls, and inside
// work the task runs on another executor through runOn or a SerialExecutor.
FRAMELOOM_EXPORT bool isCancelled();

namespace detail {

// The flag of the task whose code is running on this thread; null outside any task.
FRAMELOOM_EXPORT std::shared_ptr<CancellationFlag> currentCancellationFlag();

// Makes `flag` the current task's flag on this thread for the scope's lifetime; restores the
// previous one when it ends, so that handlers run inline inside other handlers nest correctly.
class FRAMELOOM_EXPORT CurrentTaskScope {
public:
  explicit CurrentTaskScope(const std::shared_ptr<CancellationFlag>* flag) noexcept;
  ~CurrentTaskScope();
  CurrentTaskScope(const CurrentTaskScope&) = delete;
  CurrentTaskScope& operator=(const CurrentTaskScope&) = delete;

private:
  const std::shared_ptr<CancellationFlag>* previous_;
};

} // namespace detail
} // namespace frameloom::platform
