#pragma once

#include <asio/thread_pool.hpp>
#include <frameloom/platform/Export.h>

namespace frameloom::platform {

using SharedExecutor = asio::thread_pool::executor_type;

// The process-wide pool of worker threads (at least two) for the cache's work, downloads,
// loading and fire-and-forget disposal. Created on first use and never destroyed; at process
// exit its threads finish the handler they are running and are joined. Work submitted after
// that, or still queued then, is accepted and never run.
FRAMELOOM_EXPORT SharedExecutor sharedExecutor();

// Stops the pool and waits for the handlers its threads are running. A host calls it before
// leaving main(), so that no work is still running while the process destroys its static
// objects (those of the renderer library among them); the exit handler then finds nothing to
// wait for. Called from one of the pool's own threads, it stops the pool without waiting.
FRAMELOOM_EXPORT void shutDownSharedExecutor();

} // namespace frameloom::platform
