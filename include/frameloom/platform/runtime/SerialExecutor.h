#pragma once

#include <frameloom/platform/runtime/SharedExecutor.h>
#include <frameloom/platform/runtime/Task.h>

#include <asio/awaitable.hpp>
#include <asio/strand.hpp>

#include <frameloom/platform/Export.h>
#include <functional>
#include <type_traits>
#include <utility>

namespace frameloom::platform {

// The executor of an actor: a strand over the shared executor. Everything submitted to it runs
// one at a time, in submission order, on one of the pool's threads. Copies share the strand.
// Callers elsewhere hop on with run() and are resumed on their own executor afterwards; the work
// belongs to the caller's task, so its isCancelled() reflects a cancel of that task. run()
// rethrows whatever the work throws.
class FRAMELOOM_EXPORT SerialExecutor {
public:
  using executor_type = asio::strand<SharedExecutor>;

  SerialExecutor() : strand_(asio::make_strand(sharedExecutor())) {}

  executor_type executor() const { return strand_; }

  // Whether the calling thread is running work of this executor.
  bool isCurrent() const { return strand_.running_in_this_thread(); }

  template <class T>
  asio::awaitable<T> run(asio::awaitable<T> work) const {
    return runOn(strand_, std::move(work));
  }

  // Runs the synchronous `function` on this executor.
  template <class Function>
  requires std::is_invocable_v<Function&> asio::awaitable<std::invoke_result_t<Function&>>
  run(Function function)
  const { return run(call(std::move(function))); }

private:
  template <class Function>
  static asio::awaitable<std::invoke_result_t<Function&>> call(Function function) {
    co_return std::invoke(function);
  }

  executor_type strand_;
};

} // namespace frameloom::platform
