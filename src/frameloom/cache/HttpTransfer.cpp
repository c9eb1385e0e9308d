#include "frameloom/cache/HttpTransfer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>

namespace frameloom {
namespace {

constexpr long maxRedirects = 10;
constexpr long receiveBufferSize = 256 * 1024;

// Asks for huge pages over a large receive buffer: filling it then takes far fewer page faults.
void adviseHugePages(void* buffer, std::size_t size) {
  constexpr std::uintptr_t hugePage = 2 * 1024 * 1024;
  const auto begin = (reinterpret_cast<std::uintptr_t>(buffer) + hugePage - 1) & ~(hugePage - 1);
  const auto end = (reinterpret_cast<std::uintptr_t>(buffer) + size) & ~(hugePage - 1);
  if (end > begin) {
    ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
  }
}

template <typename Value>
void setOption(CURL* handle, CURLoption option, Value value) {
  if (CURLcode result = curl_easy_setopt(handle, option, value); result != CURLE_OK) {
    throw TransferError(result, curl_easy_strerror(result));
  }
}

} // namespace

TransferError::TransferError(CURLcode code, const std::string& description)
    : CacheError(description), code_(code) {}

void HttpTransfer::initialiseLibrary() {
  // curl_global_init must run once before handles are made; a function-local static makes that
  // safe when the first transfers start on several threads at once.
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (result != CURLE_OK) {
    throw TransferError(result, curl_easy_strerror(result));
  }
}

HttpTransfer::HttpTransfer(const TransferLimits& limits) : limits_(limits) {
  initialiseLibrary();
  handle_.reset(curl_easy_init());
  if (!handle_) {
    throw TransferError(CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
  }
}

HttpResponse HttpTransfer::get(const std::string& url) {
  CURL* handle = handle_.get();
  char detail[CURL_ERROR_SIZE] = {};
  body_.clear();
  bodyTooLarge_ = false;
  lastReceived_ = 0;
  lastProgress_ = std::chrono::steady_clock::now();
  stalled_ = false;

  setOption(handle, CURLOPT_URL, url.c_str());
  setOption(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  setOption(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  setOption(handle, CURLOPT_FOLLOWLOCATION, 1L);
  setOption(handle, CURLOPT_MAXREDIRS, maxRedirects);
  setOption(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  setOption(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  // Signals cannot be used for time-outs in a multi-threaded process.
  setOption(handle, CURLOPT_NOSIGNAL, 1L);
  setOption(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits_.connectTimeout.count()));
  setOption(handle, CURLOPT_NOPROGRESS, 0L);
  setOption(handle, CURLOPT_XFERINFOFUNCTION, &HttpTransfer::progress);
  setOption(handle, CURLOPT_XFERINFODATA, this);
  setOption(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits_.maxBodySize));
  setOption(handle, CURLOPT_ACCEPT_ENCODING, "");
  setOption(handle, CURLOPT_BUFFERSIZE, receiveBufferSize);
  setOption(handle, CURLOPT_ERRORBUFFER, detail);
  setOption(handle, CURLOPT_WRITEFUNCTION, &HttpTransfer::receive);
  setOption(handle, CURLOPT_WRITEDATA, this);

  CURLcode result = curl_easy_perform(handle);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
  if (stalled_) {
    throw TransferError(CURLE_OPERATION_TIMEDOUT,
                        std::string(curl_easy_strerror(CURLE_OPERATION_TIMEDOUT)) +
                            ": nothing received for " +
                            std::to_string(limits_.stallTimeout.count()) + " ms");
  }
  if (result != CURLE_OK) {
    std::string description = curl_easy_strerror(result);
    // libcurl refuses an announced length over the limit itself, with its own text as detail.
    if (bodyTooLarge_ || result == CURLE_FILESIZE_EXCEEDED) {
      description += ": the body exceeds " + std::to_string(limits_.maxBodySize) + " bytes";
    } else if (detail[0] != '\0' && description != detail) {
      description += std::string(": ") + detail;
    }
    throw TransferError(result, description);
  }

  HttpResponse response;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &response.statusCode);
  response.body = std::move(body_);
  return response;
}

std::size_t HttpTransfer::receive(char* data, std::size_t size, std::size_t count, void* context) {
  auto& transfer = *static_cast<HttpTransfer*>(context);
  const std::size_t length = size * count;
  const auto limit = static_cast<std::size_t>(transfer.limits_.maxBodySize);
  if (length > limit - std::min(limit, transfer.body_.size())) {
    transfer.bodyTooLarge_ = true;
    return 0;
  }
  if (transfer.body_.empty()) {
    // Reserve the announced length up front so a large body is not copied while it grows.
    curl_off_t announced = -1;
    curl_easy_getinfo(transfer.handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced > 0) {
      transfer.body_.reserve(std::min(static_cast<std::size_t>(announced), limit));
      adviseHugePages(transfer.body_.data(), transfer.body_.capacity());
    }
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
  transfer.body_.insert(transfer.body_.end(), bytes, bytes + length);
  return length;
}

// Called by libcurl at least once a second while the transfer runs; abandons a transfer that
// has received nothing for the stall time-out (curl's own low-speed check averages over several
// seconds and lets a server that sent a little and then stopped hold the transfer much longer).
int HttpTransfer::progress(void* context, curl_off_t, curl_off_t received, curl_off_t, curl_off_t) {
  auto& transfer = *static_cast<HttpTransfer*>(context);
  const auto now = std::chrono::steady_clock::now();
  if (received != transfer.lastReceived_) {
    transfer.lastReceived_ = received;
    transfer.lastProgress_ = now;
    return 0;
  }
  if (now - transfer.lastProgress_ >= transfer.limits_.stallTimeout) {
    transfer.stalled_ = true;
    return 1;
  }
  return 0;
}

} // namespace frameloom
