#pragma once

#include <frameloom/platform/system/UniqueFile.h>
#include <frameloom/ziploom/DataCallbacks.h>
#include <frameloom/ziploom/Records.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>

// Reading records from an archive's stdio stream; shared by the archive's reading and writing
// code. Nothing here keeps state: every read seeks first.
namespace frameloom::ziploom::stream {

using platform::UniqueFile;

// Reads up to `count` bytes from the current position: fewer at the end of the stream. Memory
// grows with what is actually read, not with `count`. Throws DataError::unreadableFile when the
// stream reports an error.
Bytes readBytes(std::FILE* file, std::size_t count);

// Seeks to `offset`; false when it does not fit a file position or the seek fails.
bool trySeek(std::FILE* file, std::uint64_t offset);

// `lhs + rhs`, or nothing when the sum does not fit in 64 bits.
inline std::optional<std::uint64_t> add(std::uint64_t lhs, std::uint64_t rhs) {
  std::uint64_t sum = 0;
  if (__builtin_add_overflow(lhs, rhs, &sum)) {
    return std::nullopt;
  }
  return sum;
}

// Reads the record at `offset`: its fixed part, then whatever variable part it asks for. Nothing
// when the offset is out of range, the stream fails or the record does not parse.
template <typename Record>
std::optional<Record> readRecord(std::FILE* file, std::uint64_t offset) {
  try {
    if (!trySeek(file, offset)) {
      return std::nullopt;
    }
    const auto fixedPart = readBytes(file, Record::size);
    return Record::parse(fixedPart, [file](std::size_t count) { return readBytes(file, count); });
  } catch (...) {
    return std::nullopt;
  }
}

struct EndOfCentralDirectory {
  EndOfCentralDirectoryRecord record;
  std::optional<ZIP64EndOfCentralDirectory> zip64;
};

// The last end of central directory signature in the stream, parsed with its comment, and the
// ZIP64 records directly before it when both are there. Nothing when the last signature found
// does not start a valid record: earlier candidates are not tried.
std::optional<EndOfCentralDirectory> locateEndOfCentralDirectory(std::FILE* file);

// The ZIP64 locator ending at `endRecordOffset` and the ZIP64 end record directly before it.
std::optional<ZIP64EndOfCentralDirectory>
locateZIP64EndOfCentralDirectory(std::FILE* file, std::uint64_t endRecordOffset);

} // namespace frameloom::ziploom::stream
