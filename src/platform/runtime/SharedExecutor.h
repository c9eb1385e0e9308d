#pragma once

#include <asio/thread_pool.hpp>

namespace frameloom::platform {

using SharedExecutor = asio::thread_pool::executor_type;

// The process-wide pool of worker threads (at least two) for the cache's work, downloads,
// loading and fire-and-forget disposal. Created on first use and never destroyed; at process
// exit its threads finish the handler they are running and are joined. Work submitted after
// that, or still queued then, is accepted and never run.
SharedExecutor sharedExecutor();

} // namespace frameloom::platform
