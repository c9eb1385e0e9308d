#pragma once

#include <frameloom/ziploom/DataCallbacks.h>

#include <cstddef>
#include <cstdint>

// Little-endian integer access for record parsing and serialising. Callers check bounds first.
namespace frameloom::ziploom::littleEndian {

inline std::uint16_t readU16(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

inline std::uint32_t readU32(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(readU16(bytes, offset)) |
         static_cast<std::uint32_t>(readU16(bytes, offset + 2)) << 16;
}

inline std::uint64_t readU64(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint64_t>(readU32(bytes, offset)) |
         static_cast<std::uint64_t>(readU32(bytes, offset + 4)) << 32;
}

template <typename Integer>
void append(Bytes& bytes, Integer value) {
  for (std::size_t i = 0; i < sizeof(Integer); ++i) {
    bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
  }
}

inline void append(Bytes& bytes, ByteView data) {
  bytes.insert(bytes.end(), data.begin(), data.end());
}

} // namespace frameloom::ziploom::littleEndian
