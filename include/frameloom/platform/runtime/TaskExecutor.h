#pragma once

#include <frameloom/platform/runtime/Cancellation.h>

#include <asio/execution.hpp>
#include <asio/prefer.hpp>
#include <asio/query.hpp>
#include <asio/require.hpp>

#include <memory>
#include <type_traits>
#include <utility>

namespace frameloom::platform {

// An executor that runs work on `Inner` as part of one task: while a function submitted through
// it runs, that task's cancellation flag is the current one on the running thread (see
// isCancelled()). A coroutine started on it resumes through it after every suspension, so the
// flag is in place wherever its code runs. Properties are those of `Inner`.
template <class Inner>
class TaskExecutor {
public:
  TaskExecutor(Inner inner, std::shared_ptr<CancellationFlag> flag) noexcept
      : inner_(std::move(inner)), flag_(std::move(flag)) {}

  const Inner& inner() const noexcept { return inner_; }
  const std::shared_ptr<CancellationFlag>& flag() const noexcept { return flag_; }

  template <class Property>
  requires asio::can_query<const Inner&, Property>::value decltype(auto)
  query(const Property& property) const {
    return asio::query(inner_, property);
  }

  template <class Property>
  requires asio::can_require<const Inner&, Property>::value auto
  require(const Property& property) const {
    using Required = std::decay_t<decltype(asio::require(inner_, property))>;
    return TaskExecutor<Required>(asio::require(inner_, property), flag_);
  }

  template <class Property>
  requires asio::can_prefer<const Inner&, Property>::value auto
  prefer(const Property& property) const {
    using Preferred = std::decay_t<decltype(asio::prefer(inner_, property))>;
    return TaskExecutor<Preferred>(asio::prefer(inner_, property), flag_);
  }

  template <class Function>
  void execute(Function&& function) const {
    asio::execution::execute(inner_,
                             [flag = flag_, function = std::forward<Function>(function)]() mutable {
                               detail::CurrentTaskScope scope(&flag);
                               std::move(function)();
                             });
  }

  friend bool operator==(const TaskExecutor& a, const TaskExecutor& b) noexcept {
    return a.inner_ == b.inner_ && a.flag_ == b.flag_;
  }
  friend bool operator!=(const TaskExecutor& a, const TaskExecutor& b) noexcept {
    return !(a == b);
  }

private:
  Inner inner_;
  std::shared_ptr<CancellationFlag> flag_;
};

} // namespace frameloom::platform
