#include "ziploom/ArchiveWriting.h"

#include "ziploom/ArchiveStream.h"
#include "ziploom/BlockIO.h"
#include "ziploom/EntryPreparation.h"
#include "ziploom/LittleEndian.h"
#include "ziploom/StreamWriting.h"
#include <frameloom/ziploom/Errors.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <exception>
#include <functional>
#include <limits>

namespace frameloom::ziploom {

using EntryType = Entry::EntryType;
using namespace writing;

namespace {

// Whether the directory holds exactly `count` central records that fill it to its last byte.
// Reading tolerates a directory whose last record runs past its declared size, but a change copies
// the directory by that size and would cut such a record, so the new records would be misread.
bool fillsExactly(ByteView directory, std::uint64_t count) {
  std::size_t offset = 0;
  for (std::uint64_t index = 0; index < count; ++index) {
    if (directory.size() - offset < CentralDirectoryStructure::size ||
        littleEndian::readU32(directory, offset) != CentralDirectoryStructure::signature) {
      return false;
    }
    const std::size_t variable = std::size_t{littleEndian::readU16(directory, offset + 28)} +
                                 littleEndian::readU16(directory, offset + 30) +
                                 littleEndian::readU16(directory, offset + 32);
    offset += CentralDirectoryStructure::size;
    if (directory.size() - offset < variable) {
      return false;
    }
    offset += variable;
  }
  return offset == directory.size();
}

struct MSDOSDateTime {
  std::uint16_t date = 0;
  std::uint16_t time = 0;
};

// MS-DOS dates count years from 1980 in seven bits: a date outside 1980...2099 keeps its day and
// time with the year clamped. Seconds have a two-second resolution.
MSDOSDateTime msdosDateTime(std::chrono::system_clock::time_point date) {
  const auto seconds =
      std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  if (gmtime_r(&time, &parts) == nullptr) {
    return {};
  }
  const int year = std::clamp(parts.tm_year + 1900, 1980, 2099);
  return {static_cast<std::uint16_t>(parts.tm_mday + (parts.tm_mon + 1) * 32 + (year - 1980) * 512),
          static_cast<std::uint16_t>(parts.tm_sec / 2 + parts.tm_min * 32 + parts.tm_hour * 2048)};
}

// The UNIX mode of the entry, type bits included, in the high half of the external attributes.
std::uint32_t externalFileAttributes(EntryType type, std::optional<std::uint16_t> permissions) {
  const mode_t typeBits = type == EntryType::directory ? S_IFDIR
                          : type == EntryType::symlink ? S_IFLNK
                                                       : S_IFREG;
  const std::uint16_t mode = permissions.value_or(
      type == EntryType::directory ? defaultDirectoryPermissions : defaultFilePermissions);
  return static_cast<std::uint32_t>(static_cast<std::uint16_t>(typeBits | mode)) << 16;
}

struct Sizes {
  std::uint64_t uncompressed = 0;
  std::uint64_t compressed = 0;
};

// A ZIP64 extra-field block holding the given values in their fixed order.
Bytes zip64Block(std::optional<Sizes> sizes, const std::uint64_t* offset) {
  Bytes block;
  const int count = (sizes ? 2 : 0) + (offset ? 1 : 0);
  littleEndian::append(block, ZIP64ExtendedInformation::headerID);
  littleEndian::append(block, static_cast<std::uint16_t>(8 * count));
  if (sizes) {
    littleEndian::append(block, sizes->uncompressed);
    littleEndian::append(block, sizes->compressed);
  }
  if (offset) {
    littleEndian::append(block, *offset);
  }
  return block;
}

// The local header is written before the data and rewritten in place after it, so its length
// must not change: it carries ZIP64 sizes exactly when the uncompressed size needs them.
bool needsZIP64LocalHeader(std::uint64_t uncompressedSize) {
  return uncompressedSize >= zip64Marker32;
}

LocalFileHeader makeLocalFileHeader(const std::string& path, CompressionMethod method,
                                    MSDOSDateTime dateTime, std::uint32_t checksum, Sizes sizes,
                                    bool zip64) {
  LocalFileHeader header;
  header.versionNeededToExtract = zip64 ? versionNeededZIP64 : versionNeeded;
  header.generalPurposeBitFlag = GeneralPurposeFlags::utf8Path;
  header.compressionMethod = static_cast<std::uint16_t>(method);
  header.lastModFileTime = dateTime.time;
  header.lastModFileDate = dateTime.date;
  header.crc32 = checksum;
  header.fileNameData.assign(path.begin(), path.end());
  header.fileNameLength = static_cast<std::uint16_t>(path.size());
  if (zip64) {
    header.compressedSize = zip64Marker32;
    header.uncompressedSize = zip64Marker32;
    header.extraFieldData = zip64Block(sizes, nullptr);
    header.extraFieldLength = static_cast<std::uint16_t>(header.extraFieldData.size());
  } else {
    header.compressedSize = static_cast<std::uint32_t>(sizes.compressed);
    header.uncompressedSize = static_cast<std::uint32_t>(sizes.uncompressed);
  }
  return header;
}

CentralDirectoryStructure makeCentralDirectoryStructure(const LocalFileHeader& header,
                                                        std::uint64_t headerOffset,
                                                        std::uint32_t attributes) {
  std::optional<Sizes> sizes;
  if (header.uncompressedSize == zip64Marker32 || header.compressedSize == zip64Marker32) {
    using Field = ZIP64ExtendedInformation::Field;
    constexpr Field fields[] = {Field::uncompressedSize, Field::compressedSize};
    if (const auto extra = findZIP64Extra(header.extraFieldData, fields)) {
      sizes = Sizes{extra->uncompressedSize, extra->compressedSize};
    }
  }
  const bool offsetInExtra = headerOffset >= zip64Marker32;

  CentralDirectoryStructure record;
  record.versionMadeBy = versionMadeBy;
  record.versionNeededToExtract = header.versionNeededToExtract;
  record.generalPurposeBitFlag = header.generalPurposeBitFlag;
  record.compressionMethod = header.compressionMethod;
  record.lastModFileTime = header.lastModFileTime;
  record.lastModFileDate = header.lastModFileDate;
  record.crc32 = header.crc32;
  record.compressedSize = header.compressedSize;
  record.uncompressedSize = header.uncompressedSize;
  record.fileNameLength = header.fileNameLength;
  record.fileNameData = header.fileNameData;
  record.externalFileAttributes = attributes;
  record.relativeOffsetOfLocalHeader =
      offsetInExtra ? zip64Marker32 : static_cast<std::uint32_t>(headerOffset);
  if (sizes || offsetInExtra) {
    record.extraFieldData = zip64Block(sizes, offsetInExtra ? &headerOffset : nullptr);
    record.extraFieldLength = static_cast<std::uint16_t>(record.extraFieldData.size());
  }
  return record;
}

void checkCancelled(const Archive::ProgressPointer& progress) {
  if (progress && progress->isCancelled()) {
    throw ArchiveError(ArchiveError::Code::cancelledOperation);
  }
}

// A folder found on disk is stored under a path ending in "/", as every tool expects.
std::string entryPathFor(const std::string& path, EntryType type) {
  return type == EntryType::directory && !path.ends_with('/') ? path + '/' : path;
}

using preparation::ItemStatus;

// All of a source of `size` bytes, pulled in chunks as the streaming compressor pulls them: a
// chunk shorter than `bufferSize` is the last. Checks for cancellation and counts progress.
Bytes gather(std::int64_t size, std::int64_t bufferSize, const Archive::ProgressPointer& progress,
             const Provider& provider) {
  Bytes source;
  // The callers' sizes are bounded by the whole-buffer size, so the declared size is safe here.
  source.reserve(static_cast<std::size_t>(size));
  std::int64_t position = 0;
  for (;;) {
    checkCancelled(progress);
    const auto count = std::clamp<std::int64_t>(size - position, 0, bufferSize);
    const auto chunk = provider(position, count);
    const auto used = std::min<std::size_t>(chunk.size(), static_cast<std::size_t>(count));
    source.insert(source.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(used));
    position += static_cast<std::int64_t>(used);
    if (progress) {
      progress->addCompletedUnitCount(static_cast<std::int64_t>(used));
    }
    if (static_cast<std::int64_t>(used) < bufferSize) {
      return source;
    }
  }
}

// Looks at the file, folder or symbolic link at `url` (never following a link) and calls `add`
// with what it found and a provider of its data: the file's bytes, nothing for a folder, the
// link's target text, read ahead through `block`. The provider is valid during the call only.
void withFileItem(const std::filesystem::path& url, Bytes& block,
                  const std::function<void(const ItemStatus&, const Provider&)>& add) {
  const auto item = preparation::inspect(url);
  const auto type = item.type;
  switch (type) {
  case EntryType::file: {
    const platform::UniqueFile source(std::fopen(url.c_str(), "rb"));
    if (!source) {
      throwPOSIXError(errno, url);
    }
    stream::ReadAhead reader(source.get(), static_cast<std::uint64_t>(item.size), block);
    add(item, [&](std::int64_t, std::int64_t count) {
      return reader.read(static_cast<std::size_t>(count));
    });
    break;
  }
  case EntryType::directory:
    add(item, [](std::int64_t, std::int64_t) { return Bytes{}; });
    break;
  case EntryType::symlink:
    add(item, [&](std::int64_t, std::int64_t) {
      const auto target = std::filesystem::read_symlink(url).native();
      return Bytes(target.begin(), target.end());
    });
    break;
  }
}

} // namespace

struct ArchiveWriting::NewEntry {
  std::string path;
  EntryType type;
  std::int64_t uncompressedSize;
  std::chrono::system_clock::time_point modificationDate;
  std::optional<std::uint16_t> permissions;
  CompressionMethod compressionMethod;
  std::int64_t bufferSize;
  const Archive::ProgressPointer& progress;
  const Provider& provider;
  // The file's data already deflated whole, when a worker prepared it.
  const preparation::PreparedFile* prepared = nullptr;
};

struct ArchiveWriting::FormerTail {
  // Where the central directory began: the new entry goes there.
  std::uint64_t offset = 0;
  // Everything from there to the end of the archive: central directory, end records, comment.
  Bytes bytes;
  std::uint64_t centralDirectorySize = 0;
  EndOfCentralDirectoryRecord endOfCentralDirectoryRecord;
  std::optional<ZIP64EndOfCentralDirectory> zip64EndOfCentralDirectory;

