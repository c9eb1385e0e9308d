#include "frameloom/files/ColorKeyScan.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <bit>
#include <cstdint>
#include <cstring>

namespace frameloom {

namespace {

// Records the key starting at `position` if there is one there.
inline void addKey(KeyPositions& keys, std::string_view text, std::size_t position) {
  const char* p = text.data() + position;
  const std::size_t left = text.size() - position;
  if (left >= 3 && p[0] == '"' && p[2] == '"') {
    if (p[1] == 'c') {
      keys[0].push_back(position);
    } else if (p[1] == 'g') {
      keys[3].push_back(position);
    }
  } else if (left >= 4 && p[0] == '"' && p[2] == 'c' && p[3] == '"') {
    if (p[1] == 'f') {
      keys[1].push_back(position);
    } else if (p[1] == 's') {
      keys[2].push_back(position);
    }
  }
}

#if defined(__SSE2__)
// Sixteen places at a time: a place is a candidate when its bytes spell "c", "g", "fc" or "sc"
// with their quotes, so only the keys themselves are looked at one by one.
void findKeysInBlocks(KeyPositions& keys, std::string_view text, std::size_t& i) {
  const char* const data = text.data();
  const auto at = [data](std::size_t position) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + position));
  };
  const auto is = [](__m128i bytes, char c) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(c)); };
  for (; i + 19 <= text.size(); i += 16) {
    const __m128i first = at(i);
    const __m128i quotes = is(first, '"');
    // Most blocks of a document's numbers hold no quote, and so no key.
    if (_mm_movemask_epi8(quotes) == 0) {
      continue;
    }
    const __m128i second = at(i + 1);
    const __m128i third = at(i + 2);
    const __m128i fourth = at(i + 3);
    const __m128i shortKey =
        _mm_and_si128(_mm_or_si128(is(second, 'c'), is(second, 'g')), is(third, '"'));
    const __m128i longKey =
        _mm_and_si128(_mm_and_si128(_mm_or_si128(is(second, 'f'), is(second, 's')), is(third, 'c')),
                      is(fourth, '"'));
    auto candidates = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(quotes, _mm_or_si128(shortKey, longKey))));
    while (candidates != 0) {
      addKey(keys, text, i + static_cast<std::size_t>(std::countr_zero(candidates)));
      candidates &= candidates - 1;
    }
  }
}
#else
inline std::uint64_t load(const char* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// 0x80 in every byte of `word` that is a quote, 0 elsewhere (exact: no borrow between bytes).
inline std::uint64_t quoteBytes(std::uint64_t word) {
  constexpr std::uint64_t low7 = 0x7F7F7F7F7F7F7F7FULL;
  const std::uint64_t x = word ^ 0x2222222222222222ULL;
  return ~(((x & low7) + low7) | x | low7);
}

// Eight places at a time: a key can only start at a quote that has another quote two or three
// bytes further on, and those few places are then looked at one by one.
void findKeysInBlocks(KeyPositions& keys, std::string_view text, std::size_t& i) {
  const char* const data = text.data();
  for (; i + 11 <= text.size(); i += 8) {
    std::uint64_t candidates = quoteBytes(load(data + i)) &
                               (quoteBytes(load(data + i + 2)) | quoteBytes(load(data + i + 3)));
    if constexpr (std::endian::native == std::endian::little) {
      while (candidates != 0) {
        addKey(keys, text, i + static_cast<std::size_t>(std::countr_zero(candidates)) / 8);
        candidates &= candidates - 1;
      }
    } else if (candidates != 0) {
      for (std::size_t k = 0; k < 8; ++k) {
        addKey(keys, text, i + k);
      }
    }
  }
}
#endif

} // namespace

KeyPositions findColorKeys(std::string_view text) {
  KeyPositions keys;
  std::size_t i = 0;
  findKeysInBlocks(keys, text, i);
  for (; i < text.size(); ++i) {
    addKey(keys, text, i);
  }
  return keys;
}

} // namespace frameloom
