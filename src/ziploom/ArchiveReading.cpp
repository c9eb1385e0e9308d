#include "ziploom/ArchiveReading.h"

#include "ziploom/ArchiveStream.h"
#include "ziploom/BlockIO.h"
#include "ziploom/WholeBuffer.h"
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

namespace frameloom::ziploom {

namespace {

using EntryType = Entry::EntryType;
constexpr auto maximumInt64 = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

std::int64_t clampToInt64(std::uint64_t value) {
  return static_cast<std::int64_t>(std::min(value, maximumInt64));
}

// Delivers chunks to `consumer`, counting them on `progress` and stopping once it is cancelled.
Consumer withProgress(const Archive::ProgressPointer& progress, const Consumer& consumer) {
  if (!progress) {
    return consumer;
  }
  return [progress, &consumer](ByteView chunk) {
    if (progress->isCancelled()) {
      throw ArchiveError(ArchiveError::Code::cancelledOperation);
    }
    consumer(chunk);
    progress->addCompletedUnitCount(static_cast<std::int64_t>(chunk.size()));
  };
}

// Passes on at most `declared` bytes in all: an entry that inflates past the size its central
// record declares is damaged (or a bomb), and is stopped at the first byte beyond it.
Consumer withinDeclaredSize(std::uint64_t declared, std::uint64_t& delivered,
                            const Consumer& consumer) {
  return [declared, &delivered, &consumer](ByteView chunk) {
    const auto allowed = std::min<std::uint64_t>(chunk.size(), declared - delivered);
    if (allowed < chunk.size()) {
      if (allowed > 0) {
        consumer(chunk.first(static_cast<std::size_t>(allowed)));
      }
      throw CompressionError(CompressionError::Code::corruptedData,
                             "the entry's data is longer than its declared size");
    }
    consumer(chunk);
    delivered += chunk.size();
  };
}

// A link is contained when its target, resolved against the link's folder, lies inside that
// folder. Resolution is lexical, so "sub/../../x" is caught without touching the file system.
bool isLinkContained(const std::filesystem::path& destination, const std::string& target) {
  const auto parent = destination.parent_path();
  const std::filesystem::path path(target);
  return isContained(path.is_absolute() ? path : parent / path, parent);
}

std::array<timespec, 2> timesOf(const FileAttributes& attributes) {
  const auto since = attributes.modificationDate.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  // The access time stays the item's own; only the modification date comes from the entry.
  return {timespec{0, UTIME_OMIT},
          timespec{static_cast<time_t>(seconds.count()),
                   static_cast<long>(std::chrono::nanoseconds(since - seconds).count())}};
}

// Permissions and date go through the descriptor of the item the extraction made, so they can
// never reach the target of a link that stands (or was put) at the destination's name.
void setAttributes(int descriptor, const std::filesystem::path& path,
                   const FileAttributes& attributes) {
  const auto times = timesOf(attributes);
  if (::fchmod(descriptor, attributes.posixPermissions) != 0 ||
      ::futimens(descriptor, times.data()) != 0) {
    throwPOSIXError(errno, path);
  }
}

// A folder entry may meet a folder that is already there; a link there is refused rather than
// followed, whatever it points to.
void setFolderAttributes(const std::filesystem::path& folder, const FileAttributes& attributes) {
  // A trailing "/" would make even a no-follow open go through a link.
  const auto path = folder.has_filename() ? folder : folder.parent_path();
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) {
    if (errno == ELOOP || errno == ENOTDIR) {
      throw FileError(FileError::Code::fileWriteFileExists, path);
    }
    throwPOSIXError(errno, path);
  }
  try {
    setAttributes(descriptor, path, attributes);
  } catch (...) {
    ::close(descriptor);
    throw;
  }
  ::close(descriptor);
}

// Linux cannot change a symbolic link's own permissions (there is no lchmod), so a link keeps
// the permissions the system gives it; only its modification date is set, on the link itself.
void setLinkAttributes(const std::filesystem::path& path, const FileAttributes& attributes) {
  const auto times = timesOf(attributes);
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISLNK(status.st_mode) ||
      utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
    throwPOSIXError(errno, path);
  }
}

