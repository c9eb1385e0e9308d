#pragma once

#include <frameloom/ziploom/Archive.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>

namespace frameloom::ziploom {

// Removes an entry from one archive by writing a complete new archive without it (in a scratch
// folder, or in memory for an archive in memory) and putting that in the former one's place.
// Made for one call of Archive::remove on the caller's thread; it holds only a reference to the
// archive. Throws what Archive::remove says.
class ArchiveRemoving {
public:
  explicit ArchiveRemoving(Archive& archive) : archive_(archive) {}

  void remove(const Entry& entry, std::int64_t bufferSize,
              const Archive::ProgressPointer& progress);
  // Units of progress for removing the entry: the bytes that will be copied.
  static std::int64_t totalUnitCount(const Archive& archive, const Entry& entry);

private:
  void copyLocalRecord(const Entry& entry, std::FILE* target, std::int64_t bufferSize,
                       const Archive::ProgressPointer& progress);
  void replaceFile(const std::filesystem::path& replacement);

  Archive& archive_;
};

} // namespace frameloom::ziploom
