#include "Support.h"

#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <sys/stat.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

// Archives no careful tool would write. Each is a list of entries "name" (a small file) or
// "name->target" (a symbolic link), in order.
void makeHostileArchive(const fs::path& archive, const std::vector<std::string>& entries) {
  std::vector<BuiltEntry> built;
  for (const auto& item : entries) {
    const auto arrow = item.find("->");
    built.push_back(arrow == std::string::npos
                        ? BuiltEntry{.name = item, .data = bytesOf("payload")}
                        : BuiltEntry{.name = item.substr(0, arrow),
                                     .data = bytesOf(item.substr(arrow + 2)),
                                     .externalAttributes = 0120777u << 16});
  }
  writeFile(archive, buildArchive(built));
}

} // namespace

TEST(FileSystemTest, UnzippingRefusesEntriesThatLeaveTheDestinationBeforeWritingThem) {
  TemporaryFolder folder;
  const auto destination = folder / "destination";
  const auto outside = folder / "outside";
  fs::create_directories(outside);
  const std::vector<std::vector<std::string>> hostile{
      {"fine", "../evil"},
      {"a/../../evil"},
      {"../destination-sibling/evil"}, // shares the destination's name as a prefix
      {"link->" + outside.string(), "link/evil"},
      // Each link stays inside on its own; followed together they lead out.
      {"here->.", "up->here/..", "up/outside/evil"},
  };
  for (std::size_t i = 0; i < hostile.size(); ++i) {
    const auto archive = folder / (std::to_string(i) + ".zip");
    makeHostileArchive(archive, hostile[i]);
    for (const bool allowLinks : {false, true}) {
      SCOPED_TRACE(archive.string() + (allowLinks ? " allowing links" : ""));
      fs::remove_all(destination);
      try {
        unzipItem(archive, destination, false, allowLinks);
        ADD_FAILURE() << "unzipped";
      } catch (const FileError& error) {
        EXPECT_EQ(error.code(), FileError::Code::fileReadInvalidFileName);
      } catch (const ArchiveError& error) {
        EXPECT_FALSE(allowLinks);
        EXPECT_EQ(error.code(), ArchiveError::Code::uncontainedSymlink);
      }
      EXPECT_TRUE(fs::is_empty(outside));
      EXPECT_FALSE(fs::exists(folder / "evil"));
    }
  }
  // A path that climbs back in is fine, and so is a link that points outside when allowed; link
  // targets are checked even when checksums are skipped, and must be UTF-8.
  const auto archive = folder / "fine.zip";
  makeHostileArchive(archive, {"a/../inside", "out->" + outside.string()});
  fs::remove_all(destination);
  EXPECT_EQ(errorOf<ArchiveError>([&] { unzipItem(archive, destination, true); }),
            ArchiveError::Code::uncontainedSymlink);
  makeHostileArchive(folder / "binary.zip", {"binary->\xFF\xFE"});
  EXPECT_EQ(
      errorOf<ArchiveError>([&] { unzipItem(folder / "binary.zip", destination, false, true); }),
      ArchiveError::Code::invalidEntryPath);
  fs::remove_all(destination);
  unzipItem(archive, destination, false, true);
  EXPECT_TRUE(fs::exists(destination / "inside"));
  EXPECT_EQ(fs::read_symlink(destination / "out"), outside);
}

TEST(FileSystemTest, ZippingAndUnzippingCheckTheirEnds) {
  TemporaryFolder folder;
  writeFile(folder / "file", bytesOf("contents"));
  EXPECT_EQ(errorOf<FileError>([&] { zipItem(folder / "missing", folder / "a.zip"); }),
            FileError::Code::fileReadNoSuchFile);
  EXPECT_EQ(errorOf<FileError>([&] { zipItem(folder / "file", folder / "file"); }),
            FileError::Code::fileWriteFileExists);
  EXPECT_EQ(errorOf<FileError>([&] { unzipItem(folder / "missing", folder / "out"); }),
            FileError::Code::fileReadNoSuchFile);

  // A single file lands at the top level under its own name.
  zipItem(folder / "file", folder / "file.zip", true, CompressionMethod::deflate);
  unzipItem(folder / "file.zip", folder / "out");
  EXPECT_EQ(readFile(folder / "out/file"), readFile(folder / "file"));

  // An empty folder makes an archive without entries.
  fs::create_directories(folder / "empty");
  zipItem(folder / "empty", folder / "empty.zip");
  EXPECT_EQ(fs::file_size(folder / "empty.zip"), 22u);

  // An item that cannot be read ends zipping; the entries before it stay.
  fs::create_directories(folder / "with pipe");
  writeFile(folder / "with pipe/a", bytesOf("a"));
  writeFile(folder / "with pipe/b", bytesOf("b"));
  ASSERT_EQ(mkfifo((folder / "with pipe/c").c_str(), 0644), 0);
  writeFile(folder / "with pipe/d", bytesOf("d"));
  EXPECT_EQ(errorOf<FileError>([&] { zipItem(folder / "with pipe", folder / "pipe.zip"); }),
            FileError::Code::fileReadNoPermission);
  EXPECT_TRUE(infoZipAccepts(folder / "pipe.zip"));
  unzipItem(folder / "pipe.zip", folder / "pipe");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "pipe"), {}), 2);

  // Damaged data is reported after the item was written, unless checksums are skipped.
  zipItem(folder / "file", folder / "stored.zip");
  auto bytes = readFile(folder / "stored.zip");
  bytes[30 + 4] ^= 0xFF;
  writeFile(folder / "damaged.zip", bytes);
  EXPECT_EQ(errorOf<ArchiveError>([&] { unzipItem(folder / "damaged.zip", folder / "damaged"); }),
            ArchiveError::Code::invalidCRC32);
  EXPECT_TRUE(fs::exists(folder / "damaged/file"));
  unzipItem(folder / "damaged.zip", folder / "skipped", true);
  EXPECT_EQ(readFile(folder / "skipped/file")[0], 'c' ^ 0xFF);
}
