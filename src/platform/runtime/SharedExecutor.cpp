#include <frameloom/platform/runtime/SharedExecutor.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace frameloom::platform {
namespace {

asio::thread_pool& pool() {
  static asio::thread_pool* const instance = [] {
    auto* created =
        new asio::thread_pool(std::max<std::size_t>(2, std::thread::hardware_concurrency()));
    std::atexit(shutDownSharedExecutor);
    return created;
  }();
  return *instance;
}

} // namespace

SharedExecutor sharedExecutor() {
  return pool().get_executor();
}

void shutDownSharedExecutor() {
  asio::thread_pool& running = pool();
  running.stop();
  // A worker cannot join itself; the others then finish on their own.
  if (!running.get_executor().running_in_this_thread()) {
    running.join();
  }
}

} // namespace frameloom::platform
