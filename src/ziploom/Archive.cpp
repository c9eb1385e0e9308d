#include <frameloom/ziploom/Archive.h>

#include "ziploom/ArchiveReading.h"
#include "ziploom/ArchiveRemoving.h"
#include "ziploom/ArchiveStream.h"
#include "ziploom/ArchiveWriting.h"
#include "ziploom/StreamWriting.h"
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>
#include <vector>

namespace frameloom::ziploom {

namespace {

constexpr auto memoryURL = "memory://";

Bytes emptyArchive() {
  return EndOfCentralDirectoryRecord{}.data();
}

// Writes the empty archive at `url`, never replacing an existing file.
void writeEmptyArchive(const std::filesystem::path& url) {
  stream::UniqueFile file(std::fopen(url.c_str(), "wbx"));
  if (!file) {
    if (errno == EEXIST) {
      throw FileError(FileError::Code::fileWriteFileExists, url);
    }
    throwPOSIXError(errno, url);
  }
  const auto bytes = emptyArchive();
  if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
      std::fflush(file.get()) != 0) {
    throwPOSIXError(errno, url);
  }
}

// Opens the archive file as a stream. A FIFO, device or socket is refused before anything is
// read from it: opening does not block (a FIFO without a writer would wait forever), and the
// kind of file is checked on the descriptor itself, so nothing can be swapped in between.
stream::UniqueFile openRegularFile(const std::filesystem::path& url, AccessMode mode) {
  const int flags = (mode == AccessMode::read ? O_RDONLY : O_RDWR) | O_NONBLOCK | O_CLOEXEC;
  const int descriptor = ::open(url.c_str(), flags);
  if (descriptor < 0) {
    throwPOSIXError(errno, url);
  }
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    const int error = errno;
    ::close(descriptor);
    if (S_ISREG(status.st_mode)) {
      throwPOSIXError(error, url);
    }
    throw FileError(FileError::Code::fileReadNotRegularFile, url);
  }
  ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
  stream::UniqueFile file(::fdopen(descriptor, mode == AccessMode::read ? "rb" : "rb+"));
  if (!file) {
    const int error = errno;
    ::close(descriptor);
    throwPOSIXError(error, url);
  }
  return file;
}

} // namespace

