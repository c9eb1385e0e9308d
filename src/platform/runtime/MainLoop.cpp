#include <frameloom/platform/runtime/MainLoop.h>

#include <asio/executor_work_guard.hpp>

#include <algorithm>

namespace frameloom::platform {

MainLoop& MainLoop::shared() {
  // Never destroyed: handlers may still be queued, or posted, while the process exits.
  static MainLoop* const loop = new MainLoop;
  return *loop;
}

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
