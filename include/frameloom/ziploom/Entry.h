#pragma once

#include <frameloom/ziploom/Records.h>
#include <frameloom/ziploom/Text.h>

#include <chrono>
#include <cstdint>
#include <frameloom/platform/ZiploomExport.h>
#include <optional>
#include <string>

namespace frameloom::ziploom {

// The attributes an extracted item receives: POSIX permission bits and modification date.
struct FRAMELOOM_ZIPLOOM_EXPORT FileAttributes {
  std::uint16_t posixPermissions = 0;
  std::chrono::system_clock::time_point modificationDate;
};

// One member of an archive, as found in its central directory: an immutable snapshot of the
// member's records from which its type, path, sizes, checksum and attributes are derived on each
// access. Entries are not updated when the archive changes. Nothing here throws except
// path decoding when the C library offers no code page 437 conversion.
struct FRAMELOOM_ZIPLOOM_EXPORT Entry {
  using LocalFileHeader = ziploom::LocalFileHeader;
  using CentralDirectoryStructure = ziploom::CentralDirectoryStructure;
  using DefaultDataDescriptor = DataDescriptor<std::uint32_t>;
  using ZIP64DataDescriptor = DataDescriptor<std::uint64_t>;

  enum class EntryType : int { file = 0, directory = 1, symlink = 2 };
  static std::optional<EntryType> makeEntryType(int raw);

  // The host systems whose external attributes carry a UNIX mode or MS-DOS attributes.
  static constexpr std::uint8_t hostMSDOS = 0;
  static constexpr std::uint8_t hostUNIX = 3;
  static constexpr std::uint8_t hostMacOS = 19;

  CentralDirectoryStructure centralDirectoryStructure;
  LocalFileHeader localFileHeader;
  std::optional<DefaultDataDescriptor> dataDescriptor;
  std::optional<ZIP64DataDescriptor> zip64DataDescriptor;

  // The stored name decoded with the given encoding; empty when the bytes are not valid in it.
  std::string path(TextEncoding encoding) const;
  // The stored name decoded as UTF-8 when flag bit 11 is set, else as code page 437.
  std::string path() const;
  EntryType type() const;
  std::uint32_t checksum() const;
  std::uint64_t uncompressedSize() const;
  std::uint64_t compressedSize() const;
  bool isCompressed() const { return localFileHeader.compressionMethod != 0; }
  FileAttributes fileAttributes() const;
  // Bytes the entry occupies in the archive: local header, data and data descriptor.
  std::uint64_t localRecordLength() const;

  // Same path, same local CRC-32 and same local header offset.
  friend bool operator==(const Entry& lhs, const Entry& rhs);
};

} // namespace frameloom::ziploom
