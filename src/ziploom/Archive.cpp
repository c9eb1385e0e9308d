#include "ziploom/ArchiveStream.h"
#include <frameloom/ziploom/Archive.h>

#include <frameloom/ziploom/Errors.h>

#include <cerrno>

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

} // namespace

Archive::BackingConfiguration Archive::openBacking(const std::filesystem::path& url,
                                                   AccessMode mode) {
  if (mode == AccessMode::create) {
    writeEmptyArchive(url);
  }
  stream::UniqueFile file(std::fopen(url.c_str(), mode == AccessMode::read ? "rb" : "rb+"));
  if (!file) {
    throwPOSIXError(errno, url);
  }
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

std::optional<Entry> Archive::operator[](std::string_view path) const {
  for (const auto& entry : *this) {
    const auto entryPath = pathEncoding_ ? entry.path(*pathEncoding_) : entry.path();
    if (canonicallyEquivalent(entryPath, path)) {
      return entry;
    }
  }
  return std::nullopt;
}

} // namespace frameloom::ziploom
