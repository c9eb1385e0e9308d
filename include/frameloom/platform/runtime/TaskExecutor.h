#pragma once

#include <frameloom/platform/runtime/Cancellation.h>
#include <frameloom/platform/runtime/HookedExecutor.h>

#include <asio/execution.hpp>

#include <memory>
#include <utility>

namespace frameloom::platform {

// Runs each function submitted through it as part of one task: while the function runs, that
// task's cancellation flag is the current one on the running thread (see isCancelled()).
struct TaskHook {
  std::shared_ptr<CancellationFlag> flag;

  template <class Inner, class Function>
  void execute(const Inner& inner, Function&& function) const {
    asio::execution::execute(inner,
                             [flag = flag, function = std::forward<Function>(function)]() mutable {
                               detail::CurrentTaskScope scope(&flag);
                               std::move(function)();
                             });
  }

  friend bool operator==(const TaskHook&, const TaskHook&) = default;
};

// An executor that runs work on `Inner` as part of one task. A coroutine started on it resumes
// through it after every suspension, so the task's flag is in place wherever its code runs.
template <class Inner>
using TaskExecutor = HookedExecutor<Inner, TaskHook>;

} // namespace frameloom::platform
