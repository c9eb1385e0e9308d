#pragma once

#include <frameloom/platform/runtime/HookedExecutor.h>
#include <frameloom/platform/runtime/RuntimeError.h>
#include <frameloom/platform/runtime/Task.h>

#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/execution.hpp>
#include <asio/io_context.hpp>
#include <asio/prefer.hpp>
#include <asio/query.hpp>
#include <asio/require.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <frameloom/platform/Export.h>
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
class FRAMELOOM_EXPORT MainLoop {
public:
  // The loop's executor: submitting work through it also wakes a foreign loop (see poll()).
  struct Waker {
    MainLoop* loop;
    template <class Inner, class Function>
    void execute(const Inner& inner, Function&& function) const;
    friend bool operator==(const Waker&, const Waker&) = default;
  };
  using executor_type = HookedExecutor<asio::io_context::executor_type, Waker>;

  static MainLoop& shared();

  executor_type executor();

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

  // Additions for hosts with an event loop of their own (GTK, Qt, SDL) that cannot call run():
  // the host watches fileDescriptor() for reading and calls poll() on its own thread whenever it
  // is readable. The descriptor becomes readable when work is submitted to executor() and when a
  // display link's next tick is due. poll() drains it, runs every handler that is ready without
  // waiting, and returns how many ran; the calling thread is the main thread meanwhile. poll()
  // throws RuntimeError(loopAlreadyRunning) during a run and rethrows what a handler throws.
  std::size_t poll();
  // The descriptor, owned by the loop for the life of the process; throws std::system_error
  // when the system cannot make one.
  int fileDescriptor();
  // Makes fileDescriptor() readable at `time`, for work that waits on a timer of the loop due
  // then, and again every millisecond after each poll() until wakeDone(time) says that the
  // timer's handler has run or was cancelled: asio's own timer can fall due a little later than
  // asked. Every wakeAt() needs its wakeDone(). Both callable from any thread.
  void wakeAt(std::chrono::steady_clock::time_point time);
  void wakeDone(std::chrono::steady_clock::time_point time);

  // Keeps `source` (a display link) alive while it is attached, whoever else holds it, as the
  // loop that drives it. Callable from any thread.
  void attach(std::shared_ptr<void> source);
  // Ends what attach() began and hands the loop's reference back, so that the caller chooses
  // when it is released; null when `source` was not attached.
  std::shared_ptr<void> detach(const void* source);

  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

private:
  MainLoop();
  // Makes fileDescriptor() readable at once, when a host watches it.
  void wakeNow();
  // Sets the descriptor's timer: at once when a wake is requested, else at the earliest of
  // `wakeTimes_`, retried every wakeRetry once past; caller holds wakeMutex_.
  void armTimer();

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
  // The foreign loop's descriptor: a timer that expires when there is work; -1 until asked for.
  std::atomic<int> wakeFd_{-1};
  std::mutex wakeMutex_;
  std::vector<std::chrono::steady_clock::time_point> wakeTimes_;
  // Work was queued since the last poll() began.
  bool wakeRequested_ = false;
  std::mutex sourcesMutex_;
  std::vector<std::shared_ptr<void>> sources_;
};

template <class Inner, class Function>
void MainLoop::Waker::execute(const Inner& inner, Function&& function) const {
  asio::execution::execute(inner, std::forward<Function>(function));
  loop->wakeNow();
}

inline MainLoop::executor_type MainLoop::executor() {
  return executor_type(context_.get_executor(), Waker{this});
}

template <class T>
T MainLoop::runUntilComplete(asio::awaitable<T> work) {
  RunningScope running(*this);
  auto state = std::make_shared<detail::TaskState<T>>();
  asio::co_spawn(TaskExecutor<executor_type>(executor(), TaskHook{state->flag}),
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
