#include "ziploom/ArchiveRemoving.h"

#include "ziploom/ArchiveStream.h"
#include "ziploom/LittleEndian.h"
#include "ziploom/StreamWriting.h"
#include <frameloom/ziploom/Errors.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <vector>

namespace frameloom::ziploom {

using namespace writing;

namespace {

// The system folders for temporary files, in order of preference.
std::vector<std::filesystem::path> systemScratchFolders() {
  std::error_code error;
  const auto temporary = std::filesystem::temp_directory_path(error);
  return {error ? std::filesystem::path("/tmp") : temporary, "/var/tmp"};
}

// A private folder for the scratch archive of a removal, deleted with its contents when this
// goes, whatever happened. It is made in a system folder for temporary files that lies on the
// archive's file system, so that the finished scratch file is renamed over the archive in one
// step and a crash leaves nothing beside the user's files. When no such folder shares the
// archive's file system, the first one serves and the scratch file is copied over the archive.
class ScratchFolder {
public:
  explicit ScratchFolder(const std::filesystem::path& archive) {
    const auto candidates = systemScratchFolders();
    auto chosen = candidates.front();
    struct stat archiveStatus {};
    if (stat(std::filesystem::absolute(archive).parent_path().c_str(), &archiveStatus) == 0) {
      for (const auto& candidate : candidates) {
        struct stat status {};
        if (stat(candidate.c_str(), &status) == 0 && status.st_dev == archiveStatus.st_dev) {
          chosen = candidate;
          break;
        }
      }
    }
    auto name = (chosen / "ziploom-removing-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throwPOSIXError(errno, chosen);
    }
    path_ = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

private:
  std::filesystem::path path_;
};

// The record of a kept entry whose local header now lies at `offset`. Its ZIP64 block is rebuilt
// to hold exactly the values whose fields carry the marker; when none do, the former extra field
// stays as it was.
CentralDirectoryStructure relocated(const CentralDirectoryStructure& record, std::uint64_t offset) {
  using Field = ZIP64ExtendedInformation::Field;
  auto result = record;
  result.relativeOffsetOfLocalHeader =
      offset < zip64Marker32 ? static_cast<std::uint32_t>(offset) : zip64Marker32;
  const auto fields = result.expectedZIP64Fields();
  if (fields.empty()) {
    if (record.versionNeededToExtract >= versionNeededZIP64) {
      result.versionNeededToExtract = versionNeeded;
    }
    return result;
  }
  const auto former = findZIP64Extra(record.extraFieldData, record.expectedZIP64Fields())
                          .value_or(ZIP64ExtendedInformation{});
  Bytes values;
  for (const auto field : fields) {
    switch (field) {
    case Field::uncompressedSize:
      littleEndian::append(values, former.uncompressedSize);
      break;
    case Field::compressedSize:
      littleEndian::append(values, former.compressedSize);
      break;
    case Field::relativeOffsetOfLocalHeader:
      littleEndian::append(values, offset);
      break;
    case Field::diskNumberStart:
      littleEndian::append(values, former.diskNumberStart);
      break;
    }
  }
  result.extraFieldData.clear();
  littleEndian::append(result.extraFieldData, ZIP64ExtendedInformation::headerID);
  littleEndian::append(result.extraFieldData, static_cast<std::uint16_t>(values.size()));
  littleEndian::append(result.extraFieldData, ByteView(values));
  result.extraFieldLength = static_cast<std::uint16_t>(result.extraFieldData.size());
  result.versionNeededToExtract = std::max(record.versionNeededToExtract, versionNeededZIP64);
  return result;
}

} // namespace

std::int64_t ArchiveRemoving::totalUnitCount(const Archive& archive, const Entry& entry) {
  return static_cast<std::int64_t>(archive.resolvedCentralDirectoryOffset()) -
         static_cast<std::int64_t>(entry.localRecordLength());
}

void ArchiveRemoving::copyLocalRecord(const Entry& entry, std::FILE* target,
                                      std::int64_t bufferSize,
                                      const Archive::ProgressPointer& progress) {
  std::FILE* source = archive_.archiveFile_.get();
  if (!stream::trySeek(source, entry.centralDirectoryStructure.resolvedLocalHeaderOffset())) {
    throw DataError(DataError::Code::unreadableFile);
  }
  auto remaining = entry.localRecordLength();
  do {
    const auto count = static_cast<std::size_t>(
        std::min<std::uint64_t>(remaining, static_cast<std::uint64_t>(bufferSize)));
    const auto chunk = stream::readBytes(source, count);
    // Sizes that run past the end of the archive are damage, not something to copy.
    if (chunk.size() != count) {
      throw DataError(DataError::Code::unreadableFile);
    }
    if (progress && progress->isCancelled()) {
      throw ArchiveError(ArchiveError::Code::cancelledOperation);
    }
    write(target, chunk);
    remaining -= count;
    if (progress) {
      progress->addCompletedUnitCount(static_cast<std::int64_t>(count));
    }
  } while (remaining > 0);
}

void ArchiveRemoving::remove(const Entry& entry, std::int64_t bufferSize,
                             const Archive::ProgressPointer& progress) {
  archive_.checkWritable(bufferSize);
  std::vector<Entry> entries;
  for (const auto& current : archive_) {
    entries.push_back(current);
  }
  // Rebuilding from a directory that could not be read in full would drop the entries missed.
  if (entries.size() != archive_.resolvedEntryCount()) {
    throw ArchiveError(ArchiveError::Code::damagedCentralDirectory);
  }
  if (std::find(entries.begin(), entries.end(), entry) == entries.end()) {
    throw ArchiveError(ArchiveError::Code::invalidEntryPath);
  }
  if (progress) {
    progress->setTotalUnitCount(totalUnitCount(archive_, entry));
  }

  // Declared before the scratch archive so that the archive's stream is closed first.
  std::optional<ScratchFolder> folder;
  std::unique_ptr<Archive> scratch;
  if (archive_.memoryFile_) {
    scratch = std::make_unique<Archive>(Bytes{}, AccessMode::create, archive_.pathEncoding_);
  } else {
    folder.emplace(archive_.url_);
    scratch = std::make_unique<Archive>(folder->path() / "archive", AccessMode::create);
  }
  std::FILE* target = scratch->archiveFile_.get();

  // Entries are copied in directory order, each to where the scratch archive has got to, so
  // offsets stay right even when the local records were not in that order.
  Bytes directory;
  std::uint64_t count = 0;
  for (const auto& current : entries) {
    if (current == entry) {
      continue;
    }
    const auto offset = position(target);
    copyLocalRecord(current, target, bufferSize, progress);
    const auto record = relocated(current.centralDirectoryStructure, offset).data();
    directory.insert(directory.end(), record.begin(), record.end());
    ++count;
  }
  const auto centralDirectoryOffset = position(target);
  write(target, directory);
  const auto end =
      writeEndRecords({archive_.endOfCentralDirectoryRecord_, archive_.zip64EndOfCentralDirectory_},
                      directory.size(), count, centralDirectoryOffset, position(target), target);
  scratch->truncate(position(target));
  flush(target);

  if (archive_.memoryFile_) {
    archive_.archiveFile_.swap(scratch->archiveFile_);
    archive_.memoryFile_.swap(scratch->memoryFile_);
  } else {
    replaceFile(folder->path() / "archive");
  }
  archive_.endOfCentralDirectoryRecord_ = end.record;
  archive_.zip64EndOfCentralDirectory_ = end.zip64;
}

void ArchiveRemoving::replaceFile(const std::filesystem::path& replacement) {
  struct stat status {};
  if (stat(archive_.url_.c_str(), &status) == 0) {
    chmod(replacement.c_str(), status.st_mode & 07777);
  }
  std::error_code error;
  std::filesystem::rename(replacement, archive_.url_, error);
  if (error) {
    // The scratch folder ended up on another file system: copy the bytes over instead.
    std::filesystem::copy_file(replacement, archive_.url_,
                               std::filesystem::copy_options::overwrite_existing);
  }
  stream::UniqueFile file(std::fopen(archive_.url_.c_str(), "rb+"));
  if (!file) {
    throw ArchiveError(ArchiveError::Code::unreadableArchive);
  }
  std::setvbuf(file.get(), nullptr, _IOFBF, static_cast<std::size_t>(defaultReadChunkSize));
  archive_.archiveFile_ = std::move(file);
}

} // namespace frameloom::ziploom
