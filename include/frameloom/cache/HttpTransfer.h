#pragma once

#include <frameloom/cache/CacheError.h>

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <frameloom/platform/Export.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace frameloom {

// A transfer that did not complete: no connection, a time-out, a refused scheme, too many
// redirects, a malformed answer, a body over the size limit, ... `code()` is libcurl's result
// code; the description is libcurl's text for it followed by its detail for this transfer.
class FRAMELOOM_EXPORT TransferError : public CacheError {
public:
  TransferError(CURLcode code, const std::string& description);

  CURLcode code() const noexcept { return code_; }

private:
  CURLcode code_;
};

// Bounds of one transfer, so that a dead or hostile server cannot hold a load or memory forever.
struct FRAMELOOM_EXPORT TransferLimits {
  // Time allowed to establish the connection (TLS included).
  std::chrono::milliseconds connectTimeout{std::chrono::seconds(60)};
  // A transfer that receives nothing for this long, headers or body, is abandoned.
  std::chrono::milliseconds stallTimeout{std::chrono::seconds(60)};
  // A larger body ends the transfer with an error ("Maximum file size exceeded: the body exceeds
  // N bytes"), whether its length was announced or not: a hostile server cannot make a load hold
  // more memory than the disk cache's whole budget (LottieCache::maxDiskSize).
  std::int64_t maxBodySize = 209'715'200;
};

struct FRAMELOOM_EXPORT HttpResponse {
  long statusCode = 0; // of the last response after redirects; 0 when it was not HTTP
  std::vector<std::uint8_t> body;
};

// One HTTP GET through libcurl: http and https only (redirects included, at most 10 followed),
// TLS peers verified. Owns its curl handle. `get` blocks the calling thread until the transfer
// ends and throws TransferError when it fails; any status is returned, not judged.
class FRAMELOOM_EXPORT HttpTransfer {
public:
  explicit HttpTransfer(const TransferLimits& limits);

  // Initialises libcurl once per process (later calls do nothing); the constructor calls it too.
  // Call it first from a thread that lives as long as the process, such as the main thread: the
  // TLS library keeps state for the initialising thread that a pool thread would leak at exit.
  static void initialiseLibrary();

  HttpResponse get(const std::string& url);

private:
  struct HandleCleanup {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };

  static std::size_t receive(char* data, std::size_t size, std::size_t count, void* context);
  static int progress(void* context, curl_off_t, curl_off_t received, curl_off_t, curl_off_t);

  TransferLimits limits_;
  std::unique_ptr<CURL, HandleCleanup> handle_;
  std::vector<std::uint8_t> body_;
  bool bodyTooLarge_ = false;
  curl_off_t lastReceived_ = 0;
  std::chrono::steady_clock::time_point lastProgress_;
  bool stalled_ = false;
};

} // namespace frameloom
