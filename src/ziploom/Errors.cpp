#include <frameloom/ziploom/Errors.h>

#include <system_error>

namespace frameloom::ziploom {

namespace {

const char* describe(ArchiveError::Code code) {
  using Code = ArchiveError::Code;
  switch (code) {
  case Code::unreadableArchive:
    return "the archive cannot be read";
  case Code::unwritableArchive:
    return "the archive cannot be written";
  case Code::invalidEntryPath:
    return "the entry path is not valid";
  case Code::invalidCompressionMethod:
    return "the entry uses an unsupported compression method";
  case Code::invalidCRC32:
    return "the entry data does not match its CRC-32";
  case Code::cancelledOperation:
    return "the operation was cancelled";
  case Code::invalidBufferSize:
    return "the buffer size must be at least 1";
  case Code::invalidEntrySize:
    return "the entry size is not valid";
  case Code::invalidLocalHeaderDataOffset:
    return "the local header data offset is not valid";
  case Code::invalidLocalHeaderSize:
    return "the local header size is not valid";
  case Code::invalidCentralDirectoryOffset:
    return "the central directory offset is not valid";
  case Code::invalidCentralDirectorySize:
    return "the central directory size is not valid";
  case Code::invalidCentralDirectoryEntryCount:
    return "the central directory entry count is not valid";
  case Code::missingEndOfCentralDirectoryRecord:
    return "not a ZIP archive: no end of central directory record";
  case Code::uncontainedSymlink:
    return "a symbolic link points outside the destination";
  }
  return "unknown archive error";
}

const char* describe(FileError::Code code) {
  using Code = FileError::Code;
  switch (code) {
  case Code::fileReadNoSuchFile:
    return "no such file";
  case Code::fileWriteFileExists:
    return "the file already exists";
  case Code::fileReadNoPermission:
    return "no permission to read the file";
  case Code::fileReadTooLarge:
    return "the file is too large";
  case Code::fileReadInvalidFileName:
    return "the file name is not valid";
  }
  return "unknown file error";
}

} // namespace

ArchiveError::ArchiveError(Code code) : ZiploomError(describe(code)), code_(code) {}

DataError::DataError(Code code)
    : ZiploomError(code == Code::unreadableFile ? "the file cannot be read"
                                                : "the file cannot be written"),
      code_(code) {}

MemoryFileError::MemoryFileError(Code code)
    : ZiploomError("the in-memory archive cannot be opened as a stream"), code_(code) {}

EntryError::EntryError(Code code)
    : ZiploomError(code == Code::missingPermissionsAttributeError
                       ? "the permissions attribute is missing"
                       : "the modification date attribute is missing"),
      code_(code) {}

FileError::FileError(Code code, std::filesystem::path path)
    : ZiploomError(path.string() + ": " + describe(code)), code_(code), path_(std::move(path)) {}

CompressionError::CompressionError(Code code, const std::string& what)
    : ZiploomError(what), code_(code) {}

void throwPOSIXError(int errorNumber, const std::filesystem::path& path) {
  throw std::filesystem::filesystem_error(std::generic_category().message(errorNumber), path,
                                          std::error_code(errorNumber, std::generic_category()));
}

} // namespace frameloom::ziploom
