#include "Support.h"

#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <fcntl.h>

#include <sstream>

using namespace frameloom::ziploom;
using namespace frameloom::testing;
using EntryType = Entry::EntryType;
using frameloom::platform::Progress;

namespace {

const std::chrono::system_clock::time_point someDate =
    std::chrono::sys_days(std::chrono::year(2021) / 6 / 15) + std::chrono::seconds(37230);
const Provider nothing = [](std::int64_t, std::int64_t) { return Bytes{}; };

void addBytes(Archive& archive, const std::string& path, const Bytes& bytes,
              CompressionMethod method) {
  archive.addEntry(path, EntryType::file, static_cast<std::int64_t>(bytes.size()), someDate, 0640,
                   method, 1024, nullptr, providerFor(bytes));
}

// A tree with what archives have to carry: nested and empty folders, empty and large files,
// links to files and folders, names with spaces and non-ASCII characters, unusual modes.
void makeTree(const fs::path& root) {
  fs::create_directories(root / "nested/deeper/deepest");
  fs::create_directories(root / "empty folder");
  writeFile(root / "empty", Bytes{});
  writeFile(root / "text.txt", bytesOf(std::string(200000, 'x') + "end"));
  writeFile(root / "nested/random.bin", randomBytes(70000));
  writeFile(root / "nested/deeper/deepest/Grüße, café.txt", bytesOf("non-ASCII name"));
  writeFile(root / "nested/private", bytesOf("secret"));
  fs::permissions(root / "nested/private", fs::perms::owner_read | fs::perms::owner_write);
  fs::permissions(root / "nested/deeper", fs::perms::owner_all);
  fs::create_symlink("text.txt", root / "link to text");
  fs::create_symlink("nested/deeper", root / "link to folder");
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    const timespec times[2] = {{1600000001, 0}, {1600000001, 0}};
    utimensat(AT_FDCWD, item.path().c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
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

  Bytes current(Archive& archive) {
    return archive.isMemoryBacked() ? *archive.data() : readFile(archivePath);
  }

  TemporaryFolder folder;
  const fs::path archivePath = folder / "archive.zip";
  Bytes before;
};

} // namespace

TEST(ArchiveAddingTest, EntriesAddedThroughEveryFormReadBackAndPassOtherTools) {
  TemporaryFolder folder;
  const auto archivePath = folder / "made.zip";
  writeFile(folder / "loose file", bytesOf("loose"));
  {
    Archive archive(archivePath, AccessMode::create);
    addBytes(archive, "stored.bin", randomBytes(4096), CompressionMethod::none);
    EXPECT_EQ(archive.resolvedCentralDirectoryOffset(), 30u + 10 + 4096);
    addBytes(archive, "deflated.txt", Bytes(50000, 'z'), CompressionMethod::deflate);
    archive.addEntry("folder", EntryType::directory, 0, someDate, std::nullopt,
                     CompressionMethod::deflate, 1024, nullptr, nothing);
    const auto target = bytesOf("stored.bin");
    archive.addEntry("link", EntryType::symlink, 10, someDate, 0777, CompressionMethod::deflate,
                     1024, nullptr, providerFor(target));
    archive.addEntry("copied", Archive::FileURL{folder.path()});
    archive.addEntry("loose file", Archive::RelativeTo{folder.path()}, CompressionMethod::deflate);
  }
  EXPECT_TRUE(infoZipAccepts(archivePath));
  EXPECT_TRUE(pythonAccepts(archivePath));

  Archive archive(archivePath, AccessMode::read);
  // The provider form stores a folder's path as given; the file-system form ends it in "/".
  EXPECT_EQ(paths(archive), (std::vector<std::string>{"stored.bin", "deflated.txt", "folder",
                                                      "link", "copied/", "loose file"}));
  const auto deflated = *archive["deflated.txt"];
  EXPECT_LT(deflated.compressedSize(), 1000u);
  EXPECT_EQ(deflated.fileAttributes().posixPermissions, 0640);
  EXPECT_EQ(deflated.fileAttributes().modificationDate, someDate);
  // Folders and links are always stored.
  EXPECT_EQ(archive["folder"]->centralDirectoryStructure.externalFileAttributes >> 16, 040755u);
  EXPECT_EQ(archive["link"]->type(), EntryType::symlink);
  EXPECT_FALSE(archive["folder"]->isCompressed() || archive["link"]->isCompressed());
}

TEST(ArchiveAddingTest, ZippedTreesUnzipToTheSameTreeWithInfoZipAndWithTheLibrary) {
  TemporaryFolder folder;
  makeTree(folder / "tree");
  const auto source = snapshot(folder / "tree");
  for (const auto method : {CompressionMethod::none, CompressionMethod::deflate}) {
    const auto name = std::to_string(static_cast<int>(method));
    const auto archive = folder / (name + ".zip");
    zipItem(folder / "tree", archive, false, method);
    EXPECT_TRUE(pythonAccepts(archive));
    const auto byInfoZip = folder / (name + "-unzip");
    ASSERT_TRUE(succeeds("TZ=UTC unzip -q " + quoted(archive) + " -d " + quoted(byInfoZip)));
    EXPECT_EQ(snapshot(byInfoZip), source);
    unzipItem(archive, folder / (name + "-library"));
    EXPECT_EQ(snapshot(folder / (name + "-library")), source);
  }

  // With the parent kept, everything lies below the folder's own entry, which comes last.
  zipItem(folder / "tree", folder / "kept.zip", true);
  const auto keptPaths = paths(Archive(folder / "kept.zip", AccessMode::read));
  EXPECT_EQ(keptPaths.back(), "tree/");
  EXPECT_EQ(keptPaths.size(), source.size() + 1);
  for (const auto& path : keptPaths) {
    EXPECT_TRUE(path.starts_with("tree/")) << path;
  }
}

TEST_F(ArchiveWritingTest, RemovingKeepsExactlyTheOtherEntriesInFilesAndInMemory) {
  Archive memory(before, AccessMode::update);
  Archive file(archivePath, AccessMode::update);
  for (Archive* archive : {&file, &memory}) {
    // Removing the first entry moves the others down; their data is still theirs.
    archive->remove(*(*archive)["first.txt"]);
    EXPECT_EQ((*archive)["second.bin"]->centralDirectoryStructure.relativeOffsetOfLocalHeader, 0u);
    Bytes second;
    archive->extract(*(*archive)["second.bin"], appendTo(second));
    EXPECT_EQ(second, randomBytes(5000));
    writeFile(folder / "copy.zip", current(*archive));
    EXPECT_TRUE(infoZipAccepts(folder / "copy.zip"));
    EXPECT_TRUE(pythonAccepts(folder / "copy.zip"));
    for (const auto* path : {"third.txt", "second.bin"}) {
      archive->remove(*(*archive)[path]);
    }
    EXPECT_EQ(current(*archive), EndOfCentralDirectoryRecord{}.data());
  }
  // Nothing was left next to the archive.
  fs::remove(folder / "copy.zip");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(ArchiveWritingTest, FailedOrCancelledChangesLeaveTheArchiveAsItWas) {
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
      EXPECT_EQ(errorOf<ArchiveError>([&] {
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
      EXPECT_EQ(current(*archive), before);
    }
    auto progress = Progress::make();
    progress->setObserver([](const Progress& changed) {
      if (changed.completedUnitCount() > 0) {
        const_cast<Progress&>(changed).cancel();
      }
    });
    EXPECT_EQ(
        errorOf<ArchiveError>([&] { archive->remove(*(*archive)["third.txt"], 1024, progress); }),
        ArchiveError::Code::cancelledOperation);
    EXPECT_EQ(current(*archive), before);
    // The archive still works afterwards.
    addBytes(*archive, "after", Bytes(100, 'x'), CompressionMethod::deflate);
    EXPECT_EQ(paths(*archive).back(), "after");
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), {}), 1);
}

TEST_F(ArchiveWritingTest, NothingIsWrittenThroughReadOnlyArchivesOrForBadRequests) {
  Archive archive(archivePath, AccessMode::read);
  EXPECT_EQ(
      errorOf<ArchiveError>([&] { addBytes(archive, "x", Bytes(5), CompressionMethod::none); }),
      ArchiveError::Code::unwritableArchive);
  EXPECT_EQ(errorOf<ArchiveError>([&] { archive.remove(*archive["first.txt"]); }),
            ArchiveError::Code::unwritableArchive);
  // Nor for an entry that is not in the archive, or a name too long to store.
  Archive other(archivePath, AccessMode::update);
  auto stranger = *other["first.txt"];
  stranger.localFileHeader.crc32 ^= 1;
  EXPECT_EQ(errorOf<ArchiveError>([&] { other.remove(stranger); }),
            ArchiveError::Code::invalidEntryPath);
  EXPECT_EQ(errorOf<ArchiveError>([&] {
              addBytes(other, std::string(70000, 'n'), Bytes(5), CompressionMethod::none);
            }),
            ArchiveError::Code::invalidEntryPath);
  EXPECT_EQ(readFile(archivePath), before);
}

// The level reaches both the single-entry and the batched path: the fastest level leaves the
// text larger than the smallest, and every level reads back the same.
TEST(ArchiveAddingTest, CompressionLevelsTradeSizeAndReadBackAlike) {
  const TemporaryFolder folder;
  const auto text = wordText(400'000);
  writeFile(folder.path() / "a.txt", text);
  writeFile(folder.path() / "b.txt", text);
  std::map<int, std::uint64_t> sizes;
  for (const int level : {fastestCompressionLevel, smallestCompressionLevel}) {
    Archive archive(Bytes{}, AccessMode::create);
    archive.setCompressionLevel(level);
    archive.addEntry("one.txt", Archive::FileURL{folder.path() / "a.txt"},
                     CompressionMethod::deflate);
    archive.addEntries(
        {{"a.txt", folder.path() / "a.txt", nullptr}, {"b.txt", folder.path() / "b.txt", nullptr}},
        CompressionMethod::deflate);
    for (const auto& entry : archive) {
      Bytes contents;
      archive.extract(entry, appendTo(contents));
      EXPECT_EQ(contents, text) << level;
      sizes[level] += entry.compressedSize();
    }
  }
  EXPECT_GT(sizes[fastestCompressionLevel], sizes[smallestCompressionLevel]);
  Archive archive(Bytes{}, AccessMode::create);
  for (const int level : {0, 10}) {
    EXPECT_EQ(errorOf<ArchiveError>([&] { archive.setCompressionLevel(level); }),
              ArchiveError::Code::invalidCompressionMethod);
  }
}

TEST(ArchiveAddingTest, BatchedEntriesInMemoryGetZIP64EndRecordsFromTheEntryCountOn) {
  TemporaryFolder folder;
  writeFile(folder / "empty", Bytes{});
  std::vector<Archive::FileItem> items;
  for (int i = 0; i < 65535; ++i) {
    items.push_back({std::to_string(i), folder / "empty", nullptr});
  }
  Archive archive(Bytes{}, AccessMode::create);
  archive.addEntries(items);
  // Python reads every entry; the end records agree on the count and point at the directory and
  // at each other.
  const auto check = [&](const char* name) {
    writeFile(folder / name, *archive.data());
    return run(python() + " -c '" + R"(
import struct, sys, zipfile
data = open(sys.argv[1], "rb").read()
names = zipfile.ZipFile(sys.argv[1]).namelist()
end = struct.unpack("<IHHHHIIH", data[-22:])
line = [len(names), len(set(names)), end[3], end[4], end[6]]
if data[-42:-38] == b"PK\x06\x07":
    _, _, at, disks = struct.unpack("<IIQI", data[-42:-22])
    record = struct.unpack("<IQHHIIQQQQ", data[at:at + 56])
    line += [hex(record[0]), record[1], record[6], record[7], disks, record[9],
             data[record[9]:record[9] + 4] == b"PK\x01\x02", record[9] + record[8] == at]
print(*line))" +
               "' " + quoted(folder / name));
  };
  auto offset = std::to_string(archive.resolvedCentralDirectoryOffset());
  EXPECT_EQ(check("65535.zip"), "65535 65535 65535 65535 " + offset +
                                    " 0x6064b50 44 65535 65535 1 " + offset + " True True\n");
  archive.remove(*archive["0"]);
  offset = std::to_string(archive.resolvedCentralDirectoryOffset());
  EXPECT_EQ(check("65534.zip"), "65534 65534 65534 65534 " + offset + "\n");
}
