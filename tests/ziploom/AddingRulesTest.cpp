#include "Support.h"

#include <frameloom/ziploom/Errors.h>

#include <cstdio>

using namespace frameloom::ziploom;
using namespace frameloom::testing;
using EntryType = Entry::EntryType;

namespace {

const auto someDate = std::chrono::system_clock::time_point(std::chrono::seconds(1600000000));
const Provider nothing = [](std::int64_t, std::int64_t) { return Bytes{}; };

Entry onlyEntry(const Archive& archive) {
  auto entry = archive.begin();
  EXPECT_FALSE(entry == archive.end());
  return *entry;
}

// An empty archive whose central directory starts at `offset`: zeros up to there, taking no
// disk space, then ZIP64 end records and an end record that points to them.
void writeEmptyArchiveAt(const fs::path& path, std::uint64_t offset) {
  Bytes records;
  auto put = [&records](std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
      records.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
  };
  put(0x06064b50, 4);
  put(44, 8);
  put(45, 2);
  put(45, 2);
  put(0, 4);
  put(0, 4);
  put(0, 8);
  put(0, 8);
  put(0, 8);
  put(offset, 8);
  put(0x07064b50, 4);
  put(0, 4);
  put(offset, 8);
  put(1, 4);
  put(0x06054b50, 4);
  put(0, 4);
  put(0, 2);
  put(0, 2);
  put(0, 4);
  put(0xFFFFFFFF, 4);
  put(0, 2);
  writeFile(path, std::string_view());
  fs::resize_file(path, offset);
  std::FILE* file = std::fopen(path.c_str(), "ab");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(std::fwrite(records.data(), 1, records.size(), file), records.size());
  std::fclose(file);
}

} // namespace

TEST(AddingRules, EntryPathsAreAppendedToTheBaseAsPathComponents) {
  TemporaryFolder folder;
  fs::create_directories(folder / "base/etc");
  writeFile(folder / "base/etc/hostname", bytesOf("inside the base"));
  Archive archive(folder / "a.zip", AccessMode::create);
  archive.addEntry("/etc/hostname", Archive::RelativeTo{folder / "base"});
  Bytes data;
  archive.extract(onlyEntry(archive), appendTo(data));
  EXPECT_EQ(data, bytesOf("inside the base"));
}

TEST(AddingRules, ItemChecksComeBeforeTheArchiveIsAskedToChange) {
  TemporaryFolder folder;
  { Archive created(folder / "a.zip", AccessMode::create); }
  Archive archive(folder / "a.zip", AccessMode::read);
  EXPECT_EQ(errorOf<FileError>(
                [&] { archive.addEntry("missing", Archive::FileURL{folder / "missing"}); }),
            FileError::Code::fileReadNoSuchFile);
  writeFile(folder / "present", bytesOf("x"));
  EXPECT_EQ(errorOf<ArchiveError>(
                [&] { archive.addEntry("present", Archive::FileURL{folder / "present"}); }),
            ArchiveError::Code::unwritableArchive);
}

TEST(AddingRules, TheProviderFormWritesPathAndSizesAsGiven) {
  Archive archive(Bytes{}, AccessMode::create);
  archive.addEntry("pdir", EntryType::directory, 5, someDate, std::nullopt,
                   CompressionMethod::deflate, 16, nullptr, nothing);
  const auto entry = onlyEntry(archive);
  EXPECT_EQ(entry.path(), "pdir");
  EXPECT_EQ(entry.centralDirectoryStructure.uncompressedSize, 5u);
  EXPECT_EQ(entry.localFileHeader.uncompressedSize, 5u);
  EXPECT_EQ(entry.centralDirectoryStructure.compressionMethod, 0);
  EXPECT_EQ(entry.centralDirectoryStructure.externalFileAttributes >> 16, 040755u);
}

