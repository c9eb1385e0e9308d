#pragma once

#include <frameloom/platform/runtime/Cancellation.h>
#include <frameloom/platform/runtime/TaskExecutor.h>

#include <asio/async_result.hpp>
#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/post.hpp>
#include <asio/use_awaitable.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

// Tasks: coroutines (asio::awaitable) started on an executor, with a cooperative cancelled flag.
//
// A note for every coroutine in the project, compiled with GCC 12: a lambda or a brace-built
// aggregate that owns something with a destructor (a captured shared_ptr, string, vector), created
// as a temporary inside a co_await expression, is destroyed twice. Name it first:
//
//     auto render = [model] { return model->render(); };   // not inside the co_await
//     auto image = co_await actor.run(render);
//
// Lambdas capturing only references, pointers or numbers are safe inline. For the same reason,
// hop between executors with runOn (or SerialExecutor::run), not co_spawn(..., use_awaitable).

namespace frameloom::platform {
namespace detail {

template <class T>
using TaskValue = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

// What a task leaves behind: its value or failure, and the coroutines waiting for it.
template <class T>
class TaskState {
public:
  const std::shared_ptr<CancellationFlag> flag = std::make_shared<CancellationFlag>();

  void finish(std::optional<TaskValue<T>> value, std::exception_ptr error) {
    std::vector<std::function<void()>> waiters;
    {
      std::lock_guard lock(mutex_);
      value_ = std::move(value);
      error_ = std::move(error);
      finished_ = true;
      waiters.swap(waiters_);
    }
    for (auto& resume : waiters) {
      resume();
    }
  }

  // Suspends the calling coroutine until the task has finished, then resumes it on its own
  // executor.
  asio::awaitable<void> finished() {
    co_await asio::async_initiate<const asio::use_awaitable_t<>&, void()>(Waiting{this},
                                                                          asio::use_awaitable);
  }

  bool isFinished() const {
    std::lock_guard lock(mutex_);
    return finished_;
  }

  // The value, or the failure rethrown; only after the task has finished.
  TaskValue<T> result() const {
    std::lock_guard lock(mutex_);
    if (error_) {
      std::rethrow_exception(error_);
    }
    return *value_;
  }

private:
  // GCC 12 destroys the initiation of an awaited operation twice, so this one holds nothing
  // that a destructor would release.
  struct Waiting {
    TaskState* state;

    template <class Handler>
    void operator()(Handler handler) const {
      state->wait(std::move(handler));
    }
  };

  template <class Handler>
  void wait(Handler handler) {
    auto shared = std::make_shared<Handler>(std::move(handler));
    // Keeps the waiter's executor (the main loop, say) from running out of work meanwhile.
    auto executor = asio::prefer(asio::get_associated_executor(*shared),
                                 asio::execution::outstanding_work.tracked);
    std::function<void()> resume = [shared, executor] {
      asio::post(executor, [shared] { std::move (*shared)(); });
    };
    {
      std::lock_guard lock(mutex_);
      if (!finished_) {
        waiters_.push_back(std::move(resume));
        return;
      }
    }
    resume();
  }

  mutable std::mutex mutex_;
  bool finished_ = false;
  std::optional<TaskValue<T>> value_;
  std::exception_ptr error_;
  std::vector<std::function<void()>> waiters_;
};

template <class T>
asio::awaitable<void> runAndStore(asio::awaitable<T> work, std::shared_ptr<TaskState<T>> state) {
  std::optional<TaskValue<T>> value;
  std::exception_ptr error;
  try {
    if constexpr (std::is_void_v<T>) {
      co_await std::move(work);
      value.emplace();
    } else {
      value.emplace(co_await std::move(work));
    }
  } catch (...) {
    error = std::current_exception();
  }
  state->finish(std::move(value), std::move(error));
}

inline asio::awaitable<void> runDroppingFailure(asio::awaitable<void> work) {
  try {
    co_await std::move(work);
  } catch (...) {
    // A detached task has nobody to report to.
  }
}

} // namespace detail

// The handle of an unstructured task (see spawn). Copies share the task; dropping every handle
// neither cancels nor stops it. Thread-safe.
template <class T>
class Task {
public:
  // Sets the task's cancelled flag; the task's code sees it through isCancelled(). Harmless on a
  // finished task and when repeated.
  void cancel() const { state_->flag->cancel(); }
  bool isCancelled() const { return state_->flag->isCancelled(); }

  // Waits, from any executor, until the task has finished; returns its value or rethrows its
  // failure. May be awaited any number of times. The caller's cancellation does not end the wait.
  asio::awaitable<T> value() const {
    auto state = state_;
    co_await state->finished();
    if constexpr (std::is_void_v<T>) {
      state->result();
    } else {
      co_return state->result();
    }
  }

private:
  template <class U, class Executor>
  friend Task<U> spawn(const Executor& executor, asio::awaitable<U> work);

  explicit Task(std::shared_ptr<detail::TaskState<T>> state) : state_(std::move(state)) {}

  std::shared_ptr<detail::TaskState<T>> state_;
};

// Starts `work` on `executor` as a new task with its own cancelled flag and returns its handle.
// The work begins after this returns; it runs on `executor` throughout, resuming there after
// every suspension.
template <class T, class Executor>
Task<T> spawn(const Executor& executor, asio::awaitable<T> work) {
  auto state = std::make_shared<detail::TaskState<T>>();
  asio::co_spawn(TaskExecutor<Executor>(executor, TaskHook{state->flag}),
                 detail::runAndStore(std::move(work), state), asio::detached);
  return Task<T>(std::move(state));
}

// Starts `work` on `executor` as a new task that nobody awaits or cancels; its failure is dropped.
template <class Executor>
void spawnDetached(const Executor& executor, asio::awaitable<void> work) {
  asio::co_spawn(TaskExecutor<Executor>(executor, TaskHook{std::make_shared<CancellationFlag>()}),
                 detail::runDroppingFailure(std::move(work)), asio::detached);
}

// Runs `work` on `executor` as part of the calling task (it sees the same cancelled flag), and
// resumes the caller on the caller's own executor with the value or the failure. Called from
// outside any task, `work` runs with a flag that is never set.
template <class T, class Executor>
asio::awaitable<T> runOn(const Executor& executor, asio::awaitable<T> work) {
  auto flag = detail::currentCancellationFlag();
  auto state = std::make_shared<detail::TaskState<T>>();
  // Not co_spawn with use_awaitable: GCC 12 destroys the arguments of that form twice.
  asio::co_spawn(TaskExecutor<Executor>(executor, TaskHook{flag ? flag : state->flag}),
                 detail::runAndStore(std::move(work), state), asio::detached);
  co_await state->finished();
  if constexpr (std::is_void_v<T>) {
    state->result();
  } else {
    co_return state->result();
  }
}

} // namespace frameloom::platform
