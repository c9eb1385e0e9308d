#include <frameloom/cache/HttpClient.h>

#include "frameloom/cache/EasyTransfer.h"
#include <frameloom/platform/runtime/Task.h>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <poll.h>

#include <map>
#include <thread>

namespace frameloom {
namespace {

// How often a running transfer's limits and its task's cancelled flag are looked at: a cancelled
// load ends its transfer within this time.
constexpr std::chrono::milliseconds checkInterval{50};

using Completion = platform::detail::TaskState<TransferOutcome>;

TransferError aborted(const char* why) {
  return TransferError(CURLE_ABORTED_BY_CALLBACK,
                       std::string(curl_easy_strerror(CURLE_ABORTED_BY_CALLBACK)) + ": " + why);
}

} // namespace

// The network thread's side: a curl multi handle driven by an io_context. Every member but the
// constructor, the destructor and start() is touched only on the network thread.
class HttpClient::Loop {
public:
  Loop() : multi_(curl_multi_init()) {
    if (!multi_) {
      throw TransferError(CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
    }
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &Loop::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &Loop::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    thread_ = std::thread([this] { context_.run(); });
  }

  ~Loop() {
    asio::post(context_, [this] { closeAll(); });
    work_.reset();
    thread_.join();
    curl_multi_cleanup(multi_);
  }

  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // Callable from any thread while the loop lives.
  void start(std::string url, TransferLimits limits, std::shared_ptr<platform::Progress> progress,
             std::shared_ptr<Completion> completion,
             std::shared_ptr<platform::CancellationFlag> flag) {
    asio::post(context_, [this, url = std::move(url), limits, progress = std::move(progress),
                          completion = std::move(completion), flag = std::move(flag)]() mutable {
      begin(url, limits, std::move(progress), std::move(completion), std::move(flag));
    });
  }

private:
  struct Transfer {
    std::unique_ptr<EasyTransfer> easy;
    std::shared_ptr<Completion> completion;
    std::shared_ptr<platform::CancellationFlag> flag;
    asio::steady_timer ticker;
  };

  // A socket libcurl asked to watch. The descriptor only borrows it: libcurl opens and closes it.
  struct Watch {
    explicit Watch(asio::io_context& context, curl_socket_t socket) : descriptor(context, socket) {}
    asio::posix::stream_descriptor descriptor;
    int wanted = 0; // CURL_POLL_IN, _OUT or _INOUT
    bool waiting[2] = {false, false};
    bool active = true;
  };

  void begin(const std::string& url, const TransferLimits& limits,
             std::shared_ptr<platform::Progress> progress, std::shared_ptr<Completion> completion,
             std::shared_ptr<platform::CancellationFlag> flag) {
    if (closing_) {
      completion->finish(TransferOutcome(aborted("the client was closed")), nullptr);
      return;
    }
    std::unique_ptr<EasyTransfer> easy;
    try {
      easy = std::make_unique<EasyTransfer>(url, limits, std::move(progress));
    } catch (const TransferError& error) {
      completion->finish(TransferOutcome(error), nullptr);
      return;
    }
    CURL* handle = easy->handle();
    if (CURLMcode result = curl_multi_add_handle(multi_, handle); result != CURLM_OK) {
      completion->finish(
          TransferOutcome(TransferError(CURLE_FAILED_INIT, curl_multi_strerror(result))), nullptr);
      return;
    }
    auto transfer = std::make_unique<Transfer>(Transfer{
        std::move(easy), std::move(completion), std::move(flag), asio::steady_timer(context_)});
    Transfer& added = *transfer;
    transfers_.emplace(handle, std::move(transfer));
    tick(added, handle);
  }

  void tick(Transfer& transfer, CURL* handle) {
    transfer.ticker.expires_after(checkInterval);
    transfer.ticker.async_wait([this, handle](const asio::error_code& error) {
      auto found = transfers_.find(handle);
      if (error || found == transfers_.end()) {
        return;
      }
      Transfer& transfer = *found->second;
      if (transfer.flag && transfer.flag->isCancelled()) {
        end(handle, aborted("the load was cancelled"));
      } else if (auto failure = transfer.easy->check(EasyTransfer::Clock::now())) {
        end(handle, std::move(*failure));
      } else {
        tick(transfer, handle);
      }
    });
  }

  // Removes the transfer of `handle` and hands `outcome` to its awaiter.
  void end(CURL* handle, TransferOutcome outcome) {
    auto found = transfers_.find(handle);
    if (found == transfers_.end()) {
      return;
    }
    std::unique_ptr<Transfer> transfer = std::move(found->second);
    transfers_.erase(found);
    curl_multi_remove_handle(multi_, handle);
    transfer->ticker.cancel();
    transfer->completion->finish(std::move(outcome), nullptr);
  }

  void collectFinished() {
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg != CURLMSG_DONE) {
        continue;
      }
      CURL* handle = message->easy_handle;
      const CURLcode result = message->data.result;
      if (auto found = transfers_.find(handle); found != transfers_.end()) {
        TransferOutcome outcome = found->second->easy->finish(result);
        end(handle, std::move(outcome));
      }
    }
  }

