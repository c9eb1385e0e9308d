#include "ziploom/ArchiveStream.h"

#include "ziploom/LittleEndian.h"
#include <frameloom/ziploom/Errors.h>

#include <algorithm>
#include <sys/types.h>

namespace frameloom::ziploom::stream {

namespace {

// Reads larger than this grow the buffer step by step, so that a size read from a damaged
// archive cannot make us allocate more than the stream holds.
constexpr std::size_t readStep = 1 << 20;

// The end-record scan reads the stream backwards in blocks of this size.
constexpr std::size_t scanBlockSize = 1 << 16;

} // namespace

Bytes readBytes(std::FILE* file, std::size_t count) {
  Bytes bytes;
  std::size_t total = 0;
  while (total < count) {
    const auto step = std::min(count - total, readStep);
    bytes.resize(total + step);
    const auto read = std::fread(bytes.data() + total, 1, step, file);
    total += read;
    if (read < step) {
      break;
    }
  }
  if (std::ferror(file)) {
    throw DataError(DataError::Code::unreadableFile);
  }
  bytes.resize(total);
  return bytes;
}

bool trySeek(std::FILE* file, std::uint64_t offset) {
  if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
    return false;
  }
  return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0;
}

std::optional<EndOfCentralDirectory> locateEndOfCentralDirectory(std::FILE* file) {
  constexpr auto recordSize = EndOfCentralDirectoryRecord::size;
  if (fseeko(file, 0, SEEK_END) != 0) {
    return std::nullopt;
  }
  const off_t length = ftello(file);
  if (length < static_cast<off_t>(recordSize)) {
    return std::nullopt;
  }
  // Candidates run from the last offset where a whole record fits back to offset 0. Blocks
  // overlap by three bytes so that a signature across a block boundary is seen.
  const auto lastCandidate = static_cast<std::uint64_t>(length) - recordSize;
  std::optional<std::uint64_t> found;
  std::uint64_t blockEnd = lastCandidate + 4;
  Bytes block;
  while (!found) {
    const auto blockStart = blockEnd > scanBlockSize ? blockEnd - scanBlockSize : 0;
    try {
      if (!trySeek(file, blockStart)) {
        return std::nullopt;
      }
      block = readBytes(file, blockEnd - blockStart);
    } catch (const DataError&) {
      return std::nullopt;
    }
    if (block.size() != blockEnd - blockStart) {
      return std::nullopt;
    }
    for (std::size_t i = block.size() - 3; i-- > 0;) {
      if (littleEndian::readU32(block, i) == EndOfCentralDirectoryRecord::signature) {
        found = blockStart + i;
        break;
      }
    }
    if (blockStart == 0) {
      break;
    }
    blockEnd = blockStart + 3;
  }
  if (!found) {
    return std::nullopt;
  }
  auto record = readRecord<EndOfCentralDirectoryRecord>(file, *found);
  if (!record) {
    return std::nullopt;
  }
  return EndOfCentralDirectory{std::move(*record), locateZIP64EndOfCentralDirectory(file, *found)};
}

std::optional<ZIP64EndOfCentralDirectory>
locateZIP64EndOfCentralDirectory(std::FILE* file, std::uint64_t endRecordOffset) {
  constexpr auto locatorSize = ZIP64EndOfCentralDirectoryLocator::size;
  constexpr auto recordSize = ZIP64EndOfCentralDirectoryRecord::size;
  if (endRecordOffset <= locatorSize) {
    return std::nullopt;
  }
  const auto locatorOffset = endRecordOffset - locatorSize;
  if (locatorOffset <= recordSize) {
    return std::nullopt;
  }
  auto locator = readRecord<ZIP64EndOfCentralDirectoryLocator>(file, locatorOffset);
  if (!locator) {
    return std::nullopt;
  }
  // The record is looked for directly before the locator, not at the locator's offset field.
  auto record = readRecord<ZIP64EndOfCentralDirectoryRecord>(file, locatorOffset - recordSize);
  if (!record) {
    return std::nullopt;
  }
  return ZIP64EndOfCentralDirectory{std::move(*record), std::move(*locator)};
}

} // namespace frameloom::ziploom::stream
