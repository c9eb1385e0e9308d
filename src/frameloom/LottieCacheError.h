#pragma once

#include <exception>
#include <string>

namespace frameloom {

// The error LottieCache throws. Each case but `invalidData` carries the error that caused it
// (shared, possibly another LottieCacheError); the description is the case's prefix followed by
// the cause's own description, so nested errors read from the outside in.
class LottieCacheError : public std::exception {
public:
  enum class Code { networkError, diskWriteError, diskReadError, invalidData };

  static LottieCacheError networkError(std::exception_ptr cause);
  static LottieCacheError diskWriteError(std::exception_ptr cause);
  static LottieCacheError diskReadError(std::exception_ptr cause);
  static LottieCacheError invalidData();

  Code code() const noexcept { return code_; }
  // The underlying error; null for `invalidData`.
  const std::exception_ptr& cause() const noexcept { return cause_; }
  const std::string& errorDescription() const noexcept { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

private:
  LottieCacheError(Code code, std::exception_ptr cause);

  Code code_;
  std::exception_ptr cause_;
  std::string description_;
};

// An HTTP answer that the cache does not accept: every status but 200, in the error domain
// "HTTP" with the status as its code (0 when the answer was not an HTTP response).
class HttpStatusError : public std::exception {
public:
  static constexpr const char* domain = "HTTP";

  explicit HttpStatusError(long statusCode);

  long code() const noexcept { return code_; }
  const char* what() const noexcept override { return description_.c_str(); }

private:
  long code_;
  std::string description_;
};

// The text of an error held in an exception_ptr: its what() for standard exceptions.
std::string describeError(const std::exception_ptr& error);

} // namespace frameloom
