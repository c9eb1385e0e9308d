#include "Support.h"

#include <frameloom/ziploom/Errors.h>

#include <sys/stat.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

struct Collected {
  Bytes bytes;
  std::vector<std::size_t> chunks;
  Consumer consumer() {
    return [this](ByteView chunk) {
      chunks.push_back(chunk.size());
      bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    };
  }
};

Bytes patterned(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>((i * 7919) >> 3);
  }
  return bytes;
}

BuiltEntry symlinkEntry(const std::string& name, const std::string& target) {
  return {.name = name, .data = bytesOf(target), .externalAttributes = 0120777u << 16};
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

} // namespace

TEST(Extraction, EveryKindOfEntryArrivesInBoundedChunksWithItsChecksum) {
  const auto data = patterned(3 * 4096);
  auto deferredLink = symlinkEntry("deferred link", "target-one");
  deferredLink.dataDescriptor = true;
  auto wideLink = symlinkEntry("wide link", "target-two");
  wideLink.zip64 = true;
  Archive archive(buildArchive({{.name = "stored", .data = data},
                                {.name = "deflated", .data = data, .deflate = true},
                                {.name = "described", .data = data, .dataDescriptor = true},
                                {.name = "wide", .data = data, .deflate = true, .zip64 = true},
                                {.name = "empty"},
                                deferredLink,
                                wideLink}),
                  AccessMode::read);
  for (const auto& entry : archive) {
    SCOPED_TRACE(entry.path());
    Collected collected;
    const auto checksum = archive.extract(entry, 4096, false, nullptr, collected.consumer());
    EXPECT_EQ(checksum, entry.checksum());
    EXPECT_EQ(checksum, crc32(collected.bytes));
    EXPECT_EQ(collected.bytes.size(), entry.uncompressedSize());
    EXPECT_LE(*std::max_element(collected.chunks.begin(), collected.chunks.end()), 4096u);
  }
  // Link targets whose local sizes are deferred or ZIP64 markers come from the central directory.
  Collected link, empty;
  archive.extract(*archive["deferred link"], link.consumer());
  EXPECT_EQ(link.bytes, bytesOf("target-one"));
  EXPECT_EQ(archive.extract(*archive["empty"], 4096, false, nullptr, empty.consumer()), 0u);
  EXPECT_EQ(empty.chunks, std::vector<std::size_t>{0});
  EXPECT_EQ(archive.extract(*archive["deflated"], 4096, true, nullptr, Collected().consumer()), 0u);
  EXPECT_EQ(
      errorOf<ArchiveError>([&] { archive.extract(*archive["stored"], 0, false, nullptr, {}); }),
      ArchiveError::Code::invalidBufferSize);
}

TEST(Extraction, DamagedDataEndsInAnErrorOrAShortResult) {
  const auto data = patterned(50000);
  auto bytes = buildArchive({{.name = "deflated", .data = data, .deflate = true}});
  for (std::size_t i = 30 + 8 + 10; i < 30 + 8 + 200; ++i) {
    bytes[i] ^= 0x5A;
  }
  Archive damaged(bytes, AccessMode::read);
  EXPECT_THROW(damaged.extract(*damaged["deflated"], Collected().consumer()), CompressionError);
  bytes[8] = 12; // a method other than stored or deflate
  Archive unknown(bytes, AccessMode::read);
  EXPECT_EQ(
      errorOf<ArchiveError>([&] { unknown.extract(*unknown.begin(), Collected().consumer()); }),
      ArchiveError::Code::invalidCompressionMethod);

  // A stored entry that claims more bytes than the archive holds yields what is there, even
  // with an absurd ZIP64 size.
  Archive shortArchive(
      buildArchive({{.name = "stored", .data = Bytes(data.begin(), data.begin() + 1000)}}),
      AccessMode::read);
  auto lying = *shortArchive.begin();
  lying.centralDirectoryStructure.uncompressedSize = 50000;
  Collected collected;
  shortArchive.extract(lying, 4096, false, nullptr, collected.consumer());
  EXPECT_GE(collected.bytes.size(), 1000u);
  EXPECT_LT(collected.bytes.size(), 50000u);
  EXPECT_TRUE(std::equal(data.begin(), data.begin() + 1000, collected.bytes.begin()));
  ZIP64ExtendedInformation huge;
  huge.uncompressedSize = 1ull << 62;
  lying.centralDirectoryStructure.extraFields.push_back(huge);
  Collected hugeCollected;
  shortArchive.extract(lying, 4096, false, nullptr, hugeCollected.consumer());
  EXPECT_EQ(hugeCollected.bytes, collected.bytes);
}

TEST(Extraction, FilesFoldersAndLinksLandWithTheirAttributesAndReplaceNothing) {
  TemporaryFolder folder;
  Archive archive(buildArchive({{.name = "bin/tool",
                                 .data = bytesOf("#!/bin/sh\n"),
                                 .externalAttributes = 0100750u << 16},
                                {.name = "data/", .externalAttributes = 040700u << 16},
                                symlinkEntry("bin/current", "tool")}),
                  AccessMode::read);
  for (const auto& entry : archive) {
    archive.extract(entry, folder / entry.path());
  }
  EXPECT_EQ(statusOf(folder / "bin/tool").st_mode & 07777, 0750u);
  EXPECT_EQ(statusOf(folder / "data").st_mode & 07777, 0700u);
  EXPECT_EQ(readFile(folder / "bin/tool"), bytesOf("#!/bin/sh\n"));
  EXPECT_EQ(fs::read_symlink(folder / "bin/current"), "tool");
  const auto date =
      std::chrono::system_clock::to_time_t(archive["bin/tool"]->fileAttributes().modificationDate);
  for (const auto* path : {"bin/tool", "bin/current"}) {
    EXPECT_EQ(statusOf(folder / path).st_mtime, date) << path;
  }

  // Extracting a folder again is fine; a file or link never replaces what is there, nor writes
  // through a dangling link.
  archive.extract(*archive["data/"], folder / "data");
  writeFile(folder / "kept", bytesOf("mine"));
  fs::create_symlink(folder / "nowhere", folder / "dangling");
  for (const auto* occupied : {"kept", "dangling"}) {
    EXPECT_EQ(errorOf<FileError>([&] { archive.extract(*archive["bin/tool"], folder / occupied); }),
              FileError::Code::fileWriteFileExists);
  }
  EXPECT_EQ(readFile(folder / "kept"), bytesOf("mine"));
  EXPECT_FALSE(fs::exists(folder / "nowhere"));
}
