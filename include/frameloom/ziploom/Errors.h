#pragma once

#include <filesystem>
#include <frameloom/platform/ZiploomExport.h>
#include <stdexcept>
#include <string>

// Ziploom's error types. Each carries a code so that callers can tell every case apart, and a
// one-line message. Failures of system calls are std::filesystem::filesystem_error (errno and
// path), made by throwPOSIXError.
namespace frameloom::ziploom {

class FRAMELOOM_ZIPLOOM_EXPORT ArchiveError : public std::runtime_error {
public:
  enum class Code {
    unreadableArchive,
    unwritableArchive,
    invalidEntryPath,
    invalidCompressionMethod,
    invalidCRC32,
    cancelledOperation,
    invalidBufferSize,
    invalidEntrySize,
    invalidLocalHeaderDataOffset,
    invalidLocalHeaderSize,
    invalidCentralDirectoryOffset,
    invalidCentralDirectorySize,
    invalidCentralDirectoryEntryCount,
    missingEndOfCentralDirectoryRecord,
    uncontainedSymlink,
  };
  explicit ArchiveError(Code code);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// Reading from or writing to a stream failed.
class FRAMELOOM_ZIPLOOM_EXPORT DataError : public std::runtime_error {
public:
  enum class Code { unreadableFile, unwritableFile };
  explicit DataError(Code code);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// The C library could not present an in-memory archive as a stream.
class FRAMELOOM_ZIPLOOM_EXPORT MemoryFileError : public std::runtime_error {
public:
  enum class Code { invalidMemoryFile };
  explicit MemoryFileError(Code code = Code::invalidMemoryFile);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// A file attribute needed for a symbolic link is missing.
class FRAMELOOM_ZIPLOOM_EXPORT EntryError : public std::runtime_error {
public:
  enum class Code { missingPermissionsAttributeError, missingModificationDateAttributeError };
  explicit EntryError(Code code);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// A file-system condition detected before any system call fails, with the path involved.
class FRAMELOOM_ZIPLOOM_EXPORT FileError : public std::runtime_error {
public:
  enum class Code {
    fileReadNoSuchFile,
    fileWriteFileExists,
    fileReadNoPermission,
    fileReadTooLarge,
    fileReadInvalidFileName,
  };
  FileError(Code code, std::filesystem::path path);
  Code code() const noexcept { return code_; }
  const std::filesystem::path& path() const noexcept { return path_; }

private:
  Code code_;
  std::filesystem::path path_;
};

// Throws std::filesystem::filesystem_error for the error number and path.
[[noreturn]] FRAMELOOM_ZIPLOOM_EXPORT void throwPOSIXError(int errorNumber,
                                                           const std::filesystem::path& path);

} // namespace frameloom::ziploom
