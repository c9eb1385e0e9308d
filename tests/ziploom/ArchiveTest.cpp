#include "Support.h"

#include <frameloom/ziploom/Errors.h>

#include <gmock/gmock.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;
using ::testing::ElementsAre;

namespace {

std::vector<BuiltEntry> threeEntries() {
  return {{.name = "a.txt", .data = bytesOf("alpha")},
          {.name = "b/", .externalAttributes = 040755u << 16},
          {.name = "b/c.json", .data = bytesOf(std::string(5000, 'c')), .deflate = true}};
}

std::size_t countWith(const BuildOptions& options) {
  return paths(Archive(buildArchive(threeEntries(), options), AccessMode::read)).size();
}

} // namespace

TEST(Archive, LookupUsesCanonicalEquivalenceAndNothingElse) {
  const Archive archive(buildArchive({{.name = "cafe\xCC\x81.json", .data = bytesOf("x")},
                                      {.name = "Dir/File", .data = bytesOf("y")}}),
                        AccessMode::read);
  ASSERT_TRUE(archive["caf\xC3\xA9.json"]);
  EXPECT_EQ(archive["caf\xC3\xA9.json"]->path(), "cafe\xCC\x81.json");
  EXPECT_TRUE(archive["Dir/File"]);
  for (const auto* other : {"dir/file", "Dir//File", "./Dir/File"}) {
    EXPECT_FALSE(archive[other]) << other;
  }
  // A path encoding given on opening overrides each entry's flag.
  const auto cp437 = buildArchive({{.name = "na\x8Ave", .data = bytesOf("x"), .flags = 0}});
  EXPECT_TRUE(Archive(cp437, AccessMode::read)["na\xC3\xA8ve"]);
  EXPECT_FALSE(
      Archive(cp437, AccessMode::read, frameloom::ziploom::TextEncoding::utf8)["na\xC3\xA8ve"]);
}

TEST(Archive, CreateWritesAnEmptyArchiveAndNeverReplacesAFile) {
  TemporaryFolder folder;
  const auto path = folder / "new.zip";
  Archive(path, AccessMode::create);
  EXPECT_EQ(readFile(path), EndOfCentralDirectoryRecord{}.data());
  EXPECT_EQ(Archive(Bytes{}, AccessMode::create).data(), EndOfCentralDirectoryRecord{}.data());

  writeFile(path, bytesOf("precious"));
  EXPECT_EQ(errorOf<FileError>([&] { Archive(path, AccessMode::create); }),
            FileError::Code::fileWriteFileExists);
  EXPECT_EQ(readFile(path), bytesOf("precious"));
  EXPECT_EQ(errorOf<ArchiveError>([&] { Archive(path, AccessMode::update); }),
            ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  EXPECT_FALSE(Archive::make(folder / "missing.zip", AccessMode::read));
  EXPECT_FALSE(Archive::make(Bytes(21, 0), AccessMode::read));
}

TEST(Archive, EndRecordSearchAndDamagedDirectories) {
  // A comment that holds an end signature with room for a record after it hides the real one.
  Bytes comment{'P', 'K', 5, 6};
  comment.resize(40, 'x');
  EXPECT_EQ(errorOf<ArchiveError>([&] {
              Archive(buildArchive(threeEntries(), {.comment = comment}), AccessMode::read);
            }),
            ArchiveError::Code::missingEndOfCentralDirectoryRecord);
  // Too close to the end for a record: not a candidate. The scan also has to cross its 64 KiB
  // block boundaries to find a record far from the end.
  comment.resize(17);
  EXPECT_EQ(countWith({.comment = comment}), 3u);
  for (const std::size_t size : {65535u - 3, 65535u - 2, 65535u}) {
    EXPECT_EQ(countWith({.comment = Bytes(size, 'y')}), 3u) << size;
  }
  // Counts that lie and unreadable (encrypted) records give short enumerations.
  EXPECT_EQ(countWith({.claimedEntries = 50}), 3u);
  EXPECT_EQ(countWith({.claimedEntries = 2}), 2u);
  auto entries = threeEntries();
  entries[1].flags |= 0x0001;
  const Archive encrypted(buildArchive(entries), AccessMode::read);
  EXPECT_THAT(paths(encrypted), ElementsAre("a.txt"));
  EXPECT_FALSE(encrypted["b/c.json"]);
}

TEST(Archive, ZIP64EndRecordsAreUsedWhenDirectlyBeforeTheLocator) {
  auto entries = threeEntries();
  entries[2].zip64 = true;
  entries[2].dataDescriptor = true;
  const auto bytes = buildArchive(entries, {.zip64End = true});
  const Archive archive(bytes, AccessMode::read);
  EXPECT_EQ(archive.resolvedEntryCount(), 3u);
  ASSERT_THAT(paths(archive), ElementsAre("a.txt", "b/", "b/c.json"));
  ASSERT_TRUE(archive["b/c.json"]->zip64DataDescriptor);
  EXPECT_EQ(archive["b/c.json"]->uncompressedSize(), 5000u);

  // With an extensible data sector the record no longer sits right before the locator; the
  // 32-bit end record, whose markers point nowhere, is all that is left.
  auto withSector = bytes;
  withSector.insert(withSector.end() - 22 - 20, 8, 0);
  const Archive hidden(withSector, AccessMode::read);
  EXPECT_EQ(hidden.resolvedEntryCount(), 0xFFFFu);
  EXPECT_TRUE(paths(hidden).empty());
}
