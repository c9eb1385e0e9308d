#include "Support.h"

#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

#include <sys/stat.h>

#include <ctime>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

TEST(ExtractionRules, EntryPathsAreAppendedToTheDestinationAsPathComponents) {
  TemporaryFolder folder;
  writeFile(folder / "a.zip", buildArchive({{.name = "/rooted/file", .data = bytesOf("r")},
                                            {.name = "//double", .data = bytesOf("d")}}));
  unzipItem(folder / "a.zip", folder / "out");
  EXPECT_EQ(readFile(folder / "out/rooted/file"), bytesOf("r"));
  EXPECT_EQ(readFile(folder / "out/double"), bytesOf("d"));
  EXPECT_EQ(appendingPathComponent("/w/base", "/etc/hostname"), fs::path("/w/base/etc/hostname"));
  EXPECT_EQ(appendingPathComponent("w", "a/../b"), fs::path("w/a/../b"));
}

TEST(ExtractionRules, UnzippingAnEmptyArchiveCreatesNothing) {
  TemporaryFolder folder;
  writeFile(folder / "empty.zip", buildArchive({}));
  unzipItem(folder / "empty.zip", folder / "out/deeper");
  EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST(ExtractionRules, ItemsKeepTheirOwnAccessTime) {
  TemporaryFolder folder;
  const auto start = std::time(nullptr) - 2;
  writeFile(folder / "a.zip",
            buildArchive(
                {{.name = "file", .data = bytesOf("f")},
                 {.name = "link", .data = bytesOf("file"), .externalAttributes = 0120777u << 16}}));
  unzipItem(folder / "a.zip", folder / "out");
  for (const auto* name : {"file", "link"}) {
    SCOPED_TRACE(name);
    struct stat status {};
    ASSERT_EQ(lstat((folder / "out" / name).c_str(), &status), 0);
    EXPECT_GE(status.st_atim.tv_sec, start);
    EXPECT_LT(status.st_mtim.tv_sec, start); // the entry's date
  }
}

TEST(ExtractionRules, MemoryFilesStoreEveryPositionTheyAreGiven) {
  struct Case {
    std::int64_t offset;
    int whence;
    std::int64_t expected;
  };
  const std::vector<Case> cases{
      {3, SEEK_SET, 3}, {-5, SEEK_SET, -5}, {-20, SEEK_END, -10},
      {2, SEEK_CUR, 6}, {4, 99, -1},        {INT64_MAX, SEEK_END, -1},
  };
  for (const auto& [offset, whence, expected] : cases) {
    SCOPED_TRACE(std::to_string(offset) + " from " + std::to_string(whence));
    MemoryFile file(Bytes(10, 7));
    file.seek(4, SEEK_SET);
    EXPECT_EQ(file.seek(offset, whence), expected);
    EXPECT_EQ(file.offset(), expected);
    if (expected < 0) {
      std::uint8_t buffer[4];
      EXPECT_EQ(file.readBytes(buffer), 0u);
      EXPECT_EQ(file.writeBytes(bytesOf("ab")), 0u);
      EXPECT_EQ(file.data(), Bytes(10, 7));
    }
  }
}
