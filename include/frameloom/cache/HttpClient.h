#pragma once

#include <frameloom/cache/HttpTransfer.h>
#include <frameloom/platform/core/Progress.h>

#include <asio/awaitable.hpp>

#include <memory>
#include <string>

namespace frameloom {

// HTTP GETs through libcurl that wait without holding a thread: the client owns one network
// thread running an event loop that watches every transfer's sockets and libcurl's timers, so any
// number of transfers in flight costs that one thread and no worker of the shared executor.
// http and https only (redirects included, at most 10 followed), TLS peers verified.
//
// Thread-safe: `get` may be awaited from any executor, by any number of tasks at once. The
// destructor ends the transfers still in flight (their awaiters get a TransferError) and joins
// the network thread; it must not run on that thread.
class FRAMELOOM_EXPORT HttpClient {
public:
  HttpClient();
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  // Initialises libcurl once per process (later calls do nothing); the constructor calls it too.
  // Call it first from a thread that lives as long as the process, such as the main thread: the
  // TLS library keeps state for the initialising thread that a pool thread would leak at exit.
  static void initialiseLibrary();

  // The answer to a GET of `url`, resumed on the caller's executor. Any status is returned, not
  // judged. Throws TransferError when the transfer fails, breaks `limits`, or when the calling
  // task is cancelled while it runs (the transfer then ends at once). `progress`, when given,
  // counts the body's bytes as they arrive (on the network thread), out of the announced length
  // when the server gives one.
  asio::awaitable<HttpResponse> get(std::string url, TransferLimits limits,
                                    std::shared_ptr<platform::Progress> progress = nullptr);

private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

} // namespace frameloom
