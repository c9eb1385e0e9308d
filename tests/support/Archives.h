#pragma once

// ZIP archives for tests, assembled record by record so that a test controls every field and the
// archive does not come from the writer under test; and the entries of an archive read back.
// Everything here throws what Ziploom throws on unreadable input.

#include <frameloom/platform/core/Bytes.h>
#include <frameloom/ziploom/DataCallbacks.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

struct BuiltEntry {
  std::string name{};
  platform::Bytes data{};
  bool deflate = false;
  std::uint32_t externalAttributes = 0100644u << 16;
  std::uint16_t flags = 0x0800;
  // Writes sizes and CRC-32 after the data (flag bit 3) and zeros in the local header.
  bool dataDescriptor = false;
  // Uses 0xFFFFFFFF markers with ZIP64 extra fields in both headers.
  bool zip64 = false;
};

struct BuildOptions {
  platform::Bytes comment{};
  // Adds the ZIP64 end record and locator.
  bool zip64End = false;
  // Overrides the entry count the end records claim.
  std::int64_t claimedEntries = -1;
};

// An archive made on a UNIX host with the entries in order.
platform::Bytes buildArchive(const std::vector<BuiltEntry>& entries,
                             const BuildOptions& options = {});

// Entry path and content, in archive order; a path ending in "/" is a folder entry.
using ArchiveEntries = std::vector<std::pair<std::string, std::string>>;

// A deflated archive holding exactly `entries`, names taken as given.
platform::Bytes zipOf(const ArchiveEntries& entries);
void writeArchive(const std::filesystem::path& path, const ArchiveEntries& entries);
// The entries of the archive at `path`, in archive order.
ArchiveEntries entriesOf(const std::filesystem::path& path);
bool everyEntryStored(const std::filesystem::path& path);

// Serves the bytes of `source`, which must outlive it.
ziploom::Provider providerFor(const platform::Bytes& source);
// Appends every chunk to `bytes`, which must outlive it.
ziploom::Consumer appendTo(platform::Bytes& bytes);
// An extra-field block: the id, its size, and the values as 64-bit numbers.
platform::Bytes extraBlock(std::uint16_t id, std::initializer_list<std::uint64_t> values);

} // namespace frameloom::testing
