#pragma once

#include <stdexcept>

namespace frameloom {

// The base of every error the cache raises (LottieCacheError, HttpStatusError, TransferError), so
// that one catch takes them all.
class CacheError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace frameloom
