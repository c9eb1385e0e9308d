#pragma once

#include <frameloom/ziploom/DataCallbacks.h>
#include <frameloom/ziploom/Errors.h>

#include <cstdint>
#include <frameloom/platform/ZiploomExport.h>
#include <optional>

namespace frameloom::ziploom {

// The ZIP method numbers this library reads and writes.
enum class CompressionMethod : std::uint16_t { none = 0, deflate = 8 };

// The method for a raw ZIP method number, or nothing for a method this library does not handle.
FRAMELOOM_ZIPLOOM_EXPORT std::optional<CompressionMethod> makeCompressionMethod(std::uint16_t raw);

// Deflate levels: 1 is the fastest, 9 makes the smallest output, and 6, the default, weighs them as
// zlib's default does. Both the streaming and the whole-buffer compressor take the same levels.
inline constexpr int fastestCompressionLevel = 1;
inline constexpr int smallestCompressionLevel = 9;
inline constexpr int defaultCompressionLevel = 6;

// The ZIP CRC-32 of `bytes`, continued from `checksum` (0 starts a new checksum). Any length.
FRAMELOOM_ZIPLOOM_EXPORT std::uint32_t crc32(ByteView bytes, std::uint32_t checksum = 0);

// Raw-deflates `size` source bytes pulled through `provider` in chunks of at most `bufferSize`
// bytes, handing the compressed output to `consumer` in views of an internal buffer of
// `bufferSize` bytes (valid only during the call). A chunk shorter than `bufferSize` is the last
// one, so a source that is an exact multiple of `bufferSize` ends with an extra empty chunk.
// Returns the CRC-32 of the source bytes. Memory stays bounded by one chunk and one output buffer.
// Runs on the caller's thread; throws CompressionError (invalidStream for a level outside 1...9
// too), or whatever provider and consumer throw.
FRAMELOOM_ZIPLOOM_EXPORT std::uint32_t compress(std::int64_t size, std::int64_t bufferSize,
                                                const Provider& provider, const Consumer& consumer,
                                                int level = defaultCompressionLevel);

// Inflates a raw deflate stream of at most `size` compressed bytes pulled through `provider`,
// handing the output to `consumer` in views of at most `bufferSize` bytes, cut from an internal
// buffer of at least 64 KiB (fewer, larger inflate steps). Stops at the end of the deflate stream
// even when more input is available. Returns the CRC-32 of the output, or 0 when `skipCRC32` is
// set. A truncated stream ends in CompressionError (corruptedData) after the output it yielded.
FRAMELOOM_ZIPLOOM_EXPORT std::uint32_t decompress(std::int64_t size, std::int64_t bufferSize,
                                                  bool skipCRC32, const Provider& provider,
                                                  const Consumer& consumer);

} // namespace frameloom::ziploom
