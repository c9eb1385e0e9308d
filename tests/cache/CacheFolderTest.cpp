#include "frameloom/CacheFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

namespace frameloom {
namespace {
namespace fs = std::filesystem;
using std::chrono::nanoseconds;
using std::chrono::sys_time;

class CacheFolderTest : public ::testing::Test {
protected:
  void SetUp() override {
    root = fs::temp_directory_path() /
           ("frameloom-folder-" + std::to_string(::getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
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

  fs::path root;
};

TEST_F(CacheFolderTest, WriteReplacesAndReadReturnsTheWholeFile) {
  CacheFolder folder(root);
  folder.write("-42", std::vector<std::uint8_t>(1000, 1));
  folder.write("-42", std::vector<std::uint8_t>{1, 2, 3});
  EXPECT_TRUE(folder.contains("-42"));
  EXPECT_EQ(folder.read("-42"), (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_THAT(names(), ::testing::ElementsAre("-42")); // no temporary file left behind
  EXPECT_THROW(folder.read("7"), std::system_error);

  CacheFolder missing(root / "absent");
  EXPECT_THROW(missing.write("1", std::vector<std::uint8_t>{1}), std::system_error);
}

TEST_F(CacheFolderTest, SizeCountsRegularFilesOnly) {
  makeFiles({{"1", 10}, {"2", 20}});
  fs::create_directory(root / "sub");
  std::ofstream(root / "sub" / "inner") << std::string(100, 'x');
  fs::create_symlink(root / "1", root / "link");
  EXPECT_EQ(CacheFolder(root).size(), 30);
  EXPECT_EQ(CacheFolder(root / "absent").size(), 0);
}

TEST_F(CacheFolderTest, TrimDeletesOldestFirstDownToTheTarget) {
  makeFiles({{"old", 40}, {"middle", 30}, {"new", 30}});
  CacheFolder folder(root);
  folder.trim(100); // exactly at the target: nothing goes
  EXPECT_EQ(names().size(), 3u);
  folder.trim(99);
  EXPECT_THAT(names(), ::testing::ElementsAre("middle", "new"));
  folder.trim(1);
  EXPECT_TRUE(names().empty());
}

TEST_F(CacheFolderTest, TrimOfAnEmptyOrMissingFolderDoesNothing) {
  ::testing::internal::CaptureStdout();
  CacheFolder(root).trim(0);
  CacheFolder(root / "absent").trim(0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST_F(CacheFolderTest, FailedDeletionIsPrintedAndTheTrimGoesOn) {
  makeFiles({{"stuck", 50}, {"next", 50}, {"newest", 50}});
  // An immutable file cannot be deleted, not even by root.
  if (std::system(("chattr +i '" + (root / "stuck").string() + "' 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "chattr +i is not available here";
  }
  ::testing::internal::CaptureStdout();
  CacheFolder(root).trim(100);
  const std::string output = ::testing::internal::GetCapturedStdout();
  std::system(("chattr -i '" + (root / "stuck").string() + "'").c_str());

  EXPECT_THAT(names(), ::testing::ElementsAre("newest", "stuck"));
  EXPECT_THAT(output, ::testing::MatchesRegex("Failed to remove cache file: .*stuck.*\n"));
}

TEST_F(CacheFolderTest, RemoveAllDeletesEveryItemAndReportsAMissingFolder) {
  makeFiles({{"1", 10}, {".hidden", 10}});
  fs::create_directories(root / "sub" / "deeper");
  CacheFolder(root).removeAll();
  EXPECT_TRUE(names().empty());
  EXPECT_THROW(CacheFolder(root / "absent").removeAll(), fs::filesystem_error);
}

TEST(EvictionCandidatesTest, OldestFirstStableOnEqualDatesWithoutUndatedOrUnsized) {
  const sys_time<nanoseconds> early{nanoseconds(100)};
  const sys_time<nanoseconds> late{nanoseconds(200)};
  std::vector<FolderItem> items = {
      {"late-a", late, 1}, {"undated", std::nullopt, 1},    {"early", early, 1},
      {"late-b", late, 1}, {"folder", early, std::nullopt}, {"late-c", late, 1},
  };
  std::vector<std::string> order;
  for (const FolderItem& item : evictionCandidates(items)) {
    order.push_back(item.path.string());
  }
  EXPECT_THAT(order, ::testing::ElementsAre("early", "late-a", "late-b", "late-c"));
}

} // namespace
} // namespace frameloom
