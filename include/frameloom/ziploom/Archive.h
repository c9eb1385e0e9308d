#pragma once

#include <frameloom/platform/core/Progress.h>
#include <frameloom/platform/system/UniqueFile.h>
#include <frameloom/ziploom/AccessMode.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/DataCallbacks.h>
#include <frameloom/ziploom/Defaults.h>
#include <frameloom/ziploom/Entry.h>
#include <frameloom/ziploom/MemoryFile.h>
#include <frameloom/ziploom/Records.h>
#include <frameloom/ziploom/Text.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <frameloom/platform/ZiploomExport.h>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace frameloom::ziploom {

// One ZIP archive, backed by a file or by bytes in memory. Owns the one stdio stream through
// which everything is read and written, and closes it when destroyed. Opening reads only the end
// of central directory records; entries are read from the central directory on each enumeration.
//
// Not thread-safe: every operation seeks the shared stream, so use an archive from one thread
// at a time. Throws ArchiveError, DataError, MemoryFileError, FileError, the errors of
// ziploom::decompress and std::filesystem::filesystem_error for failing system calls.
class FRAMELOOM_ZIPLOOM_EXPORT Archive {
public:
  using AccessMode = ziploom::AccessMode;
  using EndOfCentralDirectoryRecord = ziploom::EndOfCentralDirectoryRecord;
  using ZIP64EndOfCentralDirectoryRecord = ziploom::ZIP64EndOfCentralDirectoryRecord;
  using ZIP64EndOfCentralDirectoryLocator = ziploom::ZIP64EndOfCentralDirectoryLocator;
  using ZIP64EndOfCentralDirectory = ziploom::ZIP64EndOfCentralDirectory;
  using MemoryFile = ziploom::MemoryFile;
  using ProgressPointer = std::shared_ptr<frameloom::platform::Progress>;
  using TextEncoding = ziploom::TextEncoding;

  // Walks the central directory in order. Ends silently at the first record that cannot be
  // read, and at the first encrypted entry.
  class Iterator {
  public:
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using iterator_concept = std::input_iterator_tag;

    Iterator() = default;
    const Entry& operator*() const { return *current_; }
    const Entry* operator->() const { return &*current_; }
    Iterator& operator++();
    void operator++(int) { ++*this; }
    bool operator==(std::default_sentinel_t) const { return !current_; }

  private:
    friend class Archive;
    explicit Iterator(const Archive* archive);

    const Archive* archive_ = nullptr;
    std::uint64_t total_ = 0;
    std::uint64_t index_ = 0;
    std::uint64_t position_ = 0;
    std::optional<Entry> current_;
  };

  // Opens the archive at `url`; `create` first writes an empty archive there and fails when
  // something exists. `pathEncoding`, when given, decodes every entry path for lookups. Throws
  // ZiploomError, or std::filesystem::filesystem_error when the file cannot be opened.
  Archive(const std::filesystem::path& url, AccessMode accessMode,
          std::optional<TextEncoding> pathEncoding = std::nullopt);
  // Opens an archive over `data` in memory (empty for `create`).
  Archive(Bytes data, AccessMode accessMode,
          std::optional<TextEncoding> pathEncoding = std::nullopt);

  // The same, with nothing returned when the archive cannot be opened (a ZiploomError or a
  // system error, whose reason the constructors above report). Running out of memory and other
  // faults still propagate.
  static std::unique_ptr<Archive>
  make(const std::filesystem::path& url, AccessMode accessMode,
       std::optional<TextEncoding> preferredEncoding = std::nullopt);
  static std::unique_ptr<Archive>
  make(Bytes data, AccessMode accessMode,
       std::optional<TextEncoding> preferredEncoding = std::nullopt);

  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  ~Archive();

  // The archive's path, or "memory://" for an archive in memory.
  const std::string& url() const { return url_; }
  AccessMode accessMode() const { return accessMode_; }
  bool isMemoryBacked() const { return memoryFile_ != nullptr; }
  // A copy of the bytes of an archive in memory; nothing for a file-backed one.
  std::optional<Bytes> data() const;

