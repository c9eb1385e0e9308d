#pragma once

#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/DataCallbacks.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Test support: archives assembled byte by byte, so that tests control every field; temporary
// folders, files and trees; and the outside tools (Info-ZIP, Python's zipfile) tests compare with.
namespace frameloom::ziploom::testsupport {

namespace fs = std::filesystem;

struct BuiltEntry {
  std::string name{};
  Bytes data{};
  bool deflate = false;
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

// An archive made on a UNIX host with the entries in order.
Bytes buildArchive(const std::vector<BuiltEntry>& entries, const BuildOptions& options = {});

Bytes bytesOf(const std::string& text);
Bytes randomBytes(std::size_t count, unsigned seed = 42);
// Serves the bytes of `source`, which must outlive it.
Provider providerFor(const Bytes& source);
// Appends every chunk to `bytes`, which must outlive it.
Consumer appendTo(Bytes& bytes);
// An extra-field block: the id, its size, and the values as 64-bit numbers.
Bytes extraBlock(std::uint16_t id, std::initializer_list<std::uint64_t> values);
// The entries' paths in central-directory order.
std::vector<std::string> paths(const Archive& archive);
Bytes readFile(const fs::path& path);
void writeFile(const fs::path& path, const Bytes& bytes);

// Runs a shell command and returns its standard output; a test failure when it exits non-zero.
std::string run(const std::string& command);
// True when the command exits with status 0; its output is discarded.
bool succeeds(const std::string& command);
// The path as one shell word.
std::string quoted(const fs::path& path);
// The system's Python, which starts much faster than a version manager's shim in front of it.
std::string python();
bool infoZipAccepts(const fs::path& archive);
bool pythonAccepts(const fs::path& archive);

// The code of the `Error` the action throws; a test failure when it throws none.
template <typename Error, typename Action>
typename Error::Code errorOf(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.code();
  }
  ADD_FAILURE() << "the expected error was not thrown";
  return {};
}

// A fresh folder under the temporary directory, removed with everything in it.
class TemporaryFolder {
public:
  TemporaryFolder();
  ~TemporaryFolder() { fs::remove_all(path_, ignored_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const fs::path& path() const { return path_; }
  fs::path operator/(const fs::path& name) const { return path_ / name; }

private:
  fs::path path_;
  std::error_code ignored_;
};

// What a tree holds, item by item: type, contents or link target, permissions and modification
// time in whole seconds rounded down to even (the resolution of ZIP dates).
struct Item {
  fs::file_type type;
  Bytes contents;
  unsigned mode;
  long time;
  bool operator==(const Item&) const = default;
};
std::map<std::string, Item> snapshot(const fs::path& root);

} // namespace frameloom::ziploom::testsupport