Archive::BackingConfiguration Archive::openBacking(const std::filesystem::path& url,
                                                   AccessMode mode) {
  if (mode == AccessMode::create) {
    writeEmptyArchive(url);
  }
  auto file = openRegularFile(url, mode);
  std::setvbuf(file.get(), nullptr, _IOFBF, static_cast<std::size_t>(defaultReadChunkSize));
  auto end = stream::locateEndOfCentralDirectory(file.get());
  if (!end) {
    throw ArchiveError(ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  }
  if (mode != AccessMode::read) {
    fseeko(file.get(), 0, SEEK_SET);
  }
  return {std::move(file), std::move(end->record), std::move(end->zip64), nullptr};
}

Archive::BackingConfiguration Archive::openBacking(Bytes data, AccessMode mode) {
  auto memoryFile = MemoryFile::make(std::move(data));
  stream::UniqueFile file(memoryFile->openStream(mode));
  if (mode == AccessMode::create) {
    const auto bytes = emptyArchive();
    std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  }
  auto end = stream::locateEndOfCentralDirectory(file.get());
  if (!end) {
    throw ArchiveError(ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  }
  if (mode != AccessMode::read) {
    fseeko(file.get(), 0, SEEK_SET);
  }
  return {std::move(file), std::move(end->record), std::move(end->zip64), std::move(memoryFile)};
}

Archive::Archive(const std::filesystem::path& url, AccessMode accessMode,
                 std::optional<TextEncoding> pathEncoding)
    : url_(url.string()), accessMode_(accessMode), pathEncoding_(pathEncoding) {
  auto backing = openBacking(url, accessMode);
  archiveFile_ = std::move(backing.file);
  endOfCentralDirectoryRecord_ = std::move(backing.endOfCentralDirectoryRecord);
  zip64EndOfCentralDirectory_ = std::move(backing.zip64EndOfCentralDirectory);
}

Archive::Archive(Bytes data, AccessMode accessMode, std::optional<TextEncoding> pathEncoding)
    : url_(memoryURL), accessMode_(accessMode), pathEncoding_(pathEncoding) {
  auto backing = openBacking(std::move(data), accessMode);
  archiveFile_ = std::move(backing.file);
  endOfCentralDirectoryRecord_ = std::move(backing.endOfCentralDirectoryRecord);
  zip64EndOfCentralDirectory_ = std::move(backing.zip64EndOfCentralDirectory);
  memoryFile_ = std::move(backing.memoryFile);
}

std::unique_ptr<Archive> Archive::make(const std::filesystem::path& url, AccessMode accessMode,
                                       std::optional<TextEncoding> preferredEncoding) {
  try {
    return std::make_unique<Archive>(url, accessMode, preferredEncoding);
  } catch (const ZiploomError&) {
    return nullptr;
  } catch (const std::filesystem::filesystem_error&) {
    return nullptr;
  }
}

std::unique_ptr<Archive> Archive::make(Bytes data, AccessMode accessMode,
                                       std::optional<TextEncoding> preferredEncoding) {
  try {
    return std::make_unique<Archive>(std::move(data), accessMode, preferredEncoding);
  } catch (const ZiploomError&) {
    return nullptr;
  } catch (const std::filesystem::filesystem_error&) {
    return nullptr;
  }
}

Archive::~Archive() = default;

std::optional<Bytes> Archive::data() const {
  if (!memoryFile_) {
    return std::nullopt;
  }
  std::fflush(archiveFile_.get());
  return memoryFile_->data();
}

std::uint64_t Archive::resolvedEntryCount() const {
  return zip64EndOfCentralDirectory_
             ? zip64EndOfCentralDirectory_->record.totalNumberOfEntriesInCentralDirectory
             : endOfCentralDirectoryRecord_.totalNumberOfEntriesInCentralDirectory;
}

std::uint64_t Archive::resolvedCentralDirectoryOffset() const {
  return zip64EndOfCentralDirectory_
             ? zip64EndOfCentralDirectory_->record.offsetToStartOfCentralDirectory
             : endOfCentralDirectoryRecord_.offsetToStartOfCentralDirectory;
}

std::uint64_t Archive::resolvedCentralDirectorySize() const {
  return zip64EndOfCentralDirectory_ ? zip64EndOfCentralDirectory_->record.sizeOfCentralDirectory
                                     : endOfCentralDirectoryRecord_.sizeOfCentralDirectory;
}

std::optional<Entry> Archive::readEntry(std::uint64_t& position) const {
  auto* file = archiveFile_.get();
  auto central = stream::readRecord<CentralDirectoryStructure>(file, position);
  if (!central) {
    return std::nullopt;
  }
  const auto localOffset = central->resolvedLocalHeaderOffset();
  auto local = stream::readRecord<LocalFileHeader>(file, localOffset);
  if (!local) {
    return std::nullopt;
  }
  Entry entry{std::move(*central), std::move(*local), std::nullopt, std::nullopt};
  const auto& record = entry.centralDirectoryStructure;
  if (record.hasDataDescriptor()) {
    const auto dataSize = record.compressionMethod == 0 ? record.resolvedUncompressedSize()
                                                        : record.resolvedCompressedSize();
    const auto headerLength = std::uint64_t{LocalFileHeader::size} +
                              entry.localFileHeader.fileNameLength +
                              entry.localFileHeader.extraFieldLength;
    if (auto start = stream::add(localOffset, headerLength)) {
      if (auto descriptorOffset = stream::add(*start, dataSize)) {
        if (record.isZIP64Format()) {
          entry.zip64DataDescriptor =
              stream::readRecord<Entry::ZIP64DataDescriptor>(file, *descriptorOffset);
        } else {
          entry.dataDescriptor =
              stream::readRecord<Entry::DefaultDataDescriptor>(file, *descriptorOffset);
        }
      }
    }
  }
  position += CentralDirectoryStructure::size + record.fileNameLength + record.extraFieldLength +
              record.fileCommentLength;
  if (record.isEncryptedEntry()) {
    return std::nullopt;
  }
  return entry;
}

Archive::Iterator::Iterator(const Archive* archive)
    : archive_(archive), total_(archive->resolvedEntryCount()),
      position_(archive->resolvedCentralDirectoryOffset()) {
  ++*this;
}

Archive::Iterator& Archive::Iterator::operator++() {
  current_.reset();
  if (index_ < total_) {
    current_ = archive_->readEntry(position_);
    ++index_;
  }
  return *this;
}

bool Archive::endsEarly() const {
  std::uint64_t found = 0;
  for (auto entry = begin(); entry != end(); ++entry) {
    ++found;
  }
  return found < resolvedEntryCount();
}

void Archive::checkDataRangesDisjoint() const {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
  for (const auto& entry : *this) {
    const auto start = entry.centralDirectoryStructure.resolvedLocalHeaderOffset();
    const auto header = std::uint64_t{LocalFileHeader::size} +
                        entry.localFileHeader.fileNameLength +
                        entry.localFileHeader.extraFieldLength;
    const auto dataEnd = stream::add(start, header);
    const auto rangeEnd =
        dataEnd ? stream::add(*dataEnd, entry.centralDirectoryStructure.resolvedCompressedSize())
                : std::nullopt;
    if (!rangeEnd) {
      throw ArchiveError(ArchiveError::Code::invalidLocalHeaderDataOffset);
    }
    ranges.emplace_back(start, *rangeEnd);
  }
  std::sort(ranges.begin(), ranges.end());
  for (std::size_t index = 1; index < ranges.size(); ++index) {
    if (ranges[index].first < ranges[index - 1].second) {
      throw ArchiveError(ArchiveError::Code::invalidLocalHeaderDataOffset);
    }
  }
}

std::uint64_t Archive::declaredExtractionSize() const {
  std::uint64_t total = 0;
  for (const auto& entry : *this) {
    const auto size = entry.type() == Entry::EntryType::symlink
                          ? std::min(entry.compressedSize(), maximumSymlinkTargetLength)
                      : entry.type() == Entry::EntryType::file ? entry.uncompressedSize()
                                                               : 0;
    total = stream::add(total, size).value_or(std::numeric_limits<std::uint64_t>::max());
  }
  return total;
}

std::optional<Entry> Archive::operator[](std::string_view path) const {
  for (const auto& entry : *this) {
    const auto entryPath = pathEncoding_ ? entry.path(*pathEncoding_) : entry.path();
    if (canonicallyEquivalent(entryPath, path)) {
      return entry;
    }
  }
  return std::nullopt;
}

void Archive::checkWritable(std::int64_t bufferSize) const {
  if (accessMode_ == AccessMode::read) {
    throw ArchiveError(ArchiveError::Code::unwritableArchive);
  }
  if (bufferSize < 1) {
    throw ArchiveError(ArchiveError::Code::invalidBufferSize);
  }
}

void Archive::truncate(std::uint64_t length) {
  std::FILE* file = archiveFile_.get();
  writing::flush(file);
  if (memoryFile_) {
    memoryFile_->truncate(length);
  } else if (ftruncate(fileno(file), static_cast<off_t>(length)) != 0) {
    throw DataError(DataError::Code::unwritableFile);
  }
  writing::seek(file, length);
}

std::int64_t Archive::totalUnitCountForReading(const Entry& entry) {
  return ArchiveReading::totalUnitCount(entry);
}

std::uint32_t Archive::extract(const Entry& entry, const Consumer& consumer) {
  return extract(entry, defaultReadChunkSize, false, nullptr, consumer);
}

std::uint32_t Archive::extract(const Entry& entry, std::int64_t bufferSize, bool skipCRC32,
                               const ProgressPointer& progress, const Consumer& consumer) {
  return ArchiveReading(*this).extract(entry, bufferSize, skipCRC32, progress, consumer);
}

std::uint32_t Archive::extract(const Entry& entry, const std::filesystem::path& destination,
                               std::int64_t bufferSize, bool skipCRC32,
                               bool allowUncontainedSymlinks, const ProgressPointer& progress) {
  return ArchiveReading(*this).extract(entry, destination, bufferSize, skipCRC32,
                                       allowUncontainedSymlinks, progress);
}

void Archive::addEntry(const std::string& path, const RelativeTo& base,
                       CompressionMethod compressionMethod, std::int64_t bufferSize,
                       const ProgressPointer& progress) {
  addEntry(path, FileURL{appendingPathComponent(base.baseURL, path)}, compressionMethod, bufferSize,
           progress);
}

void Archive::addEntry(const std::string& path, const FileURL& item,
                       CompressionMethod compressionMethod, std::int64_t bufferSize,
                       const ProgressPointer& progress) {
  ArchiveWriting(*this).addEntry(path, item.fileURL, compressionMethod, bufferSize, progress);
}

void Archive::addEntry(const std::string& path, Entry::EntryType type,
                       std::int64_t uncompressedSize,
                       std::chrono::system_clock::time_point modificationDate,
                       std::optional<std::uint16_t> permissions,
                       CompressionMethod compressionMethod, std::int64_t bufferSize,
                       const ProgressPointer& progress, const Provider& provider) {
  ArchiveWriting(*this).addEntry(path, type, uncompressedSize, modificationDate, permissions,
                                 compressionMethod, bufferSize, progress, provider);
}

void Archive::addEntries(const std::vector<FileItem>& items, CompressionMethod compressionMethod,
                         std::int64_t bufferSize) {
  ArchiveWriting(*this).addEntries(items, compressionMethod, bufferSize);
}

void Archive::setCompressionLevel(int level) {
  if (level < fastestCompressionLevel || level > smallestCompressionLevel) {
    throw ArchiveError(ArchiveError::Code::invalidCompressionMethod);
  }
  compressionLevel_ = level;
}

std::int64_t Archive::totalUnitCountForAddingItem(const std::filesystem::path& url) {
  return ArchiveWriting::totalUnitCount(url);
}

void Archive::remove(const Entry& entry, std::int64_t bufferSize, const ProgressPointer& progress) {
  ArchiveRemoving(*this).remove(entry, bufferSize, progress);
}

std::int64_t Archive::totalUnitCountForRemoving(const Entry& entry) const {
  return ArchiveRemoving::totalUnitCount(*this, entry);
}

} // namespace frameloom::ziploom
