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

namespace frameloom::ziploom {

// A link target is read in one piece, so its length is bounded: no file system resolves a path
// longer than PATH_MAX (4096 bytes on Linux), and a longer "target" is damage or an attack.
inline constexpr std::uint64_t maximumSymlinkTargetLength = 4096;

} // namespace frameloom::ziploom
