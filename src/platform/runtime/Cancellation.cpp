#include <frameloom/platform/runtime/Cancellation.h>

namespace frameloom::platform {
namespace {

// Points at the flag held by the handler that is running on this thread.
thread_local const std::shared_ptr<CancellationFlag>* currentFlag = nullptr;

} // namespace

bool isCancelled() {
  return currentFlag != nullptr && *currentFlag && (*currentFlag)->isCancelled();
}

namespace detail {

std::shared_ptr<CancellationFlag> currentCancellationFlag() {
  return currentFlag != nullptr ? *currentFlag : nullptr;
}

CurrentTaskScope::CurrentTaskScope(const std::shared_ptr<CancellationFlag>* flag) noexcept
    : previous_(currentFlag) {
  currentFlag = flag;
}

CurrentTaskScope::~CurrentTaskScope() {
  currentFlag = previous_;
}

} // namespace detail
} // namespace frameloom::platform
