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

} // namespace

LottieCacheError::LottieCacheError(Code code, ErrorCause cause)
    : code_(code), cause_(std::move(cause)),
      description_(code == Code::invalidData
                       ? "Invalid or corrupted data received"
                       : prefixOf(code) + std::string(cause_ ? cause_->what() : "")) {}

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
    : code_(statusCode), description_("The operation couldn't be completed. (HTTP error " +
                                      std::to_string(statusCode) + ".)") {}

} // namespace frameloom
