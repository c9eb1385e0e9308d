#pragma once

#include <frameloom/ziploom/DataCallbacks.h>
#include <frameloom/ziploom/Records.h>

#include <cstdint>
#include <cstdio>
#include <optional>

// Stream writing and end-record bookkeeping shared by adding and removing entries. Every write
// failure throws DataError::unwritableFile; a position the stream cannot report or reach throws
// ArchiveError::unwritableArchive.
namespace frameloom::ziploom::writing {

// Made by UNIX, format version 2.1.
inline constexpr std::uint16_t versionMadeBy = 789;
inline constexpr std::uint16_t versionNeeded = 20;
inline constexpr std::uint16_t versionNeededZIP64 = 45;

void write(std::FILE* file, ByteView bytes);
// Writes `bytes` in pieces of at most `bufferSize` bytes.
void write(std::FILE* file, ByteView bytes, std::int64_t bufferSize);
std::uint64_t position(std::FILE* file);
// Seeks to `offset`; throws ArchiveError::unwritableArchive when it cannot.
void seek(std::FILE* file, std::uint64_t offset);
void flush(std::FILE* file);

std::uint64_t recordLength(const CentralDirectoryStructure& record);

// The end of central directory record and the ZIP64 pair, when the archive needs one.
struct EndRecords {
  EndOfCentralDirectoryRecord record;
  std::optional<ZIP64EndOfCentralDirectory> zip64;
};

// Writes the end records at the current position (`endRecordsOffset`) for a central directory of
// `size` bytes and `count` entries starting at `centralDirectoryOffset`. ZIP64 records are
// written exactly when a value reaches its 32- or 16-bit marker; they start from the former ones
// when there were any, so their disk fields and version survive. Comment and disk numbers of the
// end record are kept.
EndRecords writeEndRecords(const EndRecords& former, std::uint64_t size, std::uint64_t count,
                           std::uint64_t centralDirectoryOffset, std::uint64_t endRecordsOffset,
                           std::FILE* file);

} // namespace frameloom::ziploom::writing
