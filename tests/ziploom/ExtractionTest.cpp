#include "ArchiveBuilder.h"

#include "ziploom/Archive.h"
#include "ziploom/Compression.h"
#include "ziploom/Errors.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace ziploom;
using namespace ziploom::testsupport;
using AccessMode = Archive::AccessMode;
using frameloom::platform::Progress;

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

} // namespace

TEST(Extraction, StoredAndDeflatedDataArriveInBoundedChunksWithTheirChecksum) {
  const auto data = patterned(3 * 4096);
  Archive archive(buildArchive({{.name = "stored", .data = data},
                                {.name = "deflated", .data = data, .deflate = true},
                                {.name = "described", .data = data, .dataDescriptor = true},
                                {.name = "empty", .data = {}}}),
                  AccessMode::read);
  for (const auto& entry : archive) {
    Collected collected;
    const auto checksum = archive.extract(entry, 4096, false, nullptr, collected.consumer());
    EXPECT_EQ(checksum, entry.checksum()) << entry.path();
    EXPECT_EQ(checksum, crc32(collected.bytes)) << entry.path();
    EXPECT_EQ(collected.bytes.size(), entry.uncompressedSize()) << entry.path();
    EXPECT_LE(*std::max_element(collected.chunks.begin(), collected.chunks.end()), 4096u);
  }
  Collected stored;
  archive.extract(*archive["stored"], 4096, false, nullptr, stored.consumer());
  EXPECT_EQ(stored.chunks, (std::vector<std::size_t>{4096, 4096, 4096}));
  Collected empty;
  EXPECT_EQ(archive.extract(*archive["empty"], 4096, false, nullptr, empty.consumer()), 0u);
  EXPECT_EQ(empty.chunks, std::vector<std::size_t>{0});
  EXPECT_EQ(archive.extract(*archive["deflated"], 4096, true, nullptr, Collected().consumer()), 0u);
  EXPECT_EQ(archiveErrorOf([&] { archive.extract(*archive["stored"], 0, false, nullptr, {}); }),
            ArchiveError::Code::invalidBufferSize);
}

TEST(Extraction, ProgressCountsBytesAndCancellationStopsBeforeTheNextChunk) {
  const auto data = patterned(10000);
  Archive archive(buildArchive({{.name = "file", .data = data, .deflate = true}}),
                  AccessMode::read);
  auto progress = Progress::make();
  archive.extract(*archive["file"], 1000, false, progress, Collected().consumer());
  EXPECT_EQ(progress->totalUnitCount(), 10000);
  EXPECT_EQ(progress->completedUnitCount(), 10000);

  auto cancelling = Progress::make();
  std::size_t delivered = 0;
  EXPECT_EQ(archiveErrorOf([&] {
              archive.extract(*archive["file"], 1000, false, cancelling, [&](ByteView chunk) {
                delivered += chunk.size();
                cancelling->cancel();
              });
            }),
            ArchiveError::Code::cancelledOperation);
  EXPECT_LE(delivered, 1000u);
}

TEST(Extraction, DamagedDataEndsInAnErrorOrAShortResult) {
  const auto data = patterned(50000);
  const auto original = buildArchive({{.name = "deflated", .data = data, .deflate = true}});
  auto bytes = original;
  const auto dataStart = 30 + 8;
  for (std::size_t i = dataStart + 10; i < dataStart + 200; ++i) {
    bytes[i] ^= 0x5A;
  }
  Archive archive(bytes, AccessMode::read);
  EXPECT_THROW(archive.extract(*archive["deflated"], Collected().consumer()), CompressionError);

  // A method other than stored or deflate.
  auto wrongMethod = original;
  wrongMethod[8] = 12;
  Archive unknown(wrongMethod, AccessMode::read);
  EXPECT_EQ(archiveErrorOf([&] { unknown.extract(*unknown.begin(), Collected().consumer()); }),
            ArchiveError::Code::invalidCompressionMethod);

  // A stored entry that claims more bytes than the archive holds yields what is there.
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

  // Even an absurd ZIP64 size ends at the end of the archive.
  ZIP64ExtendedInformation huge;
  huge.uncompressedSize = 1ull << 62;
  lying.centralDirectoryStructure.extraFields.push_back(huge);
  Collected hugeCollected;
  shortArchive.extract(lying, 4096, false, nullptr, hugeCollected.consumer());
  EXPECT_EQ(hugeCollected.bytes, collected.bytes);
}

