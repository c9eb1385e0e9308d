#include "TreeSupport.h"

#include "ziploom/Archive.h"
#include "ziploom/Errors.h"
#include "ziploom/FileSystem.h"

#include <gtest/gtest.h>

#include <fcntl.h>

using namespace ziploom;
using namespace ziploom::testing;
using EntryType = Entry::EntryType;
using frameloom::platform::Progress;

namespace {

std::chrono::system_clock::time_point utc(int year, int month, int day, int hour, int minute,
                                          int second) {
  using namespace std::chrono;
  return sys_days(std::chrono::year(year) / month / day) + hours(hour) + minutes(minute) +
         seconds(second);
}

const auto someDate = utc(2021, 6, 15, 10, 20, 30);

void addBytes(Archive& archive, const std::string& path, const Bytes& bytes,
              CompressionMethod method, const ProgressPointer& progress = nullptr,
              std::int64_t bufferSize = 1024) {
  archive.addEntry(path, EntryType::file, static_cast<std::int64_t>(bytes.size()), someDate, 0640,
                   method, bufferSize, progress, providerFor(bytes));
}

std::vector<std::string> paths(const Archive& archive) {
  std::vector<std::string> result;
  for (const auto& entry : archive) {
    result.push_back(entry.path());
  }
  return result;
}

ArchiveError::Code archiveErrorCode(const std::function<void()>& action) {
  try {
    action();
  } catch (const ArchiveError& error) {
    return error.code();
  }
  throw std::logic_error("no ArchiveError was thrown");
}

// A tree with what archives have to carry: nested and empty folders, empty and large files,
// links to files and folders, names with spaces and non-ASCII characters, unusual modes.
void makeTree(const fs::path& root) {
  fs::create_directories(root / "nested/deeper/deepest");
  fs::create_directories(root / "empty folder");
  writeFile(root / "empty", Bytes{});
  writeFile(root / "text.txt", std::string(200000, 'x') + "end");
  writeFile(root / "nested/random.bin", randomBytes(70000));
  writeFile(root / "nested/deeper/deepest/Grüße, café.txt", std::string("non-ASCII name"));
  writeFile(root / "nested/private", std::string("secret"));
  fs::permissions(root / "nested/private", fs::perms::owner_read | fs::perms::owner_write);
  fs::permissions(root / "nested/deeper", fs::perms::owner_all);
  fs::create_symlink("text.txt", root / "link to text");
  fs::create_symlink("nested/deeper", root / "link to folder");
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    const timespec times[2] = {{1600000001, 0}, {1600000001, 0}};
    utimensat(AT_FDCWD, item.path().c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
}

// An archive of `count` empty stored files named by number, put together record by record.
Bytes emptyEntries(std::uint16_t count) {
  Bytes local;
  Bytes central;
  for (std::uint16_t i = 0; i < count; ++i) {
    const auto name = std::to_string(i);
    LocalFileHeader header;
    header.fileNameData.assign(name.begin(), name.end());
    header.fileNameLength = static_cast<std::uint16_t>(name.size());
    CentralDirectoryStructure record;
    record.versionMadeBy = 0x0314;
    record.fileNameData = header.fileNameData;
    record.fileNameLength = header.fileNameLength;
    record.relativeOffsetOfLocalHeader = static_cast<std::uint32_t>(local.size());
    for (const auto& [bytes, part] :
         {std::pair{&local, header.data()}, {&central, record.data()}}) {
      bytes->insert(bytes->end(), part.begin(), part.end());
    }
  }
  EndOfCentralDirectoryRecord end;
  end.totalNumberOfEntriesOnDisk = end.totalNumberOfEntriesInCentralDirectory = count;
  end.sizeOfCentralDirectory = static_cast<std::uint32_t>(central.size());
  end.offsetToStartOfCentralDirectory = static_cast<std::uint32_t>(local.size());
  const auto tail = end.data();
  local.insert(local.end(), central.begin(), central.end());
  local.insert(local.end(), tail.begin(), tail.end());
  return local;
}

// A small archive of stored and deflated entries, made by the library, as a file and in memory.
class ArchiveWritingTest : public ::testing::Test {
protected:
  ArchiveWritingTest() {
    {
      Archive archive(archivePath, AccessMode::create);
      addBytes(archive, "first.txt", Bytes(3000, 'a'), CompressionMethod::deflate);
      addBytes(archive, "second.bin", randomBytes(5000), CompressionMethod::none);
      addBytes(archive, "third.txt", Bytes(10, 'c'), CompressionMethod::none);
    }
    before = readFile(archivePath);
  }

  TemporaryFolder folder;
  const fs::path archivePath = folder / "archive.zip";
  Bytes before;
};

} // namespace

TEST(ArchiveAddingTest, EntriesAddedThroughEveryFormReadBackAndPassOtherTools) {
  TemporaryFolder folder;
  const auto archivePath = folder / "made.zip";
  writeFile(folder / "loose file", std::string("loose"));
  {
    Archive archive(archivePath, AccessMode::create);
    addBytes(archive, "stored.bin", randomBytes(4096), CompressionMethod::none);
    EXPECT_EQ(archive.resolvedCentralDirectoryOffset(), 30u + 10 + 4096);
    addBytes(archive, "deflated.txt", Bytes(50000, 'z'), CompressionMethod::deflate);
    archive.addEntry("folder", EntryType::directory, 0, someDate, std::nullopt,
                     CompressionMethod::deflate, 1024, nullptr,
                     [](std::int64_t, std::int64_t) { return Bytes{}; });
    const std::string target = "stored.bin";
    archive.addEntry(
        "link", EntryType::symlink, static_cast<std::int64_t>(target.size()), someDate, 0777,
        CompressionMethod::deflate, 1024, nullptr,
        [&](std::int64_t, std::int64_t) { return Bytes(target.begin(), target.end()); });
    archive.addEntry("copied", Archive::FileURL{folder.path()});
    archive.addEntry("loose file", Archive::RelativeTo{folder.path()}, CompressionMethod::deflate);
  }
  EXPECT_TRUE(infoZipAccepts(archivePath));
  EXPECT_TRUE(pythonAccepts(archivePath));

  Archive archive(archivePath, AccessMode::read);
  EXPECT_EQ(paths(archive), (std::vector<std::string>{"stored.bin", "deflated.txt", "folder/",
                                                      "link", "copied/", "loose file"}));
  const auto deflated = *archive["deflated.txt"];
  EXPECT_TRUE(deflated.isCompressed());
  EXPECT_EQ(deflated.uncompressedSize(), 50000u);
  EXPECT_LT(deflated.compressedSize(), 1000u);
  EXPECT_EQ(deflated.checksum(), crc32(Bytes(50000, 'z')));
  EXPECT_EQ(deflated.fileAttributes().posixPermissions, 0640);
  EXPECT_EQ(deflated.fileAttributes().modificationDate, someDate);

  const auto directory = *archive["folder/"];
  EXPECT_EQ(directory.type(), EntryType::directory);
  EXPECT_FALSE(directory.isCompressed());
  EXPECT_EQ(directory.centralDirectoryStructure.externalFileAttributes >> 16, 040755u);
  const auto link = *archive["link"];
  EXPECT_EQ(link.type(), EntryType::symlink);
  EXPECT_FALSE(link.isCompressed());
  Bytes linkTarget;
  archive.extract(link, [&](ByteView chunk) { linkTarget.assign(chunk.begin(), chunk.end()); });
  EXPECT_EQ(std::string(linkTarget.begin(), linkTarget.end()), "stored.bin");
}

TEST(ArchiveAddingTest, ZippedTreesUnzipToTheSameTreeWithInfoZipAndWithTheLibrary) {
  TemporaryFolder folder;
  makeTree(folder / "tree");
  const auto source = snapshot(folder / "tree");
  for (const auto method : {CompressionMethod::none, CompressionMethod::deflate}) {
    const auto name = std::to_string(static_cast<int>(method));
    const auto archive = folder / (name + ".zip");
    zipItem(folder / "tree", archive, false, method);
    EXPECT_TRUE(infoZipAccepts(archive));
    EXPECT_TRUE(pythonAccepts(archive));

    const auto byInfoZip = folder / (name + "-unzip");
    ASSERT_TRUE(
        succeeds("TZ=UTC unzip -q " + shellQuoted(archive) + " -d " + shellQuoted(byInfoZip)));
    EXPECT_EQ(snapshot(byInfoZip), source);

    const auto byLibrary = folder / (name + "-library");
    unzipItem(archive, byLibrary);
    EXPECT_EQ(snapshot(byLibrary), source);
  }

  // With the parent kept, everything lies below the folder's own entry, which comes last.
  zipItem(folder / "tree", folder / "kept.zip", true);
  const Archive kept(folder / "kept.zip", AccessMode::read);
  const auto keptPaths = paths(kept);
  EXPECT_EQ(keptPaths.back(), "tree/");
  EXPECT_EQ(keptPaths.size(), source.size() + 1);
  for (const auto& path : keptPaths) {
    EXPECT_TRUE(path.starts_with("tree/")) << path;
  }
}

TEST_F(ArchiveWritingTest, RemovingKeepsExactlyTheOtherEntriesInFilesAndInMemory) {
  Archive memory(before, AccessMode::update);
  Archive file(archivePath, AccessMode::update);

  // Removing the first entry moves the others down; their data is still theirs.
  file.remove(*file["first.txt"]);
  EXPECT_EQ(file["second.bin"]->centralDirectoryStructure.relativeOffsetOfLocalHeader, 0u);
  EXPECT_TRUE(pythonAccepts(archivePath));
  Bytes second;
  file.extract(*file["second.bin"],
               [&](ByteView chunk) { second.insert(second.end(), chunk.begin(), chunk.end()); });
  EXPECT_EQ(second, randomBytes(5000));

  for (Archive* archive : {&file, &memory}) {
    for (const auto* path : {"second.bin", "first.txt", "third.txt"}) {
      if (!(*archive)[path]) {
        continue;
      }
      archive->remove(*(*archive)[path]);
      if (archive == &memory) {
        writeFile(folder / "memory.zip", *archive->data());
      }
      // Info-ZIP does not count an archive without entries as valid.
      if (!paths(*archive).empty()) {
        EXPECT_TRUE(infoZipAccepts(archive == &file ? archivePath : folder / "memory.zip"));
      }
    }
    EXPECT_TRUE(paths(*archive).empty());
    fs::remove(folder / "memory.zip");
  }
  EXPECT_EQ(readFile(archivePath).size(), 22u);
  EXPECT_EQ(memory.data()->size(), 22u);
  // Nothing was left next to the archive.
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(ArchiveWritingTest, FailedOrCancelledAdditionsLeaveTheArchiveAsItWas) {
  Archive file(archivePath, AccessMode::update);
  Archive memory(before, AccessMode::update);
  const auto big = randomBytes(100000);

  for (Archive* archive : {&file, &memory}) {
    for (const auto method : {CompressionMethod::none, CompressionMethod::deflate}) {
      // Cancelled from the progress record while the second chunk is asked for.
      auto progress = Progress::make();
      const Provider cancelling = [&](std::int64_t position, std::int64_t count) {
        if (position >= 1024) {
          progress->cancel();
        }
        return providerFor(big)(position, count);
      };
      EXPECT_EQ(archiveErrorCode([&] {
                  archive->addEntry("big", EntryType::file, 100000, someDate, std::nullopt, method,
                                    1024, progress, cancelling);
                }),
                ArchiveError::Code::cancelledOperation);
      const Provider failing = [](std::int64_t position, std::int64_t) -> Bytes {
        if (position > 0) {
          throw std::runtime_error("source went away");
        }
        return Bytes(1024, 1);
      };
      EXPECT_THROW(archive->addEntry("big", EntryType::file, 100000, someDate, std::nullopt, method,
                                     1024, nullptr, failing),
                   std::runtime_error);
      EXPECT_EQ(archive == &file ? readFile(archivePath) : *archive->data(), before);
    }
    // The archive still works afterwards.
    addBytes(*archive, "after", Bytes(100, 'x'), CompressionMethod::deflate);
    EXPECT_EQ(paths(*archive).back(), "after");
  }
}

TEST_F(ArchiveWritingTest, CancelledRemovalsLeaveTheArchiveAndNoScratchFolder) {
  Archive file(archivePath, AccessMode::update);
  Archive memory(before, AccessMode::update);
  for (Archive* archive : {&file, &memory}) {
    auto progress = Progress::make();
    progress->setObserver([](const Progress& changed) {
      if (changed.completedUnitCount() > 0) {
        const_cast<Progress&>(changed).cancel();
      }
    });
    EXPECT_EQ(archiveErrorCode([&] { archive->remove(*(*archive)["third.txt"], 1024, progress); }),
              ArchiveError::Code::cancelledOperation);
    EXPECT_EQ(paths(*archive).size(), 3u);
  }
  EXPECT_EQ(readFile(archivePath), before);
  EXPECT_EQ(*memory.data(), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(ArchiveWritingTest, ArchivesOpenedForReadingRefuseWritingAndStayUnchanged) {
  Archive archive(archivePath, AccessMode::read);
  EXPECT_EQ(archiveErrorCode([&] { addBytes(archive, "x", Bytes(5), CompressionMethod::none); }),
            ArchiveError::Code::unwritableArchive);
  EXPECT_EQ(archiveErrorCode([&] { archive.remove(*archive["first.txt"]); }),
            ArchiveError::Code::unwritableArchive);
  EXPECT_EQ(readFile(archivePath), before);

  // Nor is anything written for an entry that is not in the archive, or a name too long to store.
  Archive other(archivePath, AccessMode::update);
  auto stranger = *other["first.txt"];
  stranger.localFileHeader.crc32 ^= 1;
  EXPECT_EQ(archiveErrorCode([&] { other.remove(stranger); }),
            ArchiveError::Code::invalidEntryPath);
  EXPECT_EQ(archiveErrorCode([&] {
              addBytes(other, std::string(70000, 'n'), Bytes(5), CompressionMethod::none);
            }),
            ArchiveError::Code::invalidEntryPath);
  EXPECT_EQ(readFile(archivePath), before);
}

TEST(ArchiveAddingTest, DatesOutsideTheMSDOSRangeKeepDayAndTimeWithTheYearClamped) {
  Archive archive(Bytes{}, AccessMode::create);
  for (const auto& date : {utc(1975, 3, 4, 5, 6, 8), utc(2150, 11, 12, 13, 14, 16)}) {
    archive.addEntry("dated", EntryType::directory, 0, date, std::nullopt, CompressionMethod::none,
                     1024, nullptr, [](std::int64_t, std::int64_t) { return Bytes{}; });
  }
  std::vector<std::pair<int, int>> fields;
  for (const auto& entry : archive) {
    fields.emplace_back(entry.localFileHeader.lastModFileDate,
                        entry.localFileHeader.lastModFileTime);
  }
  const int time1 = 4 + 6 * 32 + 5 * 2048;
  const int time2 = 8 + 14 * 32 + 13 * 2048;
  EXPECT_EQ(fields, (std::vector<std::pair<int, int>>{{4 + 3 * 32 + 0 * 512, time1},
                                                      {12 + 11 * 32 + 119 * 512, time2}}));
}

TEST(ArchiveAddingTest, LocalHeadersCarryZIP64SizesFromTheThresholdOn) {
  Archive archive(Bytes{}, AccessMode::create);
  // The provider delivers nothing, so no gigabytes are written; the header states the size.
  const Provider nothing = [](std::int64_t, std::int64_t) { return Bytes{}; };
  for (const std::int64_t size : {0xFFFFFFFE, 0xFFFFFFFF}) {
    archive.addEntry(std::to_string(size), EntryType::file, size, someDate, std::nullopt,
                     CompressionMethod::none, 1 << 24, nullptr, nothing);
  }
  const auto below = *archive["4294967294"];
  const auto at = *archive["4294967295"];
  EXPECT_EQ(below.localFileHeader.extraFieldLength, 0);
  EXPECT_EQ(below.localFileHeader.versionNeededToExtract, 20);
  EXPECT_EQ(at.localFileHeader.extraFieldLength, 20);
  EXPECT_EQ(at.localFileHeader.versionNeededToExtract, 45);
  EXPECT_EQ(at.uncompressedSize(), 0xFFFFFFFFu);
}

TEST(ArchiveAddingTest, TheEntryCountSwitchesToZIP64EndRecordsAndBack) {
  TemporaryFolder folder;
  const auto archivePath = folder / "many.zip";
  writeFile(archivePath, emptyEntries(65534));
  const auto hasZIP64EndRecords = [&] {
    const auto bytes = readFile(archivePath);
    const auto locator = bytes.size() - 22 - 20;
    return bytes[locator] == 0x50 && bytes[locator + 1] == 0x4b && bytes[locator + 2] == 6 &&
           bytes[locator + 3] == 7;
  };
  Archive archive(archivePath, AccessMode::update);
  EXPECT_FALSE(hasZIP64EndRecords());
  addBytes(archive, "one more", Bytes(3, 'x'), CompressionMethod::none);
  EXPECT_TRUE(hasZIP64EndRecords());
  EXPECT_EQ(archive.resolvedEntryCount(), 65535u);
  EXPECT_TRUE(infoZipAccepts(archivePath));

  archive.remove(*archive["0"]);
  EXPECT_FALSE(hasZIP64EndRecords());
  EXPECT_EQ(archive.resolvedEntryCount(), 65534u);
  EXPECT_TRUE(pythonAccepts(archivePath));
}