// Whether anything, a dangling link included, exists at `path`.
bool isOccupied(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::symlink_status(path, error).type() !=
         std::filesystem::file_type::not_found;
}

} // namespace

std::int64_t ArchiveReading::totalUnitCount(const Entry& entry) {
  return entry.type() == EntryType::directory ? 1 : clampToInt64(entry.uncompressedSize());
}

std::uint32_t ArchiveReading::extract(const Entry& entry, std::int64_t bufferSize, bool skipCRC32,
                                      const Archive::ProgressPointer& progress,
                                      const Consumer& consumer) {
  if (bufferSize < 1) {
    throw ArchiveError(ArchiveError::Code::invalidBufferSize);
  }
  const auto& local = entry.localFileHeader;
  const auto dataOffset = stream::add(entry.centralDirectoryStructure.resolvedLocalHeaderOffset(),
                                      std::uint64_t{LocalFileHeader::size} + local.fileNameLength +
                                          local.extraFieldLength);
  if (!dataOffset || !stream::trySeek(archive_.archiveFile_.get(), *dataOffset)) {
    throw DataError(DataError::Code::unreadableFile);
  }
  if (progress) {
    progress->setTotalUnitCount(totalUnitCount(entry));
  }
  const auto deliver = withProgress(progress, consumer);

  switch (entry.type()) {
  case EntryType::file:
    switch (local.compressionMethod) {
    case static_cast<std::uint16_t>(CompressionMethod::deflate): {
      const auto size = entry.centralDirectoryStructure.resolvedCompressedSize();
      if (const auto checksum = inflateWhole(entry, bufferSize, skipCRC32, deliver)) {
        return *checksum;
      }
      // Streaming from the start of the data again reports exactly where the data went wrong.
      if (!stream::trySeek(archive_.archiveFile_.get(), *dataOffset)) {
        throw DataError(DataError::Code::unreadableFile);
      }
      stream::ReadAhead reader(archive_.archiveFile_.get(), size, archive_.readBlock_);
      std::uint64_t delivered = 0;
      return decompress(
          clampToInt64(size), bufferSize, skipCRC32,
          [&reader](std::int64_t, std::int64_t count) {
            return reader.read(static_cast<std::size_t>(count));
          },
          withinDeclaredSize(entry.centralDirectoryStructure.resolvedUncompressedSize(), delivered,
                             deliver));
    }
    case static_cast<std::uint16_t>(CompressionMethod::none):
      return readStored(entry, bufferSize, skipCRC32, deliver);
    default:
      throw ArchiveError(ArchiveError::Code::invalidCompressionMethod);
    }
  case EntryType::directory:
    consumer(ByteView());
    if (progress) {
      progress->setCompletedUnitCount(totalUnitCount(entry));
    }
    return 0;
  case EntryType::symlink: {
    const auto checksum = readSymlinkTarget(entry, consumer);
    if (progress) {
      progress->setCompletedUnitCount(totalUnitCount(entry));
    }
    return checksum;
  }
  }
  return 0;
}

std::optional<std::uint32_t> ArchiveReading::inflateWhole(const Entry& entry,
                                                          std::int64_t bufferSize, bool skipCRC32,
                                                          const Consumer& consumer) {
  const auto size = entry.centralDirectoryStructure.resolvedCompressedSize();
  const auto declared = entry.centralDirectoryStructure.resolvedUncompressedSize();
  if (size > whole::maximumSize || declared > whole::maximumSize) {
    return std::nullopt;
  }
  const auto compressed =
      stream::readBytes(archive_.archiveFile_.get(), static_cast<std::size_t>(size));
  const auto output = whole::inflate(compressed, static_cast<std::size_t>(declared));
  if (!output) {
    return std::nullopt;
  }
  // The consumer sees the same slices as from the streaming path, at least one.
  const ByteView bytes(*output);
  const auto slice = static_cast<std::size_t>(bufferSize);
  std::size_t offset = 0;
  do {
    consumer(bytes.subspan(offset, std::min(slice, bytes.size() - offset)));
    offset = std::min(bytes.size(), offset + slice);
  } while (offset < bytes.size());
  return skipCRC32 ? 0 : crc32(bytes);
}

