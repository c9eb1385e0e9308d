#pragma once

#include <asio/execution.hpp>
#include <asio/prefer.hpp>
#include <asio/query.hpp>
#include <asio/require.hpp>

#include <type_traits>
#include <utility>

namespace frameloom::platform {

// An executor that submits work to `Inner` through `Hook`, a small value that travels with every
// executor required or preferred from this one: `hook.execute(inner, function)` submits the
// function, doing what the hook adds around it. Properties are those of `Inner`; two executors
// are equal when their inner executors and hooks are.
template <class Inner, class Hook>
class HookedExecutor {
public:
  HookedExecutor(Inner inner, Hook hook) noexcept
      : inner_(std::move(inner)), hook_(std::move(hook)) {}

  const Inner& inner() const noexcept { return inner_; }
  const Hook& hook() const noexcept { return hook_; }

  template <class Property>
  requires asio::can_query<const Inner&, Property>::value decltype(auto)
  query(const Property& property) const {
    return asio::query(inner_, property);
  }

  template <class Property>
  requires asio::can_require<const Inner&, Property>::value auto
  require(const Property& property) const {
    using Required = std::decay_t<decltype(asio::require(inner_, property))>;
    return HookedExecutor<Required, Hook>(asio::require(inner_, property), hook_);
  }

  template <class Property>
  requires asio::can_prefer<const Inner&, Property>::value auto
  prefer(const Property& property) const {
    using Preferred = std::decay_t<decltype(asio::prefer(inner_, property))>;
    return HookedExecutor<Preferred, Hook>(asio::prefer(inner_, property), hook_);
  }

  template <class Function>
  void execute(Function&& function) const {
    hook_.execute(inner_, std::forward<Function>(function));
  }

  friend bool operator==(const HookedExecutor& a, const HookedExecutor& b) noexcept {
    return a.inner_ == b.inner_ && a.hook_ == b.hook_;
  }
  friend bool operator!=(const HookedExecutor& a, const HookedExecutor& b) noexcept {
    return !(a == b);
  }

private:
  Inner inner_;
  Hook hook_;
};

} // namespace frameloom::platform
