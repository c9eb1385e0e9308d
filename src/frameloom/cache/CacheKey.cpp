#include "frameloom/cache/CacheKey.h"

#include <utf8proc.h>

#include <vector>

namespace frameloom {
namespace {

constexpr std::size_t hashEverythingLimit = 96;
constexpr std::size_t runLength = 32;

// All arithmetic is unsigned 64-bit and wraps.
void foldFour(std::uint64_t& result, const char16_t* units) {
  result = result * 67503105u + std::uint64_t{units[0]} * 16974593u +
           std::uint64_t{units[1]} * 66049u + std::uint64_t{units[2]} * 257u + units[3];
}

void foldRun(std::uint64_t& result, const char16_t* begin, const char16_t* end) {
  for (; begin < end; begin += 4) {
    foldFour(result, begin);
  }
}

std::u16string utf16Units(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  auto bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto remaining = static_cast<utf8proc_ssize_t>(text.size());
  while (remaining > 0) {
    utf8proc_int32_t codePoint = 0;
    utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &codePoint);
    if (length <= 0) {
      codePoint = 0xFFFD;
      length = 1;
    }
    if (codePoint >= 0x10000) {
      codePoint -= 0x10000;
      units.push_back(static_cast<char16_t>(0xD800 + (codePoint >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF)));
    } else {
      units.push_back(static_cast<char16_t>(codePoint));
    }
    bytes += length;
    remaining -= length;
  }
  return units;
}

} // namespace

std::int64_t stringHash(std::span<const char16_t> units) {
  const std::size_t count = units.size();
  const char16_t* data = units.data();
  std::uint64_t result = count;
  if (count <= hashEverythingLimit) {
    const std::size_t fours = count & ~std::size_t{3};
    foldRun(result, data, data + fours);
    for (std::size_t i = fours; i < count; ++i) {
      result = result * 257u + data[i];
    }
  } else {
    const char16_t* middle = data + count / 2 - runLength / 2;
    foldRun(result, data, data + runLength);
    foldRun(result, middle, middle + runLength);
    foldRun(result, data + count - runLength, data + count);
  }
  result += result << (count & 31);
  return static_cast<std::int64_t>(result);
}

std::string cacheKey(std::string_view absoluteString) {
  return std::to_string(stringHash(utf16Units(absoluteString)));
}

} // namespace frameloom
