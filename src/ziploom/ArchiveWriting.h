#pragma once

#include <frameloom/ziploom/Archive.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace frameloom::ziploom {

namespace preparation {
struct PreparedFile;
}

// Adds entries to one archive in place: the new local records go where the central directory
// began, then the directory is written again with the new records last, then the end records.
// Any failure puts the former bytes back before the error is rethrown. Made for one call of
// Archive::addEntry or addEntries on the caller's thread; it holds only a reference to the
// archive. Throws what those say.
class ArchiveWriting {
public:
  explicit ArchiveWriting(Archive& archive) : archive_(archive) {}

  void addEntry(const std::string& path, Entry::EntryType type, std::int64_t uncompressedSize,
                std::chrono::system_clock::time_point modificationDate,
                std::optional<std::uint16_t> permissions, CompressionMethod compressionMethod,
                std::int64_t bufferSize, const Archive::ProgressPointer& progress,
                const Provider& provider);
  void addEntry(const std::string& path, const std::filesystem::path& fileURL,
                CompressionMethod compressionMethod, std::int64_t bufferSize,
                const Archive::ProgressPointer& progress);
  void addEntries(const std::vector<Archive::FileItem>& items, CompressionMethod compressionMethod,
                  std::int64_t bufferSize);

  // Units of progress for adding the item: 1 for a folder, else its size; -1 when unknown.
  static std::int64_t totalUnitCount(const std::filesystem::path& url);

private:
  struct NewEntry;
  struct FormerTail;

  // Checks an entry to add and sets its progress total.
  static NewEntry describe(const std::string& path, Entry::EntryType type,
                           std::int64_t uncompressedSize,
                           std::chrono::system_clock::time_point modificationDate,
                           std::optional<std::uint16_t> permissions,
                           CompressionMethod compressionMethod, std::int64_t bufferSize,
                           const Archive::ProgressPointer& progress, const Provider& provider);
  FormerTail readFormerTail() const;
  // Writes the local header and data of a new entry at `headerOffset` and returns its central
  // directory record; the stream is left after the data.
  CentralDirectoryStructure writeLocalEntry(const NewEntry& entry, std::uint64_t headerOffset);
  // Writes the former central directory, then `newRecords` for `newCount` new entries, then
  // the end records, at the current position, and takes the new end records.
  void finishDirectory(const FormerTail& tail, ByteView newRecords, std::uint64_t newCount,
                       std::int64_t bufferSize);
  void restore(const FormerTail& tail, std::int64_t bufferSize);

  Archive& archive_;
};

} // namespace frameloom::ziploom
