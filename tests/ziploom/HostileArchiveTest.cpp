// Archives made to attack: entries that inflate past what they declare, entries sharing their
// data, special files in place of archives, folder entries that meet links, damaged directories.
#include "Support.h"

#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <sys/stat.h>
#include <sys/types.h>

#include <gtest/gtest.h>

namespace frameloom::ziploom {
namespace {

using namespace frameloom::testing;

constexpr std::size_t endRecordSize = 22;
constexpr std::size_t centralRecordSize = 46;

void putU32(Bytes& bytes, std::size_t offset, std::uint32_t value) {
  for (int index = 0; index < 4; ++index) {
    bytes[offset + index] = static_cast<std::uint8_t>(value >> (8 * index));
  }
}

std::uint32_t u32At(const Bytes& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (int index = 3; index >= 0; --index) {
    value = (value << 8) | bytes[offset + index];
  }
  return value;
}

// Where the central record of entry `index` starts, for archives of one-letter names.
std::size_t centralRecord(const Bytes& archive, std::size_t index) {
  const std::size_t directory = u32At(archive, archive.size() - endRecordSize + 16);
  return directory + index * (centralRecordSize + 1);
}

TEST(HostileArchive, EntryStopsAtItsDeclaredSize) {
  auto bytes = buildArchive({{.name = "a", .data = Bytes(100000, 'x'), .deflate = true}});
  putU32(bytes, centralRecord(bytes, 0) + 24, 1000);
  Archive archive(bytes, AccessMode::read);
  Bytes delivered;
  const auto entry = *archive.begin();
  EXPECT_EQ(errorOf<CompressionError>([&] { archive.extract(entry, appendTo(delivered)); }),
            CompressionError::Code::corruptedData);
  EXPECT_EQ(delivered.size(), 1000u);
}

TEST(HostileArchive, OverlappingEntriesAreRefusedBeforeAnythingIsWritten) {
  TemporaryFolder folder;
  auto bytes = buildArchive({{.name = "a", .data = Bytes(5000, 'x'), .deflate = true},
                             {.name = "b", .data = Bytes(5000, 'x'), .deflate = true}});
  putU32(bytes, centralRecord(bytes, 1) + 42, 0);
  writeFile(folder / "bomb.zip", bytes);
  EXPECT_EQ(errorOf<ArchiveError>([&] { unzipItem(folder / "bomb.zip", folder / "out"); }),
            ArchiveError::Code::invalidLocalHeaderDataOffset);
  EXPECT_FALSE(fs::exists(folder / "out"));
}

// An entry whose local data claims to run into the directory would be overwritten by an addition,
// which writes over the directory: the addition is refused and the archive left as it was.
TEST(HostileArchive, AdditionOverAnEntryReachingIntoTheDirectoryIsRefused) {
  auto bytes =
      buildArchive({{.name = "a", .data = Bytes(10, 'x')}, {.name = "b", .data = Bytes(10, 'y')}});
  putU32(bytes, centralRecord(bytes, 1) + 20, 40);
  Archive archive(bytes, AccessMode::update);
  ASSERT_FALSE(archive.endsEarly());
  EXPECT_EQ(errorOf<ArchiveError>([&] {
              archive.addEntry("c", Entry::EntryType::file, 2, std::chrono::system_clock::now(),
                               0644, CompressionMethod::none, 4096, nullptr,
                               [](std::int64_t, std::int64_t count) {
                                 return Bytes(static_cast<std::size_t>(count), 'z');
                               });
            }),
            ArchiveError::Code::damagedCentralDirectory);
  EXPECT_EQ(*archive.data(), bytes);
}

TEST(HostileArchive, ExtractionCapRefusesBeforeAnythingIsWritten) {
  TemporaryFolder folder;
  writeFile(folder / "a.zip", buildArchive({{.name = "a", .data = Bytes(3000, 'x')},
                                            {.name = "b", .data = Bytes(3000, 'y')}}));
  EXPECT_EQ(errorOf<FileError>([&] {
              unzipItem(folder / "a.zip", folder / "out", false, false, nullptr, std::nullopt,
                        5999);
            }),
            FileError::Code::fileReadTooLarge);
  EXPECT_FALSE(fs::exists(folder / "out"));
  unzipItem(folder / "a.zip", folder / "out", false, false, nullptr, std::nullopt, 6000);
  EXPECT_EQ(fs::file_size(folder / "out" / "b"), 3000u);
}

TEST(HostileArchive, SpecialFilesAreRefusedWithoutBlocking) {
  TemporaryFolder folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const fs::path& path : {folder / "fifo", fs::path("/dev/zero")}) {
    for (const auto mode : {AccessMode::read, AccessMode::update}) {
      SCOPED_TRACE(path.string());
      EXPECT_EQ(errorOf<FileError>([&] { Archive archive(path, mode); }),
                FileError::Code::fileReadNotRegularFile);
    }
  }
  EXPECT_EQ(errorOf<FileError>([&] { Archive archive(folder.path(), AccessMode::read); }),
            FileError::Code::fileReadNotRegularFile);
}

TEST(HostileArchive, LongLinkTargetIsRefused) {
  auto bytes = buildArchive({{.name = "l",
                              .data = Bytes(maximumSymlinkTargetLength + 1, 'x'),
                              .externalAttributes = 0120777u << 16}});
  Archive archive(bytes, AccessMode::read);
  Bytes target;
  EXPECT_EQ(errorOf<ArchiveError>([&] { archive.extract(*archive.begin(), appendTo(target)); }),
            ArchiveError::Code::invalidEntryPath);
}

// A folder entry whose name is already a link to a folder outside: neither the permissions nor
// the date of the outside folder may change.
TEST(HostileArchive, FolderEntryNeverChangesALinkTarget) {
  TemporaryFolder folder;
  fs::create_directories(folder / "elsewhere");
  fs::permissions(folder / "elsewhere", fs::perms(0700));
  fs::create_directories(folder / "dest");
  fs::create_directory_symlink(folder / "elsewhere", folder / "dest" / "name");
  const auto before = snapshot(folder / "elsewhere");
  struct stat was {};
  ASSERT_EQ(stat((folder / "elsewhere").c_str(), &was), 0);
  // With a trailing "/" the name itself leads through the link and out of the destination.
  const std::pair<const char*, FileError::Code> cases[] = {
      {"name", FileError::Code::fileWriteFileExists},
      {"name/", FileError::Code::fileReadInvalidFileName}};
  for (const auto& [name, code] : cases) {
    SCOPED_TRACE(name);
    writeFile(folder / "a.zip",
              buildArchive({{.name = name, .externalAttributes = (040777u << 16) | 0x10}}));
    EXPECT_EQ(errorOf<FileError>([&] { unzipItem(folder / "a.zip", folder / "dest"); }), code);
  }
  struct stat now {};
  ASSERT_EQ(stat((folder / "elsewhere").c_str(), &now), 0);
  EXPECT_EQ(now.st_mode, was.st_mode);
  EXPECT_EQ(now.st_mtim.tv_sec, was.st_mtim.tv_sec);
  EXPECT_EQ(snapshot(folder / "elsewhere"), before);
}

TEST(HostileArchive, EnumerationTellsWhetherItEndedEarly) {
  struct Case {
    const char* name;
    std::int64_t claimed;
    bool early;
  };
  for (const auto& test : {Case{"complete", -1, false}, Case{"short directory", 5, true}}) {
    SCOPED_TRACE(test.name);
    const auto bytes = buildArchive({{.name = "a", .data = bytesOf("1")}, {.name = "b"}},
                                    {.claimedEntries = test.claimed});
    const Archive archive(bytes, AccessMode::read);
    EXPECT_EQ(paths(archive).size(), 2u);
    EXPECT_EQ(archive.endsEarly(), test.early);
  }
  auto pastTheEnd = buildArchive({{.name = "a", .data = bytesOf("1")}});
  putU32(pastTheEnd, pastTheEnd.size() - endRecordSize + 16, 0x7fffffff);
  const Archive archive(pastTheEnd, AccessMode::read);
  EXPECT_TRUE(paths(archive).empty());
  EXPECT_TRUE(archive.endsEarly());
}

} // namespace
} // namespace frameloom::ziploom