TEST(Extraction, FilesFoldersAndLinksLandWithTheirAttributes) {
  TemporaryFolder folder;
  auto entries = std::vector<BuiltEntry>{
      {.name = "bin/tool", .data = bytesOf("#!/bin/sh\n"), .externalAttributes = 0100750u << 16},
      {.name = "data/", .externalAttributes = 040700u << 16},
      symlinkEntry("bin/current", "tool")};
  Archive archive(buildArchive(entries), AccessMode::read);
  for (const auto& entry : archive) {
    archive.extract(entry, folder / entry.path());
  }
  struct stat status {};
  ASSERT_EQ(stat((folder / "bin/tool").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0750u);
  EXPECT_EQ(readFile(folder / "bin/tool"), bytesOf("#!/bin/sh\n"));
  const auto date =
      std::chrono::system_clock::to_time_t(archive["bin/tool"]->fileAttributes().modificationDate);
  EXPECT_EQ(status.st_mtime, date);
  ASSERT_EQ(stat((folder / "data").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  ASSERT_TRUE(std::filesystem::is_symlink(folder / "bin/current"));
  EXPECT_EQ(std::filesystem::read_symlink(folder / "bin/current"), "tool");
  ASSERT_EQ(lstat((folder / "bin/current").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, date);

  // Extracting a folder again is fine; a file or link never replaces what is there.
  archive.extract(*archive["data/"], folder / "data");
  writeFile(folder / "kept", bytesOf("mine"));
  try {
    archive.extract(*archive["bin/tool"], folder / "kept");
    FAIL() << "an existing file was replaced";
  } catch (const FileError& error) {
    EXPECT_EQ(error.code(), FileError::Code::fileWriteFileExists);
    EXPECT_EQ(error.path(), folder / "kept");
  }
  EXPECT_EQ(readFile(folder / "kept"), bytesOf("mine"));
  std::filesystem::create_symlink(folder / "nowhere", folder / "dangling");
  EXPECT_THROW(archive.extract(*archive["bin/tool"], folder / "dangling"), FileError);
  EXPECT_FALSE(std::filesystem::exists(folder / "nowhere"));
}

TEST(Extraction, LinksMustStayInsideTheirFolderUnlessAllowed) {
  TemporaryFolder folder;
  const auto inside = (folder / "d/abs").string();
  Archive archive(
      buildArchive({symlinkEntry("up", "sub/../../x"), symlinkEntry("down", "sub/x"),
                    symlinkEntry("absolute", inside), symlinkEntry("outside", "/etc/passwd"),
                    symlinkEntry("binary", "\xFF\xFE")}),
      AccessMode::read);
  const auto d = folder / "d";
  EXPECT_EQ(archiveErrorOf([&] { archive.extract(*archive["up"], d / "up"); }),
            ArchiveError::Code::uncontainedSymlink);
  EXPECT_FALSE(std::filesystem::is_symlink(d / "up"));
  archive.extract(*archive["down"], d / "down");
  archive.extract(*archive["absolute"], d / "absolute");
  EXPECT_EQ(archiveErrorOf([&] { archive.extract(*archive["outside"], d / "outside"); }),
            ArchiveError::Code::uncontainedSymlink);
  archive.extract(*archive["outside"], d / "outside", defaultReadChunkSize, false, true);
  EXPECT_EQ(std::filesystem::read_symlink(d / "outside"), "/etc/passwd");
  EXPECT_EQ(archiveErrorOf([&] { archive.extract(*archive["binary"], d / "binary"); }),
            ArchiveError::Code::invalidEntryPath);

  // Link targets are checked even when checksums are skipped.
  Collected target;
  EXPECT_EQ(archive.extract(*archive["down"], 1, true, nullptr, target.consumer()),
            crc32(bytesOf("sub/x")));
  EXPECT_EQ(target.bytes, bytesOf("sub/x"));
}

TEST(Extraction, LinkTargetsWithDeferredOrZIP64SizesUseTheCentralDirectory) {
  auto deferred = symlinkEntry("deferred", "target-one");
  deferred.dataDescriptor = true;
  auto wide = symlinkEntry("wide", "target-two");
  wide.zip64 = true;
  Archive archive(buildArchive({deferred, wide}), AccessMode::read);
  for (const auto& [path, target] : {std::pair{"deferred", "target-one"}, {"wide", "target-two"}}) {
    Collected collected;
    archive.extract(*archive[path], collected.consumer());
    EXPECT_EQ(collected.bytes, bytesOf(target)) << path;
  }
}
