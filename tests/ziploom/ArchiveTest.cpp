#include "ArchiveBuilder.h"

#include "ziploom/Archive.h"
#include "ziploom/Errors.h"
#include "ziploom/LittleEndian.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace ziploom;
using namespace ziploom::testsupport;
using AccessMode = Archive::AccessMode;

namespace {

std::vector<std::string> paths(const Archive& archive) {
  std::vector<std::string> result;
  for (const auto& entry : archive) {
    result.push_back(entry.path());
  }
  return result;
}

std::vector<BuiltEntry> threeEntries() {
  return {{.name = "a.txt", .data = bytesOf("alpha")},
          {.name = "b/", .externalAttributes = 040755u << 16},
          {.name = "b/c.json", .data = bytesOf(std::string(5000, 'c')), .deflate = true}};
}

} // namespace

TEST(Archive, EnumeratesInCentralDirectoryOrderFromFilesAndMemory) {
  TemporaryFolder folder;
  const auto bytes = buildArchive(threeEntries());
  writeFile(folder / "three.zip", bytes);

  const Archive onDisk(folder / "three.zip", AccessMode::read);
  const Archive inMemory(bytes, AccessMode::read);
  EXPECT_THAT(paths(onDisk), testing::ElementsAre("a.txt", "b/", "b/c.json"));
  EXPECT_EQ(paths(inMemory), paths(onDisk));
  EXPECT_EQ(inMemory.url(), "memory://");
  EXPECT_EQ(onDisk.url(), (folder / "three.zip").string());
  EXPECT_EQ(inMemory.data(), bytes);
  EXPECT_FALSE(onDisk.data());
  EXPECT_EQ(onDisk.resolvedEntryCount(), 3u);
}

TEST(Archive, LookupUsesCanonicalEquivalenceAndNothingElse) {
  const std::string decomposed = "caf"
                                 "e\xCC\x81"
                                 ".json";
  const std::string precomposed = "caf\xC3\xA9.json";
  const Archive archive(buildArchive({{.name = decomposed, .data = bytesOf("x")},
                                      {.name = "Dir/File", .data = bytesOf("y")}}),
                        AccessMode::read);
  ASSERT_TRUE(archive[precomposed]);
  EXPECT_EQ(archive[precomposed]->path(), decomposed);
  EXPECT_FALSE(archive["dir/file"]);
  EXPECT_FALSE(archive["Dir//File"]);
  EXPECT_FALSE(archive["./Dir/File"]);
  EXPECT_TRUE(archive["Dir/File"]);

  // A path encoding given on opening overrides each entry's flag.
  const auto cp437 = buildArchive({{.name = "na\x8Ave", .data = bytesOf("x"), .flags = 0}});
  EXPECT_TRUE(Archive(cp437, AccessMode::read)["na\xC3\xA8ve"]);
  EXPECT_FALSE(
      Archive(cp437, AccessMode::read, frameloom::platform::TextEncoding::utf8)["na\xC3\xA8ve"]);
}

TEST(Archive, CreateWritesAnEmptyArchiveAndNeverReplacesAFile) {
  TemporaryFolder folder;
  const auto path = folder / "new.zip";
  {
    const Archive created(path, AccessMode::create);
    EXPECT_EQ(created.begin(), std::default_sentinel);
  }
  EXPECT_EQ(readFile(path), EndOfCentralDirectoryRecord{}.data());
  EXPECT_EQ(paths(Archive(path, AccessMode::update)).size(), 0u);

  writeFile(path, bytesOf("precious"));
  try {
    Archive again(path, AccessMode::create);
    FAIL() << "create replaced a file";
  } catch (const FileError& error) {
    EXPECT_EQ(error.code(), FileError::Code::fileWriteFileExists);
  }
  EXPECT_EQ(readFile(path), bytesOf("precious"));

  const Archive memory(Bytes{}, AccessMode::create);
  EXPECT_EQ(memory.data(), EndOfCentralDirectoryRecord{}.data());
}

