#include "OutputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace frameloom::tool {

namespace {

// Closes the file on every path.
struct File {
  std::FILE* handle;
  ~File() {
    if (handle != nullptr) {
      std::fclose(handle);
    }
  }
};

[[noreturn]] void fail(const std::string& path, int error) {
  throw std::runtime_error(path + ": cannot write: " + std::strerror(error));
}

} // namespace

void writeOutput(std::span<const std::uint8_t> bytes, const std::string& path) {
  if (isStandardStream(path)) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() ||
        std::fflush(stdout) != 0) {
      throw std::runtime_error(std::string("cannot write to standard output: ") +
                               std::strerror(errno));
    }
    return;
  }
  const std::string partial = path + ".partial";
  File file{std::fopen(partial.c_str(), "wb")};
  if (file.handle == nullptr) {
    fail(path, errno);
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.handle) == bytes.size();
  const int writeError = errno;
  const bool closed = std::fclose(file.handle) == 0;
  const int closeError = errno;
  file.handle = nullptr;
  std::error_code ignored;
  if (!written || !closed) {
    std::filesystem::remove(partial, ignored);
    fail(path, written ? closeError : writeError);
  }
  std::error_code error;
  std::filesystem::rename(partial, path, error);
  if (error) {
    std::filesystem::remove(partial, ignored);
    throw std::runtime_error(path + ": cannot write: " + error.message());
  }
}

} // namespace frameloom::tool
