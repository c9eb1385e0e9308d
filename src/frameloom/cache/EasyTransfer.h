#pragma once

#include <frameloom/cache/HttpTransfer.h>
#include <frameloom/platform/core/Progress.h>

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace frameloom {

// What a transfer ends with: the answer or the reason it failed.
using TransferOutcome = std::variant<HttpResponse, TransferError>;

// One GET as the network thread runs it: owns the curl handle, the body received so far and the
// counters its limits are judged on. Not thread-safe: only the network thread touches it. Its
// constructor throws TransferError when the handle cannot be made or configured.
class EasyTransfer {
public:
  using Clock = std::chrono::steady_clock;

  // `progress`, when given, counts the body's bytes.
  EasyTransfer(const std::string& url, const TransferLimits& limits,
               std::shared_ptr<platform::Progress> progress = nullptr);
  EasyTransfer(const EasyTransfer&) = delete;
  EasyTransfer& operator=(const EasyTransfer&) = delete;

  CURL* handle() const { return handle_.get(); }

  // Why the transfer must end now (stalled, too slow on average), or nullopt to go on. Called
  // regularly while the transfer runs.
  std::optional<TransferError> check(Clock::time_point now);

  // The outcome once libcurl reports the transfer done with `result`.
  TransferOutcome finish(CURLcode result);

private:
  struct HandleCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };

  static std::size_t receive(char* data, std::size_t size, std::size_t count, void* context);
  static std::size_t receiveHeader(char* data, std::size_t size, std::size_t count, void* context);
  void count(std::size_t length);

  TransferLimits limits_;
  std::shared_ptr<platform::Progress> progress_;
  std::unique_ptr<CURL, HandleCleanup> handle_;
  char detail_[CURL_ERROR_SIZE] = {};
  HttpResponse response_;
  bool bodyTooLarge_ = false;
  std::int64_t received_ = 0; // header and body bytes
  Clock::time_point lastProgress_;
  Clock::time_point windowStart_;
  std::int64_t windowStartReceived_ = 0;
};

} // namespace frameloom
