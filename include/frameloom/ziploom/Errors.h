#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

// Every error Ziploom raises itself, in one place. Each type carries a code so that callers can
// tell every case apart, and a one-line message; all derive from ZiploomError, so one catch takes
// them all. Failures of system calls are std::filesystem::filesystem_error (errno and path), made
// by throwPOSIXError.
namespace frameloom::ziploom {

// The base of every Ziploom error.
class ZiploomError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// What an archive operation refuses or cannot do.
class ArchiveError : public ZiploomError {
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
class DataError : public ZiploomError {
public:
  enum class Code { unreadableFile, unwritableFile };
  explicit DataError(Code code);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// The C library could not present an in-memory archive as a stream.
class MemoryFileError : public ZiploomError {
public:
  enum class Code { invalidMemoryFile };
  explicit MemoryFileError(Code code = Code::invalidMemoryFile);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// A file attribute needed for a symbolic link is missing.
class EntryError : public ZiploomError {
public:
  enum class Code { missingPermissionsAttributeError, missingModificationDateAttributeError };
  explicit EntryError(Code code);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// A file-system condition detected before any system call fails, with the path involved.
class FileError : public ZiploomError {
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

// Raised by compress and decompress when the deflate stream cannot be set up (invalidStream) or
// when processing reports an error, such as corrupt or truncated compressed data (corruptedData).
class CompressionError : public ZiploomError {
public:
  enum class Code { invalidStream, corruptedData };

  CompressionError(Code code, const std::string& what);
  Code code() const noexcept { return code_; }

private:
  Code code_;
};

// Throws std::filesystem::filesystem_error for the error number and path.
[[noreturn]] void throwPOSIXError(int errorNumber, const std::filesystem::path& path);

} // namespace frameloom::ziploom