  Iterator begin() const { return Iterator(this); }
  std::default_sentinel_t end() const { return {}; }
  // The first entry whose path is canonically equivalent to `path` (no other normalisation).
  std::optional<Entry> operator[](std::string_view path) const;

  // Entry counts and central directory position, from the ZIP64 end record when there is one.
  std::uint64_t resolvedEntryCount() const;
  std::uint64_t resolvedCentralDirectoryOffset() const;
  std::uint64_t resolvedCentralDirectorySize() const;

  // Whether enumeration stops before it has seen as many entries as the end record promises:
  // a damaged central record, a missing local header or an encrypted entry ends it early.
  bool endsEarly() const;
  // Throws ArchiveError::invalidLocalHeaderDataOffset when the local header and data of two
  // entries overlap (or run past 64 bits). Such an archive could unpack the same few bytes again
  // and again; nothing the library writes looks like that.
  void checkDataRangesDisjoint() const;
  // The most bytes an extraction of every entry can produce: the declared uncompressed sizes of
  // files and the lengths of link targets. Extraction never yields more than declared.
  std::uint64_t declaredExtractionSize() const;

  // Units of progress for reading the entry: 1 for a directory, else its uncompressed size.
  static std::int64_t totalUnitCountForReading(const Entry& entry);

  // Streams the entry's data to `consumer` in chunks of at most `bufferSize` bytes and returns
  // the CRC-32 of what was produced (0 when `skipCRC32`, except for links, whose target is
  // always checked). Does not compare it with entry.checksum(). Cancelling `progress` stops
  // the extraction with ArchiveError::cancelledOperation before the next chunk. Data that
  // inflates past the size the central record declares is refused with
  // CompressionError::corruptedData at the first byte beyond it; a link target longer than
  // maximumSymlinkTargetLength with ArchiveError::invalidEntryPath.
  std::uint32_t extract(const Entry& entry, std::int64_t bufferSize, bool skipCRC32,
                        const ProgressPointer& progress, const Consumer& consumer);
  std::uint32_t extract(const Entry& entry, const Consumer& consumer);

  // Creates the entry at `destination` (the item itself, not its parent) as a file, directory
  // or symbolic link, with its permissions and modification date, and returns the CRC-32 as
  // above. Refuses to replace anything that exists, and refuses links that point outside the
  // destination's parent unless `allowUncontainedSymlinks`.
  std::uint32_t extract(const Entry& entry, const std::filesystem::path& destination,
                        std::int64_t bufferSize = defaultReadChunkSize, bool skipCRC32 = false,
                        bool allowUncontainedSymlinks = false,
                        const ProgressPointer& progress = nullptr);

  // Adding entries. The archive is changed in place: the entry goes where the central directory
  // began, the directory is written again after it with the new record last, then the end
  // records. Any failure, a cancelled progress included, puts the former bytes back before the
  // error is rethrown. Throws ArchiveError::unwritableArchive for an archive opened for reading.

  // Tags that tell apart the forms that take a file-system path.
  struct RelativeTo {
    std::filesystem::path baseURL;
  };
  struct FileURL {
    std::filesystem::path fileURL;
  };