TEST(Archive, OpeningFailsClearlyOnWhatIsNotAnArchive) {
  TemporaryFolder folder;
  EXPECT_THROW(Archive(folder / "missing.zip", AccessMode::read),
               std::filesystem::filesystem_error);
  EXPECT_FALSE(Archive::make(folder / "missing.zip", AccessMode::read));
  EXPECT_EQ(archiveErrorOf([] { Archive(Bytes(21, 0), AccessMode::read); }),
            ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  EXPECT_EQ(archiveErrorOf([] { Archive(bytesOf(std::string(4000, 'z')), AccessMode::update); }),
            ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  EXPECT_FALSE(Archive::make(Bytes(100, 0), AccessMode::read));
}

TEST(Archive, EndRecordSearchStopsAtTheLastSignature) {
  // A comment that holds an end signature with room for a record after it hides the real one.
  Bytes comment{'P', 'K', 5, 6};
  comment.resize(40, 'x');
  EXPECT_EQ(archiveErrorOf([&] {
              Archive(buildArchive(threeEntries(), {.comment = comment}), AccessMode::read);
            }),
            ArchiveError::Code::missingEndOfCentralDirectoryRecord);

  // Too close to the end for a record: not a candidate, so the real record is found. The scan
  // also has to cross its 64 KiB block boundaries to find a record far from the end.
  Bytes shortTail{'P', 'K', 5, 6};
  shortTail.resize(17, 'x');
  EXPECT_EQ(
      paths(Archive(buildArchive(threeEntries(), {.comment = shortTail}), AccessMode::read)).size(),
      3u);
  for (std::size_t size : {65535u - 3, 65535u - 2, 65535u}) {
    Bytes longComment(size, 'y');
    EXPECT_EQ(
        paths(Archive(buildArchive(threeEntries(), {.comment = longComment}), AccessMode::read))
            .size(),
        3u);
  }
}

TEST(Archive, DamagedCentralDirectoriesGiveShortEnumerations) {
  EXPECT_EQ(
      paths(Archive(buildArchive(threeEntries(), {.claimedEntries = 50}), AccessMode::read)).size(),
      3u);
  EXPECT_EQ(
      paths(Archive(buildArchive(threeEntries(), {.claimedEntries = 2}), AccessMode::read)).size(),
      2u);

  auto entries = threeEntries();
  entries[1].flags |= 0x0001;
  const Archive encrypted(buildArchive(entries), AccessMode::read);
  EXPECT_THAT(paths(encrypted), testing::ElementsAre("a.txt"));
  EXPECT_FALSE(encrypted["b/c.json"]);
}

TEST(Archive, ZIP64EndRecordsAreUsedWhenDirectlyBeforeTheLocator) {
  auto entries = threeEntries();
  entries[2].zip64 = true;
  entries[2].dataDescriptor = true;
  const auto bytes = buildArchive(entries, {.zip64End = true});
  const Archive archive(bytes, AccessMode::read);
  EXPECT_EQ(archive.resolvedEntryCount(), 3u);
  ASSERT_THAT(paths(archive), testing::ElementsAre("a.txt", "b/", "b/c.json"));
  const auto entry = archive["b/c.json"];
  ASSERT_TRUE(entry->zip64DataDescriptor);
  EXPECT_EQ(entry->uncompressedSize(), 5000u);

  // With an extensible data sector the record no longer sits right before the locator; the
  // 32-bit end record, whose markers point nowhere, is all that is left.
  const auto locatorStart = bytes.size() - 22 - 20;
  Bytes withSector(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(locatorStart));
  withSector.insert(withSector.end(), 8, 0);
  withSector.insert(withSector.end(), bytes.begin() + static_cast<std::ptrdiff_t>(locatorStart),
                    bytes.end());
  const Archive hidden(withSector, AccessMode::read);
  EXPECT_EQ(hidden.resolvedEntryCount(), 0xFFFFu);
  EXPECT_TRUE(paths(hidden).empty());
}

TEST(MemoryFile, WritesOverwriteGrowAndFillGapsWhileReadsAndSeeksStayInside) {
  auto file = MemoryFile::make(bytesOf("abcdefgh"));
  file->seek(5, SEEK_SET);
  file->writeBytes(bytesOf("0123456789"));
  EXPECT_EQ(file->data(), bytesOf("abcde0123456789"));
  file->seek(1, SEEK_SET);
  file->writeBytes(bytesOf("XY"));
  EXPECT_EQ(file->data(), bytesOf("aXYde0123456789"));
  file->seek(20, SEEK_SET);
  file->writeBytes(bytesOf("!!"));
  EXPECT_EQ(file->data(), bytesOf(std::string("aXYde0123456789\0\0\0\0\0!!", 22)));

  std::uint8_t buffer[8];
  EXPECT_EQ(file->seek(-3, SEEK_END), 19);
  EXPECT_EQ(file->readBytes(buffer), 3u);
  EXPECT_EQ(file->readBytes(buffer), 0u);
  EXPECT_EQ(file->seek(100, SEEK_SET), 100);
  EXPECT_EQ(file->readBytes(buffer), 0u);
  // Negative positions, overflows and unknown origins are refused and leave the position alone.
  EXPECT_EQ(file->seek(-1, SEEK_SET), -1);
  EXPECT_EQ(file->seek(std::numeric_limits<std::int64_t>::max(), SEEK_CUR), -1);
  EXPECT_EQ(file->seek(0, 42), -1);
  EXPECT_EQ(file->offset(), 100);
}
