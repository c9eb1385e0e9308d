#include "ziploom/Entry.h"

#include <gtest/gtest.h>

#include <string>

using namespace ziploom;
using EntryType = Entry::EntryType;
using frameloom::platform::TextEncoding;

namespace {

Entry makeEntry(const std::string& name, std::uint8_t host, std::uint32_t attributes,
                std::uint16_t flags = 0x0800) {
  Entry entry;
  auto& central = entry.centralDirectoryStructure;
  central.versionMadeBy = static_cast<std::uint16_t>(host << 8 | 20);
  central.externalFileAttributes = attributes;
  central.generalPurposeBitFlag = flags;
  central.fileNameData.assign(name.begin(), name.end());
  central.fileNameLength = static_cast<std::uint16_t>(name.size());
  return entry;
}

} // namespace

TEST(Entry, TypeFollowsTheHostSystemsAttributes) {
  EXPECT_EQ(makeEntry("docs", 0, 0x10).type(), EntryType::directory);
  EXPECT_EQ(makeEntry("docs", 0, 0x13).type(), EntryType::directory);
  EXPECT_EQ(makeEntry("docs", 0, 0x30).type(), EntryType::file);
  EXPECT_EQ(makeEntry("docs/", 0, 0x30).type(), EntryType::directory);
  EXPECT_EQ(makeEntry("dir/", 3, 0).type(), EntryType::directory);
  EXPECT_EQ(makeEntry("dir/", 3, 0100644u << 16).type(), EntryType::file);
  EXPECT_EQ(makeEntry("dir", 19, 040755u << 16).type(), EntryType::directory);
  EXPECT_EQ(makeEntry("link", 3, 0120777u << 16).type(), EntryType::symlink);
  EXPECT_EQ(makeEntry("link", 20, 0120777u << 16).type(), EntryType::file);
}

TEST(Entry, PermissionsComeFromUNIXModesOnly) {
  EXPECT_EQ(makeEntry("link", 3, 0120777u << 16).fileAttributes().posixPermissions, 0777);
  EXPECT_EQ(makeEntry("tool", 3, 0104755u << 16).fileAttributes().posixPermissions, 04755);
  EXPECT_EQ(makeEntry("file", 3, 0100000u << 16).fileAttributes().posixPermissions, 0644);
  EXPECT_EQ(makeEntry("dir/", 3, 0).fileAttributes().posixPermissions, 0755);
  EXPECT_EQ(makeEntry("file", 0, 0777u << 16).fileAttributes().posixPermissions, 0644);
}

TEST(Entry, ModificationDateIsMSDOSTimeInUTC) {
  auto entry = makeEntry("file", 3, 0);
  entry.centralDirectoryStructure.lastModFileDate = (46 << 9) | (11 << 5) | 23; // 2026-11-23
  entry.centralDirectoryStructure.lastModFileTime = (1 << 11) | (45 << 5) | 29; // 01:45:58
  EXPECT_EQ(std::chrono::system_clock::to_time_t(entry.fileAttributes().modificationDate),
            1795398358);
  // Day 0 of month 0 of 1980 normalises to 30 November 1979.
  entry.centralDirectoryStructure.lastModFileDate = 0;
  entry.centralDirectoryStructure.lastModFileTime = 0;
  EXPECT_EQ(std::chrono::system_clock::to_time_t(entry.fileAttributes().modificationDate),
            312768000);
}

TEST(Entry, PathDecodingFollowsTheUTF8Flag) {
  EXPECT_EQ(makeEntry("caf\xC3\xA9", 3, 0).path(), "caf\xC3\xA9");
  EXPECT_EQ(makeEntry("caf\xC3", 3, 0).path(), "");
  EXPECT_EQ(makeEntry("\xC0\xAF\xED\xA0\x80", 3, 0).path(), ""); // overlong "/", surrogate
  // Without the flag the same bytes are code page 437: 0x82 is e-acute.
  EXPECT_EQ(makeEntry("caf\x82", 3, 0, 0).path(), "caf\xC3\xA9");
  EXPECT_EQ(makeEntry("caf\x82", 3, 0, 0).path(TextEncoding::utf8), "");
  // The trailing slash that makes a directory is read from the flag-chosen path.
  EXPECT_EQ(makeEntry("\x82/", 0, 0, 0).type(), EntryType::directory);
}

TEST(Entry, DescriptorsTakePrecedenceForSizesAndChecksum) {
  auto entry = makeEntry("file", 3, 0, 0x0808);
  entry.centralDirectoryStructure.crc32 = 1;
  entry.centralDirectoryStructure.compressedSize = 10;
  entry.centralDirectoryStructure.uncompressedSize = 20;
  EXPECT_EQ(entry.checksum(), 0u);
  EXPECT_EQ(entry.uncompressedSize(), 20u);

  entry.dataDescriptor = Entry::DefaultDataDescriptor{};
  entry.dataDescriptor->crc32 = 2;
  entry.dataDescriptor->uncompressedSize = 30;
  entry.dataDescriptor->compressedSize = 15;
  EXPECT_EQ(entry.checksum(), 2u);
  EXPECT_EQ(entry.uncompressedSize(), 30u);
  entry.localFileHeader.compressionMethod = 8;
  entry.localFileHeader.fileNameLength = 4;
  EXPECT_EQ(entry.localRecordLength(), 30u + 4 + 15 + 16);

  entry.centralDirectoryStructure.generalPurposeBitFlag = 0x0800;
  EXPECT_EQ(entry.checksum(), 1u);
}
