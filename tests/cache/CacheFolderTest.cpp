#include "frameloom/CacheFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

namespace frameloom {
namespace {
namespace fs = std::filesystem;
using ::testing::ElementsAre;

class CacheFolderTest : public ::testing::Test {
protected:
  void SetUp() override {
    fs::remove_all(root);
    fs::create_directories(root);
  }
  void TearDown() override { fs::remove_all(root); }

  // Files made one after another get distinct, increasing creation dates.
  void makeFiles(const std::vector<std::pair<std::string, std::size_t>>& files) {
    for (const auto& [name, size] : files) {
      std::this_thread::sleep_for(std::chrono::milliseconds(15));
      std::ofstream(root / name, std::ios::binary) << std::string(size, 'x');
    }
  }
  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(root)) {
      result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  const fs::path root =
      fs::temp_directory_path() / ("frameloom-folder-" + std::to_string(::getpid()));
};

TEST_F(CacheFolderTest, WriteReplacesWholeFilesAndSizeCountsRegularFilesOnly) {
  CacheFolder folder(root);
  folder.write("-42", std::vector<std::uint8_t>(1000, 1));
  folder.write("-42", std::vector<std::uint8_t>{1, 2, 3});
  EXPECT_EQ(folder.read("-42"), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_THAT(names(), ElementsAre("-42")); // no temporary file left behind

  fs::create_directory(root / "sub");
  std::ofstream(root / "sub" / "inner") << std::string(100, 'x');
  fs::create_symlink(root / "-42", root / "link");
  EXPECT_EQ(folder.size(), 3);
  EXPECT_EQ(CacheFolder(root / "absent").size(), 0);
}

TEST_F(CacheFolderTest, TrimDeletesOldestFirstAndGoesOnPastAFailedDeletion) {
  makeFiles({{"stuck", 50}, {"old", 50}, {"middle", 50}, {"new", 50}});
  CacheFolder folder(root);
  folder.trim(200); // exactly at the target: nothing goes
  EXPECT_EQ(names().size(), 4u);

  // An immutable file cannot be deleted, not even by root.
  const std::string stuck = (root / "stuck").string();
  if (std::system(("chattr +i '" + stuck + "' 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "chattr +i is not available here";
  }
  ::testing::internal::CaptureStdout();
  folder.trim(100);
  const std::string output = ::testing::internal::GetCapturedStdout();
  std::system(("chattr -i '" + stuck + "'").c_str());
  EXPECT_THAT(names(), ElementsAre("new", "stuck"));
  EXPECT_THAT(output, ::testing::MatchesRegex("Failed to remove cache file: [^\n]*stuck[^\n]*\n"));
}

TEST_F(CacheFolderTest, RemoveAllDeletesEveryItemAndReportsAMissingFolder) {
  makeFiles({{"1", 10}, {".hidden", 10}});
  fs::create_directories(root / "sub" / "deeper");
  CacheFolder(root).removeAll();
  EXPECT_TRUE(names().empty());
  EXPECT_THROW(CacheFolder(root / "absent").removeAll(), fs::filesystem_error);
  ::testing::internal::CaptureStdout();
  CacheFolder(root / "absent").trim(0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(EvictionCandidatesTest, OldestFirstStableOnEqualDatesWithoutUndatedOrUnsized) {
  using Date = std::chrono::sys_time<std::chrono::nanoseconds>;
  const Date early{std::chrono::nanoseconds(100)}, late{std::chrono::nanoseconds(200)};
  std::vector<FolderItem> items = {
      {"late-a", late, 1}, {"undated", std::nullopt, 1},    {"early", early, 1},
      {"late-b", late, 1}, {"folder", early, std::nullopt}, {"late-c", late, 1},
  };
  std::vector<std::string> order;
  for (const FolderItem& item : evictionCandidates(items)) {
    order.push_back(item.path.string());
  }
  EXPECT_THAT(order, ElementsAre("early", "late-a", "late-b", "late-c"));
}

} // namespace
} // namespace frameloom