  // Adds the item at `base.baseURL` with `path` appended as a path component (an absolute path
  // too stays below the base) under `path`.
  void addEntry(const std::string& path, const RelativeTo& base,
                CompressionMethod compressionMethod = CompressionMethod::none,
                std::int64_t bufferSize = defaultWriteChunkSize,
                const ProgressPointer& progress = nullptr);
  // Adds the file, folder (its path then ends in "/") or symbolic link at `item.fileURL` under
  // `path` with its size, modification date and mode. Throws FileError when it is missing,
  // unreadable, or neither a regular file, a folder nor a link.
  void addEntry(const std::string& path, const FileURL& item,
                CompressionMethod compressionMethod = CompressionMethod::none,
                std::int64_t bufferSize = defaultWriteChunkSize,
                const ProgressPointer& progress = nullptr);
  // Adds an entry whose data `provider` delivers in chunks of at most `bufferSize` bytes: a
  // file's contents, a link's target text, nothing for a directory. Directories and links are
  // always stored; the path and size are written as given, for a directory too. Throws
  // ArchiveError::invalidEntryPath for a path longer than 65,535 bytes,
  // ArchiveError::negativeEntrySize for a negative size.
  void addEntry(const std::string& path, Entry::EntryType type, std::int64_t uncompressedSize,
                std::chrono::system_clock::time_point modificationDate,
                std::optional<std::uint16_t> permissions, CompressionMethod compressionMethod,
                std::int64_t bufferSize, const ProgressPointer& progress, const Provider& provider);
  // One item for addEntries: its entry path, the file-system item, its own progress record.
  struct FileItem {
    std::string path;
    std::filesystem::path fileURL;
    ProgressPointer progress;
  };
  // Adds the items in order as the FileURL form does, but writes the central directory once,
  // after the last item, so the work grows with the items rather than with their square. When
  // an item fails, the entries before it stay (as if added one by one) and its error is rethrown.
  // Deflated files are read and compressed ahead on a few threads of the call's own, joined
  // before it returns; the archive is byte for byte the one adding them one by one would make.
  void addEntries(const std::vector<FileItem>& items,
                  CompressionMethod compressionMethod = CompressionMethod::none,
                  std::int64_t bufferSize = defaultWriteChunkSize);
  // The deflate level of the entries added from now on, from fastestCompressionLevel (1) to
  // smallestCompressionLevel (9); defaultCompressionLevel (6) until set. An addition to what the
  // original archive API offers. Throws ArchiveError::invalidCompressionMethod for another level.
  void setCompressionLevel(int level);
  int compressionLevel() const noexcept { return compressionLevel_; }
  // Units of progress for adding the item: 1 for a folder, else its size; -1 when unknown.
  static std::int64_t totalUnitCountForAddingItem(const std::filesystem::path& url);

  // Removing an entry. A complete new archive without the entry is written in a scratch folder
  // of the system's temporary folders, one on the archive's file system when there is one (in
  // memory for an archive in memory), and then takes its place, so a failed or cancelled removal
  // changes nothing and leaves no scratch folder behind. Entries taken from the archive before
  // are stale after. Throws ArchiveError::invalidEntryPath when the entry is not one of this
  // archive's, ArchiveError::damagedCentralDirectory when its enumeration stops early.
  void remove(const Entry& entry, std::int64_t bufferSize = defaultReadChunkSize,
              const ProgressPointer& progress = nullptr);
  // Units of progress for removing the entry: the bytes that will be copied.
  std::int64_t totalUnitCountForRemoving(const Entry& entry) const;

private:
  // Reading, adding and removing entries are carried out by internal units of their own, which
  // work on the stream, end records and blocks below.
  friend class ArchiveReading;
  friend class ArchiveWriting;
  friend class ArchiveRemoving;

  void checkWritable(std::int64_t bufferSize) const;
  // Cuts the archive's bytes at `length` and moves there.
  void truncate(std::uint64_t length);

  struct BackingConfiguration {
    platform::UniqueFile file;
    EndOfCentralDirectoryRecord endOfCentralDirectoryRecord;
    std::optional<ZIP64EndOfCentralDirectory> zip64EndOfCentralDirectory;
    std::shared_ptr<MemoryFile> memoryFile;
  };

  static BackingConfiguration openBacking(const std::filesystem::path& url, AccessMode mode);
  static BackingConfiguration openBacking(Bytes data, AccessMode mode);
  // The entry whose central directory record starts at `position`, advancing it past the record.
  std::optional<Entry> readEntry(std::uint64_t& position) const;

  std::string url_;
  AccessMode accessMode_;
  platform::UniqueFile archiveFile_;
  EndOfCentralDirectoryRecord endOfCentralDirectoryRecord_;
  std::optional<ZIP64EndOfCentralDirectory> zip64EndOfCentralDirectory_;
  std::optional<TextEncoding> pathEncoding_;
  std::shared_ptr<MemoryFile> memoryFile_;
  int compressionLevel_ = defaultCompressionLevel;
  // Blocks lent to stream::ReadAhead and stream::WriteBehind while an entry's data is moved, kept
  // from one entry to the next.
  Bytes readBlock_;
  Bytes writeBlock_;
};

} // namespace frameloom::ziploom
