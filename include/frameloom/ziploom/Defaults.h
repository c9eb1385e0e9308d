#pragma once

#include <cstdint>

namespace frameloom::ziploom {

// Chunk sizes every archive operation uses unless told otherwise.
inline constexpr std::int64_t defaultReadChunkSize = 16384;
inline constexpr std::int64_t defaultWriteChunkSize = 16384;

// Permissions given to extracted items whose entry carries none.
inline constexpr std::uint16_t defaultFilePermissions = 0644;
inline constexpr std::uint16_t defaultDirectoryPermissions = 0755;

} // namespace frameloom::ziploom