  void act(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
    collectFinished();
  }

  // `known` is what curl_multi_assign gave the socket: null for a socket new to the loop, even one
  // reusing the number of a closed one.
  static int onSocket(CURL*, curl_socket_t socket, int what, void* context, void* known) {
    auto& loop = *static_cast<Loop*>(context);
    if (what == CURL_POLL_REMOVE) {
      loop.unwatch(socket);
    } else {
      loop.watch(socket, what, known != nullptr);
    }
    return 0;
  }

  static int onTimer(CURLM*, long milliseconds, void* context) {
    auto& loop = *static_cast<Loop*>(context);
    loop.timer_.cancel();
    if (milliseconds >= 0) {
      loop.timer_.expires_after(std::chrono::milliseconds(milliseconds));
      loop.timer_.async_wait([&loop](const asio::error_code& error) {
        if (!error) {
          loop.act(CURL_SOCKET_TIMEOUT, 0);
        }
      });
    }
    return 0;
  }

  void watch(curl_socket_t socket, int what, bool known) {
    if (!known) {
      unwatch(socket);
    }
    auto& watch = watches_[socket];
    if (!watch) {
      watch = std::make_shared<Watch>(context_, socket);
      curl_multi_assign(multi_, socket, watch.get());
    }
    watch->wanted = what;
    arm(watch, 0);
    arm(watch, 1);
  }

  void unwatch(curl_socket_t socket) {
    auto found = watches_.find(socket);
    if (found == watches_.end()) {
      return;
    }
    Watch& watch = *found->second;
    watch.active = false;
    asio::error_code ignored;
    watch.descriptor.cancel(ignored);
    watch.descriptor.release();
    watches_.erase(found);
  }

  // Waits for the socket to become readable (direction 0) or writable (1) when libcurl wants it.
  // The reactor reports changes in readiness only, so a socket that is ready already (libcurl
  // may have left data unread) is acted on at once instead of waited for.
  void arm(const std::shared_ptr<Watch>& watch, int direction) {
    const int wantedBit = direction == 0 ? CURL_POLL_IN : CURL_POLL_OUT;
    if (!watch->active || !(watch->wanted & wantedBit) || watch->waiting[direction]) {
      return;
    }
    watch->waiting[direction] = true;
    auto ready = [this, watch, direction, wantedBit](const asio::error_code& error) {
      watch->waiting[direction] = false;
      if (error || !watch->active || !(watch->wanted & wantedBit)) {
        return;
      }
      act(watch->descriptor.native_handle(), direction == 0 ? CURL_CSELECT_IN : CURL_CSELECT_OUT);
      arm(watch, direction);
    };
    pollfd probe{watch->descriptor.native_handle(),
                 static_cast<short>(direction == 0 ? POLLIN : POLLOUT), 0};
    if (::poll(&probe, 1, 0) > 0) {
      asio::post(context_, [ready] { ready(asio::error_code()); });
    } else {
      watch->descriptor.async_wait(direction == 0 ? asio::posix::stream_descriptor::wait_read
                                                  : asio::posix::stream_descriptor::wait_write,
                                   ready);
    }
  }

  void closeAll() {
    closing_ = true;
    while (!transfers_.empty()) {
      end(transfers_.begin()->first, aborted("the client was closed"));
    }
    while (!watches_.empty()) {
      unwatch(watches_.begin()->first);
    }
    timer_.cancel();
  }

  CURLM* multi_;
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_{context_.get_executor()};
  asio::steady_timer timer_{context_};
  std::map<CURL*, std::unique_ptr<Transfer>> transfers_;
  std::map<curl_socket_t, std::shared_ptr<Watch>> watches_;
  bool closing_ = false;
  std::thread thread_;
};

void HttpClient::initialiseLibrary() {
  // curl_global_init must run once before handles are made; a function-local static makes that
  // safe when the first transfers start on several threads at once.
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) {
    throw TransferError(result, curl_easy_strerror(result));
  }
}

HttpClient::HttpClient() {
  initialiseLibrary();
  loop_ = std::make_unique<Loop>();
}

HttpClient::~HttpClient() = default;

asio::awaitable<HttpResponse> HttpClient::get(std::string url, TransferLimits limits,
                                              std::shared_ptr<platform::Progress> progress) {
  auto completion = std::make_shared<Completion>();
  loop_->start(std::move(url), limits, std::move(progress), completion,
               platform::detail::currentCancellationFlag());
  co_await completion->finished();
  TransferOutcome outcome = completion->result();
  if (auto* error = std::get_if<TransferError>(&outcome)) {
    throw *error;
  }
  co_return std::get<HttpResponse>(std::move(outcome));
}

} // namespace frameloom
