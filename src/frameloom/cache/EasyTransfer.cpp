#include "frameloom/cache/EasyTransfer.h"

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

TransferError timedOut(const std::string& detail) {
  return TransferError(CURLE_OPERATION_TIMEDOUT,
                       std::string(curl_easy_strerror(CURLE_OPERATION_TIMEDOUT)) + ": " + detail);
}

} // namespace

EasyTransfer::EasyTransfer(const std::string& url, const TransferLimits& limits,
                           std::shared_ptr<platform::Progress> progress)
    : limits_(limits), progress_(std::move(progress)), handle_(curl_easy_init()),
      lastProgress_(Clock::now()), windowStart_(lastProgress_) {
  CURL* handle = handle_.get();
  if (!handle) {
    throw TransferError(CURLE_FAILED_INIT, curl_easy_strerror(CURLE_FAILED_INIT));
  }
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
  setOption(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits_.maxBodySize));
  setOption(handle, CURLOPT_ACCEPT_ENCODING, "");
  setOption(handle, CURLOPT_BUFFERSIZE, receiveBufferSize);
  setOption(handle, CURLOPT_ERRORBUFFER, detail_);
  setOption(handle, CURLOPT_WRITEFUNCTION, &EasyTransfer::receive);
  setOption(handle, CURLOPT_WRITEDATA, this);
  setOption(handle, CURLOPT_HEADERFUNCTION, &EasyTransfer::receiveHeader);
  setOption(handle, CURLOPT_HEADERDATA, this);
  setOption(handle, CURLOPT_PRIVATE, this);
}

std::optional<TransferError> EasyTransfer::check(Clock::time_point now) {
  if (now - lastProgress_ >= limits_.stallTimeout) {
    return timedOut("nothing received for " + std::to_string(limits_.stallTimeout.count()) + " ms");
  }
  if (now - windowStart_ >= limits_.rateWindow) {
    const auto seconds = std::chrono::duration<double>(now - windowStart_).count();
    if (static_cast<double>(received_ - windowStartReceived_) <
        static_cast<double>(limits_.minimumRate) * seconds) {
      return timedOut("fewer than " + std::to_string(limits_.minimumRate) +
                      " bytes per second received over " +
                      std::to_string(limits_.rateWindow.count()) + " ms");
    }
    windowStart_ = now;
    windowStartReceived_ = received_;
  }
  return std::nullopt;
}

TransferOutcome EasyTransfer::finish(CURLcode result) {
  if (result != CURLE_OK) {
    std::string description = curl_easy_strerror(result);
    // libcurl refuses an announced length over the limit itself, with its own text as detail.
    if (bodyTooLarge_ || result == CURLE_FILESIZE_EXCEEDED) {
      description += ": the body exceeds " + std::to_string(limits_.maxBodySize) + " bytes";
    } else if (detail_[0] != '\0' && description != detail_) {
      description += std::string(": ") + detail_;
    }
    return TransferError(result, description);
  }
  curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &response_.statusCode);
  return std::move(response_);
}

void EasyTransfer::count(std::size_t length) {
  if (length > 0) {
    received_ += static_cast<std::int64_t>(length);
    lastProgress_ = Clock::now();
  }
}

std::size_t EasyTransfer::receive(char* data, std::size_t size, std::size_t count, void* context) {
  auto& transfer = *static_cast<EasyTransfer*>(context);
  std::vector<std::uint8_t>& body = transfer.response_.body;
  const std::size_t length = size * count;
  const auto limit = static_cast<std::size_t>(transfer.limits_.maxBodySize);
  if (length > limit - std::min(limit, body.size())) {
    transfer.bodyTooLarge_ = true;
    return 0;
  }
  if (body.empty()) {
    // Reserve the announced length up front so a large body is not copied while it grows.
    curl_off_t announced = -1;
    curl_easy_getinfo(transfer.handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced > 0) {
      body.reserve(std::min(static_cast<std::size_t>(announced), limit));
      adviseHugePages(body.data(), body.capacity());
      if (transfer.progress_) {
        transfer.progress_->setTotalUnitCount(announced);
      }
    }
  }
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
  body.insert(body.end(), bytes, bytes + length);
  if (transfer.progress_) {
    transfer.progress_->addCompletedUnitCount(static_cast<std::int64_t>(length));
  }
  transfer.count(length);
  return length;
}

std::size_t EasyTransfer::receiveHeader(char*, std::size_t size, std::size_t count, void* context) {
  static_cast<EasyTransfer*>(context)->count(size * count);
  return size * count;
}

} // namespace frameloom
