#include <frameloom/ziploom/Entry.h>

#include <frameloom/ziploom/Defaults.h>

#include <sys/stat.h>

#include <ctime>

namespace frameloom::ziploom {

std::optional<Entry::EntryType> Entry::makeEntryType(int raw) {
  if (raw < 0 || raw > 2) {
    return std::nullopt;
  }
  return static_cast<EntryType>(raw);
}

std::string Entry::path(TextEncoding encoding) const {
  return decodeText(centralDirectoryStructure.fileNameData, encoding).value_or(std::string());
}

std::string Entry::path() const {
  return path(centralDirectoryStructure.hasUTF8Path() ? TextEncoding::utf8
                                                      : TextEncoding::codePage437);
}

Entry::EntryType Entry::type() const {
  const auto host = centralDirectoryStructure.hostSystem();
  const auto attributes = centralDirectoryStructure.externalFileAttributes;
  const bool slash = path().ends_with('/');
  if (host == hostUNIX || host == hostMacOS) {
    switch ((attributes >> 16) & S_IFMT) {
    case S_IFREG:
      return EntryType::file;
    case S_IFDIR:
      return EntryType::directory;
    case S_IFLNK:
      return EntryType::symlink;
    default:
      return slash ? EntryType::directory : EntryType::file;
    }
  }
  // The MS-DOS directory attribute counts only when no bit above the low four accompanies it.
  if (host == hostMSDOS && (attributes & ~0xFu) == 0x10) {
    return EntryType::directory;
  }
  return slash ? EntryType::directory : EntryType::file;
}

std::uint32_t Entry::checksum() const {
  if (centralDirectoryStructure.hasDataDescriptor()) {
    if (zip64DataDescriptor) {
      return zip64DataDescriptor->crc32;
    }
    return dataDescriptor ? dataDescriptor->crc32 : 0;
  }
  return centralDirectoryStructure.crc32;
}

std::uint64_t Entry::uncompressedSize() const {
  if (centralDirectoryStructure.isZIP64Format()) {
    return zip64DataDescriptor ? zip64DataDescriptor->uncompressedSize
                               : centralDirectoryStructure.resolvedUncompressedSize();
  }
  return dataDescriptor ? dataDescriptor->uncompressedSize
                        : centralDirectoryStructure.uncompressedSize;
}

std::uint64_t Entry::compressedSize() const {
  if (centralDirectoryStructure.isZIP64Format()) {
    return zip64DataDescriptor ? zip64DataDescriptor->compressedSize
                               : centralDirectoryStructure.resolvedCompressedSize();
  }
  return dataDescriptor ? dataDescriptor->compressedSize : centralDirectoryStructure.compressedSize;
}

FileAttributes Entry::fileAttributes() const {
  const auto kind = type();
  const std::uint16_t defaultPermissions =
      kind == EntryType::directory ? defaultDirectoryPermissions : defaultFilePermissions;

  const auto host = centralDirectoryStructure.hostSystem();
  std::uint16_t permissions = defaultPermissions;
  if (host == hostUNIX || host == hostMacOS) {
    const auto mode = static_cast<std::uint16_t>(
        (centralDirectoryStructure.externalFileAttributes >> 16) & 07777);
    permissions = mode == 0 ? defaultPermissions : mode;
  }

  // MS-DOS date and time fields, read as UTC; timegm normalises fields out of range.
  const auto time = centralDirectoryStructure.lastModFileTime;
  const auto date = centralDirectoryStructure.lastModFileDate;
  std::tm fields{};
  fields.tm_sec = (time & 31) * 2;
  fields.tm_min = (time >> 5) & 63;
  fields.tm_hour = (time >> 11) & 31;
  fields.tm_mday = date & 31;
  fields.tm_mon = ((date >> 5) & 15) - 1;
  fields.tm_year = 1980 + ((date >> 9) & 127) - 1900;
  const auto seconds = timegm(&fields);
  return {permissions, std::chrono::system_clock::from_time_t(seconds)};
}

std::uint64_t Entry::localRecordLength() const {
  std::uint64_t length =
      LocalFileHeader::size + localFileHeader.fileNameLength + localFileHeader.extraFieldLength;
  length += localFileHeader.compressionMethod != 0 ? compressedSize() : uncompressedSize();
  if (centralDirectoryStructure.isZIP64Format()) {
    length += zip64DataDescriptor ? ZIP64DataDescriptor::size : 0;
  } else {
    length += dataDescriptor ? DefaultDataDescriptor::size : 0;
  }
  return length;
}

bool operator==(const Entry& lhs, const Entry& rhs) {
  return lhs.localFileHeader.crc32 == rhs.localFileHeader.crc32 &&
         lhs.centralDirectoryStructure.resolvedLocalHeaderOffset() ==
             rhs.centralDirectoryStructure.resolvedLocalHeaderOffset() &&
         lhs.path() == rhs.path();
}

} // namespace frameloom::ziploom
