#pragma once

#include <frameloom/platform/runtime/RuntimeError.h>
#include <frameloom/platform/runtime/Task.h>

#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

namespace frameloom::platform {

// The host's main event loop: "on the main actor" means posted to executor(). The thread that
// runs the loop (through run, runFor or runUntilComplete) is the main thread while it does; one
// thread at a time. The loop can be run, stopped and run again: stopping keeps pending work
// queued for the next run. Created on first use and never destroyed, so work posted during
// process exit is accepted (and never run). A coroutine reaches the main actor with
// `co_await runOn(MainLoop::shared().executor(), work)`. An exception escaping a plain handler
// ends the run and leaves run() with it.
class MainLoop {
public:
  using executor_type = asio::io_context::executor_type;

  static MainLoop& shared();

  executor_type executor() { return context_.get_executor(); }

  // Whether the calling thread is the one running the loop.
  bool isMainThread() const { return context_.get_executor().running_in_this_thread(); }

  // Runs until stop() is called. Throws RuntimeError(loopAlreadyRunning) when already running.
  void run();

  // Runs for `duration` or until stop(), whichever comes first. Throws like run().
  void runFor(std::chrono::steady_clock::duration duration);

  // Makes the current run return after the handler it is running; callable from any thread, also
  // from work on the loop. Without a current run it has no effect.
  void stop();

  // Runs the loop until `work` has finished and returns its value or rethrows its failure. `work`
  // runs as a task on the main loop. Throws RuntimeError(loopStopped) when stop() ends the run
  // first (the work stays queued), and RuntimeError(loopAlreadyRunning) like run().
  template <class T>
  T runUntilComplete(asio::awaitable<T> work);

  // Keeps `source` (a display link) alive while it is attached, whoever else holds it, as the
  // loop that drives it. Callable from any thread.
  void attach(std::shared_ptr<void> source);
  // Ends what attach() began and hands the loop's reference back, so that the caller chooses
  // when it is released; null when `source` was not attached.
  std::shared_ptr<void> detach(const void* source);

  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

private:
  MainLoop() = default;

  // Marks the loop as running for its lifetime; throws when it already is.
  class RunningScope {
  public:
    explicit RunningScope(MainLoop& loop);
    ~RunningScope();
    RunningScope(const RunningScope&) = delete;
    RunningScope& operator=(const RunningScope&) = delete;

  private:
    MainLoop& loop_;
  };

  // Runs the loop's handlers until stop() or the deadline; the caller holds a RunningScope.
  void runUntil(std::optional<std::chrono::steady_clock::time_point> deadline);

  template <class T>
  static asio::awaitable<void> finishAndStop(asio::awaitable<T> work,
                                             std::shared_ptr<detail::TaskState<T>> state,
                                             MainLoop* loop, std::uint64_t run);

  mutable asio::io_context context_{1};
  std::atomic<bool> running_{false};
  // How many runs have started; the current run's number while running.
  std::atomic<std::uint64_t> runs_{0};
  std::mutex sourcesMutex_;
  std::vector<std::shared_ptr<void>> sources_;
};

template <class T>
T MainLoop::runUntilComplete(asio::awaitable<T> work) {
  RunningScope running(*this);
  auto state = std::make_shared<detail::TaskState<T>>();
  asio::co_spawn(TaskExecutor<executor_type>(executor(), state->flag),
                 finishAndStop(std::move(work), state, this, runs_.load() + 1), asio::detached);
  runUntil(std::nullopt);
  if (!state->isFinished()) {
    throw RuntimeError(RuntimeError::Code::loopStopped);
  }
  if constexpr (std::is_void_v<T>) {
    state->result();
  } else {
    return state->result();
  }
}

template <class T>
asio::awaitable<void> MainLoop::finishAndStop(asio::awaitable<T> work,
                                              std::shared_ptr<detail::TaskState<T>> state,
                                              MainLoop* loop, std::uint64_t run) {
  co_await detail::runAndStore(std::move(work), std::move(state));
  // Work abandoned by an earlier, stopped run must not end a later one.
  if (loop->runs_.load() == run) {
    loop->stop();
  }
}

} // namespace frameloom::platform
