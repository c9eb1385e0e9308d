#include "ziploom/StreamWriting.h"

#include "ziploom/ArchiveStream.h"
#include <frameloom/ziploom/Errors.h>

#include <algorithm>

namespace frameloom::ziploom::writing {

void write(std::FILE* file, ByteView bytes) {
  if ((!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) ||
      std::ferror(file)) {
    throw DataError(DataError::Code::unwritableFile);
  }
}

void write(std::FILE* file, ByteView bytes, std::int64_t bufferSize) {
  const auto chunk = static_cast<std::size_t>(bufferSize);
  for (std::size_t offset = 0; offset < bytes.size(); offset += chunk) {
    write(file, bytes.subspan(offset, std::min(chunk, bytes.size() - offset)));
  }
}

std::uint64_t position(std::FILE* file) {
  const auto offset = ftello(file);
  if (offset < 0) {
    throw ArchiveError(ArchiveError::Code::unwritableArchive);
  }
  return static_cast<std::uint64_t>(offset);
}

void seek(std::FILE* file, std::uint64_t offset) {
  if (!stream::trySeek(file, offset)) {
    throw ArchiveError(ArchiveError::Code::unwritableArchive);
  }
}

void flush(std::FILE* file) {
  if (std::fflush(file) != 0) {
    throw DataError(DataError::Code::unwritableFile);
  }
}

std::uint64_t recordLength(const CentralDirectoryStructure& record) {
  return CentralDirectoryStructure::size + record.fileNameLength + record.extraFieldLength +
         record.fileCommentLength;
}

EndRecords writeEndRecords(const EndRecords& former, std::uint64_t size, std::uint64_t count,
                           std::uint64_t centralDirectoryOffset, std::uint64_t endRecordsOffset,
                           std::FILE* file) {
  const auto size32 = size < zip64Marker32 ? static_cast<std::uint32_t>(size) : zip64Marker32;
  const auto count16 = count < zip64Marker16 ? static_cast<std::uint16_t>(count) : zip64Marker16;
  const auto offset32 = centralDirectoryOffset < zip64Marker32
                            ? static_cast<std::uint32_t>(centralDirectoryOffset)
                            : zip64Marker32;

  EndRecords result{former.record, std::nullopt};
  if (size32 == zip64Marker32 || count16 == zip64Marker16 || offset32 == zip64Marker32) {
    ZIP64EndOfCentralDirectory zip64;
    if (former.zip64) {
      zip64 = *former.zip64;
    } else {
      zip64.record.sizeOfZIP64EndOfCentralDirectoryRecord =
          ZIP64EndOfCentralDirectoryRecord::size - 12;
      zip64.record.versionMadeBy = versionMadeBy;
      zip64.record.versionNeededToExtract = versionNeededZIP64;
      zip64.locator.totalNumberOfDisk = 1;
    }
    zip64.record.totalNumberOfEntriesOnDisk = count;
    zip64.record.totalNumberOfEntriesInCentralDirectory = count;
    zip64.record.sizeOfCentralDirectory = size;
    zip64.record.offsetToStartOfCentralDirectory = centralDirectoryOffset;
    zip64.locator.relativeOffsetOfZIP64EOCDRecord = endRecordsOffset;
    write(file, zip64.record.data());
    write(file, zip64.locator.data());
    result.zip64 = zip64;
  }
  result.record.totalNumberOfEntriesOnDisk = count16;
  result.record.totalNumberOfEntriesInCentralDirectory = count16;
  result.record.sizeOfCentralDirectory = size32;
  result.record.offsetToStartOfCentralDirectory = offset32;
  write(file, result.record.data());
  return result;
}

} // namespace frameloom::ziploom::writing
