#pragma once

#include <frameloom/cache/CacheError.h>
#include <frameloom/platform/Export.h>

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace frameloom {

// A transfer that did not complete: no connection, a time-out, a trickle, a refused scheme, too
// many redirects, a malformed answer, a body over the size limit, a cancelled load, ... `code()`
// is libcurl's result code; the description is libcurl's text for it followed by its detail for
// this transfer.
class FRAMELOOM_EXPORT TransferError : public CacheError {
public:
  TransferError(CURLcode code, const std::string& description)
      : CacheError(description), code_(code) {}

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
  // A transfer that receives fewer than `minimumRate` bytes per second on average over any
  // `rateWindow` since it started (headers and body) is abandoned: a server sending a byte now and
  // then never trips the stall timer, yet would hold the load forever.
  std::int64_t minimumRate = 1024;
  std::chrono::milliseconds rateWindow{std::chrono::seconds(30)};
  // A larger body ends the transfer with an error ("Maximum file size exceeded: the body exceeds
  // N bytes"), whether its length was announced or not: a hostile server cannot make a load hold
  // more memory than the disk cache's whole budget (LottieCache::maxDiskSize).
  std::int64_t maxBodySize = 209'715'200;
};

struct FRAMELOOM_EXPORT HttpResponse {
  long statusCode = 0; // of the last response after redirects; 0 when it was not HTTP
  std::vector<std::uint8_t> body;
};

} // namespace frameloom
