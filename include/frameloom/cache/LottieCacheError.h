#pragma once

#include <frameloom/cache/CacheError.h>

#include <exception>
#include <memory>
#include <string>

namespace frameloom {

// The underlying error of a LottieCacheError, shared by the errors that carry it. Its dynamic type
// tells the kinds apart (LottieCacheError, HttpStatusError, TransferError, std::system_error).
using ErrorCause = std::shared_ptr<const std::exception>;

// The error LottieCache throws. Each case but `invalidData` carries the error that caused it
// (possibly another LottieCacheError); the description is the case's prefix followed by the
// cause's own description, so nested errors read from the outside in.
class LottieCacheError : public CacheError {
public:
  enum class Code { networkError, diskWriteError, diskReadError, invalidData };

  static LottieCacheError networkError(ErrorCause cause);
  static LottieCacheError diskWriteError(ErrorCause cause);
  static LottieCacheError diskReadError(ErrorCause cause);
  static LottieCacheError invalidData();

  Code code() const noexcept { return code_; }
  // The underlying error; null for `invalidData`.
  const ErrorCause& cause() const noexcept { return cause_; }
  std::string errorDescription() const { return what(); }

private:
  LottieCacheError(Code code, ErrorCause cause);

  Code code_;
  ErrorCause cause_;
};

// An HTTP answer that the cache does not accept: every status but 200, in the error domain
// "HTTP" with the status as its code (0 when the answer was not an HTTP response).
class HttpStatusError : public CacheError {
public:
  static constexpr const char* domain = "HTTP";

  explicit HttpStatusError(long statusCode);

  long code() const noexcept { return code_; }

private:
  long code_;
};

} // namespace frameloom