TEST(AddingRules, ZIP64FieldsAppearOnlyFromTheirThresholdsOn) {
  // A deflated entry declared just under 4 GiB that turns out to hold two bytes.
  Archive archive(Bytes{}, AccessMode::create);
  bool given = false;
  archive.addEntry("short", EntryType::file, 0xFFFFFFFE, someDate, std::nullopt,
                   CompressionMethod::deflate, 1 << 20, nullptr, [&](std::int64_t, std::int64_t) {
                     return std::exchange(given, true) ? Bytes{} : bytesOf("ab");
                   });
  const auto small = onlyEntry(archive);
  EXPECT_EQ(small.localFileHeader.extraFieldLength, 0);
  EXPECT_EQ(small.localFileHeader.versionNeededToExtract, 20);
  EXPECT_EQ(small.localFileHeader.uncompressedSize, 0xFFFFFFFEu);
  EXPECT_EQ(small.centralDirectoryStructure.extraFieldLength, 0);
  EXPECT_EQ(small.centralDirectoryStructure.versionNeededToExtract, 20);
  // From 0xFFFFFFFF on the local header carries ZIP64 sizes, though no data came.
  archive.addEntry("at", EntryType::file, 0xFFFFFFFF, someDate, std::nullopt,
                   CompressionMethod::none, 1 << 24, nullptr, nothing);
  const auto at = *archive["at"];
  EXPECT_EQ(at.localFileHeader.extraFieldLength, 20);
  EXPECT_EQ(at.localFileHeader.versionNeededToExtract, 45);
  EXPECT_EQ(at.uncompressedSize(), 0xFFFFFFFFu);

  // Only the offset needs ZIP64: the record carries it, every other field is the local header's.
  TemporaryFolder folder;
  const auto path = folder / "far.zip";
  const std::uint64_t offset = 0x100000000;
  writeEmptyArchiveAt(path, offset);
  Archive far(path, AccessMode::update);
  far.addEntry("far", EntryType::file, 3, someDate, std::nullopt, CompressionMethod::none, 16,
               nullptr, [](std::int64_t, std::int64_t) { return bytesOf("abc"); });
  const auto entry = onlyEntry(far);
  const auto& record = entry.centralDirectoryStructure;
  EXPECT_EQ(record.relativeOffsetOfLocalHeader, 0xFFFFFFFFu);
  EXPECT_EQ(record.resolvedLocalHeaderOffset(), offset);
  EXPECT_EQ(record.extraFieldLength, 12);
  EXPECT_EQ(record.versionNeededToExtract, entry.localFileHeader.versionNeededToExtract);
  EXPECT_EQ(record.versionNeededToExtract, 20);
}

TEST(AddingRules, RefusalsOfTheLibrarysOwnHaveCasesOfTheirOwn) {
  TemporaryFolder folder;
  Bytes damaged = buildArchive({{.name = "a", .data = bytesOf("a")}});
  // The end record's directory offset, past the end of the archive.
  damaged[damaged.size() - 3] = 0x7F;
  writeFile(folder / "damaged.zip", damaged);
  Bytes overrun = buildArchive({{.name = "a", .data = bytesOf("a")}});
  // The only central record's comment, four bytes long, runs into the end record.
  const std::size_t directory = overrun[overrun.size() - 6] | overrun[overrun.size() - 5] << 8;
  overrun[directory + 32] = 4;
  writeFile(folder / "overrun.zip", overrun);
  // Each case adds an entry to a new archive in memory, or to the named damaged one.
  struct Case {
    const char* name;
    const char* file;
    std::int64_t size;
    ArchiveError::Code code;
  };
  const std::vector<Case> cases{
      {"negative size", nullptr, -1, ArchiveError::Code::negativeEntrySize},
      {"directory outside the archive", "damaged.zip", 0,
       ArchiveError::Code::damagedCentralDirectory},
      {"record running past the directory", "overrun.zip", 0,
       ArchiveError::Code::damagedCentralDirectory},
  };
  for (const auto& [name, file, size, code] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(errorOf<ArchiveError>([&] {
                auto archive = file ? std::make_unique<Archive>(folder / file, AccessMode::update)
                                    : std::make_unique<Archive>(Bytes{}, AccessMode::create);
                archive->addEntry("b", EntryType::file, size, someDate, std::nullopt,
                                  CompressionMethod::none, 16, nullptr, nothing);
              }),
              code);
  }
  EXPECT_EQ(readFile(folder / "damaged.zip"), damaged);
  EXPECT_EQ(readFile(folder / "overrun.zip"), overrun);
}
