#pragma once

#include "ziploom/Bytes.h"
#include "ziploom/Errors.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Test support: archives assembled byte by byte, so that tests control every field, and a few
// helpers around external tools and temporary folders.
namespace ziploom::testsupport {

struct BuiltEntry {
  std::string name{};
  Bytes data{};
  bool deflate = false;
  std::uint16_t versionMadeBy = 0x0314; // UNIX
  std::uint32_t externalAttributes = 0100644u << 16;
  std::uint16_t flags = 0x0800;
  // Writes sizes and CRC-32 after the data (flag bit 3) and zeros in the local header.
  bool dataDescriptor = false;
  // Uses 0xFFFFFFFF markers with ZIP64 extra fields in both headers.
  bool zip64 = false;
};

struct BuildOptions {
  Bytes comment{};
  // Adds the ZIP64 end record and locator.
  bool zip64End = false;
  // Overrides the entry count the end records claim.
  std::int64_t claimedEntries = -1;
};

Bytes buildArchive(const std::vector<BuiltEntry>& entries, const BuildOptions& options = {});

Bytes bytesOf(const std::string& text);
Bytes readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, const Bytes& bytes);

// Runs a shell command and returns its standard output; fails the test when it exits non-zero.
std::string run(const std::string& command);
bool haveCommand(const std::string& name);
std::string quoted(const std::filesystem::path& path);

// The code of the ArchiveError the action throws; a test failure when it throws none.
template <typename Action>
ArchiveError::Code archiveErrorOf(Action action) {
  try {
    action();
  } catch (const ArchiveError& error) {
    return error.code();
  }
  ADD_FAILURE() << "no ArchiveError";
  return ArchiveError::Code::invalidEntrySize;
}

// A fresh folder under the temporary directory, removed with everything in it.
class TemporaryFolder {
public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
  std::filesystem::path path_;
};

} // namespace ziploom::testsupport
