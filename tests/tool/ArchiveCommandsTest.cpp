// The archive commands behave as zip users expect: replacing entries, deflating by default,
// never zipping an archive into itself, and choosing what happens to files already unzipped.

#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>

namespace frameloom::testing {
namespace {

namespace fs = std::filesystem;

class ArchiveCommands : public ::testing::Test {
protected:
  void SetUp() override {
    fs::create_directories(folder / "tree" / "sub");
    write("tree/a.txt", std::string(4000, 'a'));
    write("tree/sub/b.txt", "bee");
  }
  void write(const std::string& path, const std::string& text) const {
    std::ofstream(folder / path, std::ios::binary) << text;
  }
  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }
  // The lines of `archive list` without the type and sizes: method and path.
  std::vector<std::string> methodsAndPaths(const std::string& archive) const {
    const ToolRun list = run("archive list " + archive);
    EXPECT_EQ(list.status, 0) << list.err;
    std::vector<std::string> lines;
    std::istringstream in(list.out);
    for (std::string type, method, size, packed, crc, path;
         in >> type >> method >> size >> packed >> crc >> path;) {
      lines.push_back(method + " " + path);
    }
    return lines;
  }

  TemporaryFolder temporary;
  const fs::path& folder = temporary.path();
};

TEST_F(ArchiveCommands, ZipDeflatesByDefaultStoresWhenAskedAndNeverHoldsItself) {
  const std::vector<std::pair<std::string, std::string>> cases{{"", "deflate"},
                                                               {"--deflate", "deflate"},
                                                               {"-9", "deflate"},
                                                               {"--store", "stored"},
                                                               {"-0", "stored"}};
  for (const auto& [option, method] : cases) {
    fs::remove(folder / "out.zip");
    ASSERT_EQ(run("archive zip tree out.zip " + option).status, 0) << option;
    EXPECT_EQ(methodsAndPaths("out.zip"),
              (std::vector<std::string>{method + " a.txt", "stored sub/", method + " sub/b.txt"}))
        << option;
  }
  EXPECT_EQ(run("archive zip tree out2.zip --store --deflate").status, 2);
  // -1 is the fastest level and -9 the smallest: on text they make archives of different sizes.
  std::string words;
  for (unsigned seed = 1; words.size() < 300'000; seed = seed * 1103515245 + 12345) {
    words += std::array{"frame ", "loom ", "layer ", "shape\n", "key "}[(seed >> 16) % 5];
  }
  fs::create_directories(folder / "text");
  write("text/words.txt", words);
  ASSERT_EQ(run("archive zip text fast.zip -1").status, 0);
  ASSERT_EQ(run("archive zip text small.zip -9").status, 0);
  EXPECT_GT(fs::file_size(folder / "fast.zip"), fs::file_size(folder / "small.zip"));
  ASSERT_EQ(run("archive unzip fast.zip fast").status, 0);
  EXPECT_EQ(readText(folder / "fast/words.txt"), words);
  // An archive made inside the folder it zips does not take itself in.
  ASSERT_EQ(run("archive zip tree tree/self.zip").status, 0);
  EXPECT_EQ(methodsAndPaths("tree/self.zip"),
            (std::vector<std::string>{"deflate a.txt", "stored sub/", "deflate sub/b.txt"}));
}

TEST_F(ArchiveCommands, AddReplacesAnEntryOfTheSamePath) {
  ASSERT_EQ(run("archive zip tree out.zip").status, 0);
  write("new.txt", "new contents");
  ASSERT_EQ(run("archive add out.zip sub/b.txt new.txt").status, 0);
  EXPECT_EQ(methodsAndPaths("out.zip"),
            (std::vector<std::string>{"deflate a.txt", "stored sub/", "stored sub/b.txt"}));
  EXPECT_EQ(run("archive cat out.zip sub/b.txt").out, "new contents");
  // The same result as Info-ZIP's update of that entry.
  ASSERT_EQ(run("archive unzip out.zip check").status, 0);
  EXPECT_EQ(readText(folder / "check/sub/b.txt"), "new contents");
}

TEST_F(ArchiveCommands, UnzipOverFilesStopsOverwritesOrSkips) {
  ASSERT_EQ(run("archive zip tree out.zip").status, 0);
  auto prepare = [&] {
    fs::remove_all(folder / "dest");
    fs::create_directories(folder / "dest/sub");
    write("dest/sub/b.txt", "mine");
    write("dest/other.txt", "kept");
  };
  prepare();
  const ToolRun refused = run("archive unzip out.zip dest");
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("b.txt"), std::string::npos) << refused.err;
  EXPECT_EQ(readText(folder / "dest/sub/b.txt"), "mine");

  const std::vector<std::pair<std::string, std::string>> cases{{"--overwrite", "bee"},
                                                               {"--skip-existing", "mine"}};
  for (const auto& [option, expected] : cases) {
    prepare();
    const ToolRun result = run("archive unzip out.zip dest " + option);
    EXPECT_EQ(result.status, 0) << option << result.err;
    EXPECT_EQ(readText(folder / "dest/sub/b.txt"), expected) << option;
    EXPECT_EQ(readText(folder / "dest/a.txt"), std::string(4000, 'a')) << option;
    EXPECT_EQ(readText(folder / "dest/other.txt"), "kept") << option;
    // Nothing of the unzipping is left behind.
    std::size_t items = 0;
    for ([[maybe_unused]] const auto& item : fs::recursive_directory_iterator(folder / "dest")) {
      ++items;
    }
    EXPECT_EQ(items, 4u) << option;
  }
  EXPECT_EQ(run("archive unzip out.zip dest --overwrite --skip-existing").status, 2);
}

} // namespace
} // namespace frameloom::testing
