#pragma once

#include <frameloom/ziploom/Archive.h>

#include <cstdint>
#include <filesystem>
#include <optional>

namespace frameloom::ziploom {

// Reads the data of one archive's entries: to a consumer, or out to the file system as a file,
// folder or link. Made for one call of Archive::extract on the caller's thread; it holds only a
// reference to the archive, whose stream and read and write blocks it uses. Throws what
// Archive::extract says.
class ArchiveReading {
public:
  explicit ArchiveReading(Archive& archive) : archive_(archive) {}

  // Units of progress for reading the entry: 1 for a directory, else its uncompressed size.
  static std::int64_t totalUnitCount(const Entry& entry);

  std::uint32_t extract(const Entry& entry, std::int64_t bufferSize, bool skipCRC32,
                        const Archive::ProgressPointer& progress, const Consumer& consumer);
  std::uint32_t extract(const Entry& entry, const std::filesystem::path& destination,
                        std::int64_t bufferSize, bool skipCRC32, bool allowUncontainedSymlinks,
                        const Archive::ProgressPointer& progress);

private:
  // Inflates an entry that fits a whole buffer in one step and hands it to `consumer`; nothing
  // (and nothing handed over) when it does not fit or does not inflate cleanly.
  std::optional<std::uint32_t> inflateWhole(const Entry& entry, std::int64_t bufferSize,
                                            bool skipCRC32, const Consumer& consumer);
  std::uint32_t readStored(const Entry& entry, std::int64_t bufferSize, bool skipCRC32,
                           const Consumer& consumer);
  std::uint32_t readSymlinkTarget(const Entry& entry, const Consumer& consumer);

  Archive& archive_;
};

} // namespace frameloom::ziploom
