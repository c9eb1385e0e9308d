#include "Support.h"

#include <frameloom/ziploom/Errors.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;
using frameloom::platform::Progress;

TEST(RemovingRules, TheScratchArchiveLivesInASystemFolderNotBesideTheArchive) {
  TemporaryFolder folder;
  const auto path = folder / "archive.zip";
  writeFile(path, buildArchive({{.name = "a", .data = randomBytes(5000)},
                                {.name = "b", .data = randomBytes(5000, 7)}}));
  Archive archive(path, AccessMode::update);
  std::vector<fs::path> besideArchive;
  fs::path scratch;
  auto progress = Progress::make();
  progress->setObserver([&](const Progress&) {
    for (const auto& item : fs::directory_iterator(folder.path())) {
      besideArchive.push_back(item.path());
    }
    for (const auto& item : fs::directory_iterator(fs::temp_directory_path())) {
      if (item.path().filename().string().starts_with("ziploom-removing-") &&
          fs::exists(item.path() / "archive")) {
        scratch = item.path();
      }
    }
  });
  archive.remove(*archive["a"], 1024, progress);
  EXPECT_FALSE(besideArchive.empty());
  for (const auto& item : besideArchive) {
    EXPECT_EQ(item, path);
  }
  ASSERT_FALSE(scratch.empty());
  EXPECT_FALSE(fs::exists(scratch));
  EXPECT_EQ(paths(archive), std::vector<std::string>{"b"});
}

TEST(RemovingRules, ADirectoryThatEndsBeforeItsCountIsRefusedAsDamage) {
  TemporaryFolder folder;
  const auto path = folder / "archive.zip";
  const auto bytes =
      buildArchive({{.name = "a", .data = bytesOf("a")}, {.name = "b", .data = bytesOf("b")}},
                   {.claimedEntries = 3});
  writeFile(path, bytes);
  Archive archive(path, AccessMode::update);
  EXPECT_EQ(errorOf<ArchiveError>([&] { archive.remove(*archive["a"]); }),
            ArchiveError::Code::damagedCentralDirectory);
  EXPECT_EQ(readFile(path), bytes);
}