std::uint32_t ArchiveReading::readStored(const Entry& entry, std::int64_t bufferSize,
                                         bool skipCRC32, const Consumer& consumer) {
  const auto size = entry.centralDirectoryStructure.resolvedUncompressedSize();
  if (size == 0) {
    consumer(ByteView());
    return 0;
  }
  const auto chunk = std::min(static_cast<std::uint64_t>(bufferSize), size);
  stream::ReadAhead reader(archive_.archiveFile_.get(), size, archive_.readBlock_);
  std::uint32_t checksum = 0;
  std::uint64_t read = 0;
  while (read < size) {
    const auto count = std::min(chunk, size - read);
    const auto bytes = reader.read(static_cast<std::size_t>(count));
    consumer(bytes);
    if (!skipCRC32) {
      checksum = crc32(bytes, checksum);
    }
    // A short read means the archive ends inside the entry; what it held has been delivered.
    if (bytes.size() < count) {
      break;
    }
    read += count;
  }
  return checksum;
}

// The link target is stored uncompressed whatever the method says. Its length is the local
// header's size, unless that is deferred (0) or a ZIP64 marker; the central directory's size
// stands in then.
std::uint32_t ArchiveReading::readSymlinkTarget(const Entry& entry, const Consumer& consumer) {
  std::uint64_t length = entry.localFileHeader.compressedSize;
  if (length == 0 || length == zip64Marker32) {
    length = entry.compressedSize();
  }
  if (length > maximumSymlinkTargetLength) {
    throw ArchiveError(ArchiveError::Code::invalidEntryPath);
  }
  const auto target =
      stream::readBytes(archive_.archiveFile_.get(), static_cast<std::size_t>(length));
  const auto checksum = crc32(target);
  consumer(target);
  return checksum;
}

std::uint32_t ArchiveReading::extract(const Entry& entry, const std::filesystem::path& destination,
                                      std::int64_t bufferSize, bool skipCRC32,
                                      bool allowUncontainedSymlinks,
                                      const Archive::ProgressPointer& progress) {
  if (bufferSize < 1) {
    throw ArchiveError(ArchiveError::Code::invalidBufferSize);
  }
  const auto kind = entry.type();
  if (kind != EntryType::directory && isOccupied(destination)) {
    throw FileError(FileError::Code::fileWriteFileExists, destination);
  }
  std::uint32_t checksum = 0;
  switch (kind) {
  case EntryType::file: {
    std::filesystem::create_directories(destination.parent_path());
    // "x": fail rather than follow anything that appeared at the destination meanwhile.
    stream::UniqueFile file(std::fopen(destination.c_str(), "wb+x"));
    if (!file) {
      throwPOSIXError(errno, destination);
    }
    stream::WriteBehind writer(file.get(), archive_.writeBlock_);
    checksum = extract(entry, bufferSize, skipCRC32, progress,
                       [&writer](ByteView chunk) { writer.write(chunk); });
    writer.flush();
    if (std::fflush(file.get()) != 0) {
      throw DataError(DataError::Code::unwritableFile);
    }
    setAttributes(::fileno(file.get()), destination, entry.fileAttributes());
    return checksum;
  }
  case EntryType::directory:
    checksum = extract(entry, bufferSize, skipCRC32, progress, [&destination](ByteView) {
      std::filesystem::create_directories(destination);
    });
    setFolderAttributes(destination, entry.fileAttributes());
    return checksum;
  case EntryType::symlink:
    checksum = extract(entry, bufferSize, skipCRC32, progress, [&](ByteView bytes) {
      if (!isValidUTF8(bytes)) {
        throw ArchiveError(ArchiveError::Code::invalidEntryPath);
      }
      const std::string target(bytes.begin(), bytes.end());
      if (!allowUncontainedSymlinks && !isLinkContained(destination, target)) {
        throw ArchiveError(ArchiveError::Code::uncontainedSymlink);
      }
      std::filesystem::create_directories(destination.parent_path());
      std::filesystem::create_symlink(target, destination);
    });
    setLinkAttributes(destination, entry.fileAttributes());
    return checksum;
  }
  return checksum;
}

} // namespace frameloom::ziploom
