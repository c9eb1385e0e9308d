#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace frameloom {

// The 64-bit string hash that names an entry of LottieCache, computed over the UTF-16 code units
// of a text. It folds every unit of short texts and three runs of 32 units (head, middle, tail)
// of longer ones, so a folder written on one platform or run is found again by the next.
std::int64_t stringHash(std::span<const char16_t> units);

// The cache key of a URL: the hash of its absolute string (UTF-8, decoded to UTF-16; invalid
// bytes count as U+FFFD) written as a signed decimal integer. Used as the memory key and as the
// file name in the cache folder.
std::string cacheKey(std::string_view absoluteString);

} // namespace frameloom