  ByteView centralDirectory() const {
    return ByteView(bytes).first(static_cast<std::size_t>(centralDirectorySize));
  }
};

ArchiveWriting::FormerTail ArchiveWriting::readFormerTail() const {
  std::FILE* file = archive_.archiveFile_.get();
  if (fseeko(file, 0, SEEK_END) != 0) {
    throw DataError(DataError::Code::unreadableFile);
  }
  const auto length = position(file);
  FormerTail tail;
  tail.offset = archive_.resolvedCentralDirectoryOffset();
  tail.centralDirectorySize = archive_.resolvedCentralDirectorySize();
  // A directory that does not lie inside the archive is damage; refusing it here also keeps a
  // forged size from reserving memory the file cannot fill.
  if (tail.offset > length || tail.centralDirectorySize > length - tail.offset) {
    throw ArchiveError(ArchiveError::Code::damagedCentralDirectory);
  }
  seek(file, tail.offset);
  tail.bytes = stream::readBytes(file, static_cast<std::size_t>(length - tail.offset));
  if (tail.bytes.size() != length - tail.offset) {
    throw DataError(DataError::Code::unreadableFile);
  }
  if (!fillsExactly(tail.centralDirectory(), archive_.resolvedEntryCount())) {
    throw ArchiveError(ArchiveError::Code::damagedCentralDirectory);
  }
  // The new entry is written over the directory: a local record reaching into it would be
  // overwritten, and its entry lost.
  for (const auto& entry : archive_) {
    const auto headerEnd =
        stream::add(entry.centralDirectoryStructure.resolvedLocalHeaderOffset(),
                    std::uint64_t{LocalFileHeader::size} + entry.localFileHeader.fileNameLength +
                        entry.localFileHeader.extraFieldLength);
    const auto dataEnd =
        headerEnd
            ? stream::add(*headerEnd, entry.centralDirectoryStructure.resolvedCompressedSize())
            : std::nullopt;
    if (!dataEnd || *dataEnd > tail.offset) {
      throw ArchiveError(ArchiveError::Code::damagedCentralDirectory);
    }
  }
  tail.endOfCentralDirectoryRecord = archive_.endOfCentralDirectoryRecord_;
  tail.zip64EndOfCentralDirectory = archive_.zip64EndOfCentralDirectory_;
  return tail;
}

void ArchiveWriting::restore(const FormerTail& tail, std::int64_t bufferSize) {
  std::FILE* file = archive_.archiveFile_.get();
  std::clearerr(file);
  try {
    archive_.truncate(tail.offset);
    write(file, tail.bytes, bufferSize);
    flush(file);
  } catch (const ArchiveError&) {
    throw DataError(DataError::Code::unwritableFile);
  }
  archive_.endOfCentralDirectoryRecord_ = tail.endOfCentralDirectoryRecord;
  archive_.zip64EndOfCentralDirectory_ = tail.zip64EndOfCentralDirectory;
}

CentralDirectoryStructure ArchiveWriting::writeLocalEntry(const NewEntry& entry,
                                                          std::uint64_t headerOffset) {
  std::FILE* file = archive_.archiveFile_.get();
  const auto dateTime = msdosDateTime(entry.modificationDate);
  const auto uncompressedSize = static_cast<std::uint64_t>(entry.uncompressedSize);
  const bool reserveZIP64 = needsZIP64LocalHeader(uncompressedSize);
  // The header goes first with the checksum and sizes still unknown, and is completed once the
  // data is written: in place while it is still collected (small entries), else by seeking back.
  stream::WriteBehind writer(file, archive_.writeBlock_);
  writer.write(makeLocalFileHeader(entry.path, entry.compressionMethod, dateTime, 0,
                                   {uncompressedSize, 0}, reserveZIP64)
                   .data());

  std::uint64_t written = 0;
  std::uint32_t checksum = 0;
  const auto& progress = entry.progress;
  const auto& provider = entry.provider;
  switch (entry.type) {
  case EntryType::file:
    if (entry.compressionMethod == CompressionMethod::deflate && entry.prepared) {
      checkCancelled(progress);
      checksum = entry.prepared->checksum;
      writer.write(entry.prepared->compressed);
      written = entry.prepared->compressed.size();
      if (progress) {
        progress->setCompletedUnitCount(entry.uncompressedSize);
      }
    } else if (entry.compressionMethod == CompressionMethod::deflate &&
               uncompressedSize <= whole::maximumSize) {
      const auto source = gather(entry.uncompressedSize, entry.bufferSize, progress, provider);
      checksum = crc32(source);
      Bytes compressed;
      whole::Deflater(archive_.compressionLevel_).deflate(source, compressed);
      writer.write(compressed);
      written = compressed.size();
    } else if (entry.compressionMethod == CompressionMethod::deflate) {
      const Provider counting = [&](std::int64_t position, std::int64_t count) {
        checkCancelled(progress);
        auto chunk = provider(position, count);
        if (progress) {
          progress->addCompletedUnitCount(static_cast<std::int64_t>(chunk.size()));
        }
        return chunk;
      };
      checksum = compress(
          entry.uncompressedSize, entry.bufferSize, counting,
          [&](ByteView chunk) {
            writer.write(chunk);
            written += chunk.size();
          },
          archive_.compressionLevel_);
    } else {
      // The position advances by whole chunks even when the provider returns fewer bytes: the
      // sizes and checksum then describe what it actually delivered.
      for (std::int64_t position = 0; position < entry.uncompressedSize;
           position += entry.bufferSize) {
        checkCancelled(progress);
        auto chunk =
            provider(position, std::min(entry.bufferSize, entry.uncompressedSize - position));
        chunk.resize(std::min<std::size_t>(
            chunk.size(), static_cast<std::size_t>(entry.uncompressedSize - position)));
        checksum = crc32(chunk, checksum);
        writer.write(chunk);
        written += chunk.size();
        if (progress) {
          progress->setCompletedUnitCount(static_cast<std::int64_t>(written));
        }
      }
    }
    break;
  case EntryType::directory:
    provider(0, 0);
    break;
  case EntryType::symlink: {
    auto target = provider(0, entry.uncompressedSize);
    target.resize(std::min<std::size_t>(target.size(), uncompressedSize));
    checksum = crc32(target);
    writer.write(target);
    written = target.size();
    break;
  }
  }
  if (entry.type != EntryType::file && progress) {
    progress->setCompletedUnitCount(progress->totalUnitCount());
  }

  const Sizes sizes{uncompressedSize, written};
  const bool zip64 = sizes.uncompressed >= zip64Marker32 || sizes.compressed >= zip64Marker32;
  if (zip64 && !reserveZIP64) {
    throw ArchiveError(ArchiveError::Code::compressedSizeBeyondHeader);
  }
  const auto header = makeLocalFileHeader(entry.path, entry.compressionMethod, dateTime, checksum,
                                          sizes, reserveZIP64);
  if (writer.overwrite(0, header.data())) {
    writer.flush();
  } else {
    writer.flush();
    const auto dataEnd = position(file);
    seek(file, headerOffset);
    write(file, header.data());
    seek(file, dataEnd);
  }
  return makeCentralDirectoryStructure(header, headerOffset,
                                       externalFileAttributes(entry.type, entry.permissions));
}

ArchiveWriting::NewEntry
ArchiveWriting::describe(const std::string& path, EntryType type, std::int64_t uncompressedSize,
                         std::chrono::system_clock::time_point modificationDate,
                         std::optional<std::uint16_t> permissions,
                         CompressionMethod compressionMethod, std::int64_t bufferSize,
                         const Archive::ProgressPointer& progress, const Provider& provider) {
  if (uncompressedSize < 0) {
    throw ArchiveError(ArchiveError::Code::negativeEntrySize);
  }
  // The name length field has 16 bits.
  if (path.size() > std::numeric_limits<std::uint16_t>::max()) {
    throw ArchiveError(ArchiveError::Code::invalidEntryPath);
  }
  if (progress) {
    progress->setTotalUnitCount(type == EntryType::directory ? 1 : uncompressedSize);
  }
  return {path,
          type,
          uncompressedSize,
          modificationDate,
          permissions,
          type == EntryType::file ? compressionMethod : CompressionMethod::none,
          bufferSize,
          progress,
          provider};
}

void ArchiveWriting::finishDirectory(const FormerTail& tail, ByteView newRecords,
                                     std::uint64_t newCount, std::int64_t bufferSize) {
  std::FILE* file = archive_.archiveFile_.get();
  const auto centralDirectoryOffset = position(file);
  write(file, tail.centralDirectory(), bufferSize);
  write(file, newRecords, bufferSize);
  const auto count = archive_.resolvedEntryCount();
  if (count > std::numeric_limits<std::uint64_t>::max() - newCount) {
    throw ArchiveError(ArchiveError::Code::invalidCentralDirectoryEntryCount);
  }
  const auto size = stream::add(tail.centralDirectorySize, newRecords.size());
  if (!size) {
    throw ArchiveError(ArchiveError::Code::invalidCentralDirectorySize);
  }
  const auto end =
      writeEndRecords({archive_.endOfCentralDirectoryRecord_, archive_.zip64EndOfCentralDirectory_},
                      *size, count + newCount, centralDirectoryOffset, position(file), file);
  // Whatever followed the former end record is gone with it.
  archive_.truncate(position(file));
  flush(file);
  archive_.endOfCentralDirectoryRecord_ = end.record;
  archive_.zip64EndOfCentralDirectory_ = end.zip64;
}

void ArchiveWriting::addEntry(const std::string& path, EntryType type,
                              std::int64_t uncompressedSize,
                              std::chrono::system_clock::time_point modificationDate,
                              std::optional<std::uint16_t> permissions,
                              CompressionMethod compressionMethod, std::int64_t bufferSize,
                              const Archive::ProgressPointer& progress, const Provider& provider) {
  archive_.checkWritable(bufferSize);
  const auto entry = describe(path, type, uncompressedSize, modificationDate, permissions,
                              compressionMethod, bufferSize, progress, provider);
  const auto tail = readFormerTail();
  try {
    seek(archive_.archiveFile_.get(), tail.offset);
    finishDirectory(tail, writeLocalEntry(entry, tail.offset).data(), 1, bufferSize);
  } catch (...) {
    restore(tail, bufferSize);
    throw;
  }
}

void ArchiveWriting::addEntry(const std::string& path, const std::filesystem::path& fileURL,
                              CompressionMethod compressionMethod, std::int64_t bufferSize,
                              const Archive::ProgressPointer& progress) {
  // The item is looked at first: a missing item is reported even for an archive opened for
  // reading.
  withFileItem(
      fileURL, archive_.readBlock_, [&](const ItemStatus& status, const Provider& provider) {
        addEntry(entryPathFor(path, status.type), status.type, status.size, status.modificationDate,
                 status.permissions, compressionMethod, bufferSize, progress, provider);
      });
}

void ArchiveWriting::addEntries(const std::vector<Archive::FileItem>& items,
                                CompressionMethod compressionMethod, std::int64_t bufferSize) {
  archive_.checkWritable(bufferSize);
  const auto tail = readFormerTail();
  std::FILE* file = archive_.archiveFile_.get();
  Bytes records;
  std::uint64_t count = 0;
  std::exception_ptr failure;
  // Workers read and deflate files ahead while this thread writes the entries in order; an
  // entry comes out the same either way.
  std::optional<preparation::Preparer> preparer;
  if (compressionMethod == CompressionMethod::deflate && items.size() > 1) {
    std::vector<std::filesystem::path> urls;
    urls.reserve(items.size());
    for (const auto& item : items) {
      urls.push_back(item.fileURL);
    }
    preparer.emplace(std::move(urls), archive_.compressionLevel_);
  }
  const Provider unused;
  try {
    seek(file, tail.offset);
    for (std::size_t index = 0; index < items.size(); ++index) {
      const auto& item = items[index];
      const auto start = position(file);
      try {
        if (const auto prepared = preparer ? preparer->take(index) : nullptr) {
          const auto& status = prepared->status;
          auto entry =
              describe(item.path, status.type, status.size, status.modificationDate,
                       status.permissions, compressionMethod, bufferSize, item.progress, unused);
          entry.prepared = prepared.get();
          const auto record = writeLocalEntry(entry, start).data();
          records.insert(records.end(), record.begin(), record.end());
          ++count;
          continue;
        }
        withFileItem(item.fileURL, archive_.readBlock_,
                     [&](const ItemStatus& status, const Provider& provider) {
                       const auto entry =
                           describe(entryPathFor(item.path, status.type), status.type, status.size,
                                    status.modificationDate, status.permissions, compressionMethod,
                                    bufferSize, item.progress, provider);
                       const auto record = writeLocalEntry(entry, start).data();
                       records.insert(records.end(), record.begin(), record.end());
                     });
        ++count;
      } catch (...) {
        // The entries before this one stay, as if each had been added on its own.
        failure = std::current_exception();
        archive_.truncate(start);
        break;
      }
    }
    finishDirectory(tail, records, count, bufferSize);
  } catch (...) {
    restore(tail, bufferSize);
    throw;
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

std::int64_t ArchiveWriting::totalUnitCount(const std::filesystem::path& url) {
  struct stat status {};
  if (lstat(url.c_str(), &status) != 0 || status.st_size < 0) {
    return -1;
  }
  return S_ISDIR(status.st_mode) ? 1 : static_cast<std::int64_t>(status.st_size);
}

} // namespace frameloom::ziploom
