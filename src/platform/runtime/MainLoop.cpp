#include <frameloom/platform/runtime/MainLoop.h>

#include <asio/executor_work_guard.hpp>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace frameloom::platform {

namespace {

// How often a host is woken again for a timer whose wake time has passed but whose handler has
// not run yet: asio arms its own timer a moment after it is asked to, later still when the
// thread is preempted. Far less than a display frame.
constexpr std::chrono::milliseconds wakeRetry{1};

} // namespace

MainLoop& MainLoop::shared() {
  // Never destroyed: handlers may still be queued, or posted, while the process exits.
  static MainLoop* const loop = new MainLoop;
  return *loop;
}

MainLoop::MainLoop() = default;

MainLoop::RunningScope::RunningScope(MainLoop& loop) : loop_(loop) {
  if (loop_.running_.exchange(true, std::memory_order_acq_rel)) {
    throw RuntimeError(RuntimeError::Code::loopAlreadyRunning);
  }
}

MainLoop::RunningScope::~RunningScope() {
  loop_.running_.store(false, std::memory_order_release);
}

void MainLoop::run() {
  RunningScope running(*this);
  runUntil(std::nullopt);
}

void MainLoop::runFor(std::chrono::steady_clock::duration duration) {
  RunningScope running(*this);
  runUntil(std::chrono::steady_clock::now() + duration);
}

void MainLoop::stop() {
  context_.stop();
}

std::size_t MainLoop::poll() {
  RunningScope running(*this);
  const int fd = fileDescriptor();
  {
    std::lock_guard lock(wakeMutex_);
    std::uint64_t expirations = 0;
    // Non-blocking: fails with EAGAIN when the timer has not expired, which is fine.
    [[maybe_unused]] auto drained = ::read(fd, &expirations, sizeof expirations);
    // Work queued until now runs in this poll; work queued from now on wakes the host again.
    wakeRequested_ = false;
    armTimer();
  }
  runs_.fetch_add(1);
  context_.restart();
  return context_.poll();
}

int MainLoop::fileDescriptor() {
  std::lock_guard lock(wakeMutex_);
  if (wakeFd_ < 0) {
    // CLOCK_MONOTONIC is the clock of std::chrono::steady_clock on Linux.
    const int fd = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (fd < 0) {
      throw std::system_error(errno, std::generic_category(), "timerfd_create");
    }
    wakeFd_ = fd;
    // Work queued before the host started watching is ready now.
    wakeRequested_ = true;
    armTimer();
  }
  return wakeFd_;
}

void MainLoop::wakeAt(std::chrono::steady_clock::time_point time) {
  // Remembered even before a host asks for the descriptor, so that a timer started earlier
  // still wakes it.
  std::lock_guard lock(wakeMutex_);
  wakeTimes_.push_back(time);
  armTimer();
}

void MainLoop::wakeDone(std::chrono::steady_clock::time_point time) {
  std::lock_guard lock(wakeMutex_);
  const auto found = std::find(wakeTimes_.begin(), wakeTimes_.end(), time);
  if (found != wakeTimes_.end()) {
    wakeTimes_.erase(found);
  }
  armTimer();
}

void MainLoop::wakeNow() {
  if (wakeFd_ < 0) {
    return;
  }
  std::lock_guard lock(wakeMutex_);
  wakeRequested_ = true;
  armTimer();
}

void MainLoop::armTimer() {
  if (wakeFd_ < 0) {
    return;
  }
  const auto now = std::chrono::steady_clock::now();
  std::optional<std::chrono::steady_clock::time_point> earliest;
  if (wakeRequested_) {
    earliest = now;
  } else if (!wakeTimes_.empty()) {
    const auto due = *std::min_element(wakeTimes_.begin(), wakeTimes_.end());
    earliest = due > now ? due : now + wakeRetry;
  }
  itimerspec deadline{};
  if (earliest) {
    const auto since = earliest->time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    deadline.it_value.tv_sec = seconds.count();
    deadline.it_value.tv_nsec = std::chrono::nanoseconds(since - seconds).count();
    // A zero value disarms the timer; the clock's origin itself is long past.
    if (deadline.it_value.tv_sec == 0 && deadline.it_value.tv_nsec == 0) {
      deadline.it_value.tv_nsec = 1;
    }
  }
  ::timerfd_settime(wakeFd_, TFD_TIMER_ABSTIME, &deadline, nullptr);
}

void MainLoop::attach(std::shared_ptr<void> source) {
  std::lock_guard lock(sourcesMutex_);
  sources_.push_back(std::move(source));
}

std::shared_ptr<void> MainLoop::detach(const void* source) {
  std::lock_guard lock(sourcesMutex_);
  auto found = std::find_if(sources_.begin(), sources_.end(),
                            [source](const auto& held) { return held.get() == source; });
  if (found == sources_.end()) {
    return nullptr;
  }
  auto held = std::move(*found);
  sources_.erase(found);
  return held;
}

void MainLoop::runUntil(std::optional<std::chrono::steady_clock::time_point> deadline) {
  runs_.fetch_add(1);
  context_.restart();
  // The loop waits for work rather than returning when its queue is momentarily empty.
  auto idle = asio::make_work_guard(context_);
  if (deadline) {
    context_.run_until(*deadline);
  } else {
    context_.run();
  }
}

} // namespace frameloom::platform
