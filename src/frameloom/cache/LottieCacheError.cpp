#include <frameloom/cache/LottieCacheError.h>

namespace frameloom {
namespace {

const char* prefixOf(LottieCacheError::Code code) {
  switch (code) {
  case LottieCacheError::Code::networkError:
    return "Network error: ";
  case LottieCacheError::Code::diskWriteError:
    return "Failed to write to disk: ";
  case LottieCacheError::Code::diskReadError:
    return "Failed to read from disk: ";
  case LottieCacheError::Code::invalidData:
    break;
  }
  return "";
}

std::string describe(LottieCacheError::Code code, const ErrorCause& cause) {
  if (code == LottieCacheError::Code::invalidData) {
    return "Invalid or corrupted data received";
  }
  return prefixOf(code) + std::string(cause ? cause->what() : "");
}

} // namespace

LottieCacheError::LottieCacheError(Code code, ErrorCause cause)
    : CacheError(describe(code, cause)), code_(code), cause_(std::move(cause)) {}

LottieCacheError LottieCacheError::networkError(ErrorCause cause) {
  return {Code::networkError, std::move(cause)};
}

LottieCacheError LottieCacheError::diskWriteError(ErrorCause cause) {
  return {Code::diskWriteError, std::move(cause)};
}

LottieCacheError LottieCacheError::diskReadError(ErrorCause cause) {
  return {Code::diskReadError, std::move(cause)};
}

LottieCacheError LottieCacheError::invalidData() {
  return {Code::invalidData, nullptr};
}

HttpStatusError::HttpStatusError(long statusCode)
    : CacheError("The operation couldn't be completed. (HTTP error " + std::to_string(statusCode) +
                 ".)"),
      code_(statusCode) {}

} // namespace frameloom
