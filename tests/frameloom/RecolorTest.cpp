#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/files/DotLottieError.h>
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/files/RecoloredCopies.h>
#include <frameloom/ziploom/Errors.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

using frameloom::DotLottieFile;
using frameloom::testing::writeArchive;

namespace {

const std::string animation =
    R"({"w":100,"h":100,"layers":[{"shapes":[{"ty":"fl","c":{"a":0,"k":[1,0,0,1]}}]}]})";
const std::string recolored =
    R"({"w":100,"h":100,"layers":[{"shapes":[{"ty":"fl","c":{"a":0,"k":[0.200,0.400,0.600,1.000]}}]}]})";
const std::vector<frameloom::ColorComponents> palette = {{0.2, 0.4, 0.6, 1.0}};

// Recolouring writes into the temporary directory; each test gets its own.
class Recolor : public ::testing::Test {
protected:
  void SetUp() override {
    std::filesystem::create_directories(temporary());
    setenv("TMPDIR", temporary().c_str(), 1);
  }
  void TearDown() override { unsetenv("TMPDIR"); }

  std::filesystem::path temporary() const { return folder.path() / "tmp"; }
  std::size_t temporaryItems() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(temporary()),
                                                  std::filesystem::directory_iterator()));
  }

  static std::map<std::string, std::string> contents(const std::filesystem::path& path) {
    EXPECT_TRUE(frameloom::testing::everyEntryStored(path)) << path;
    const auto files = frameloom::testing::entriesOf(path);
    return {files.begin(), files.end()};
  }

  // The DotLottieError code that recolouring `entries` fails with, or -1; no entries stands
  // for a file that is not an archive.
  int failure(const frameloom::testing::ArchiveEntries& entries) {
    const auto source = folder.path() / "bad.lottie";
    if (entries.empty()) {
      frameloom::testing::writeFile(source, "PK but not really");
    } else {
      writeArchive(source, entries);
    }
    try {
      DotLottieFile::recolor(source, palette, 3);
    } catch (const frameloom::DotLottieError& error) {
      return static_cast<int>(error.code());
    }
    return -1;
  }

  frameloom::testing::TemporaryFolder folder;
};

TEST_F(Recolor, RewritesTheJSONAndCarriesEverythingElseOver) {
  const auto source = folder.path() / "in.lottie";
  const std::string picture("\x89PNG\r\n\x1a\n\0\1\2", 11);
  writeArchive(source, {{"manifest.json", R"({"animations":[{"id":"a"}]})"},
                        {"animations/", ""},
                        {"animations/a.json", animation},
                        {"images/img_0.png", picture}});
  ASSERT_EQ(DotLottieFile::readPalette(source).at(0).key, "1.0,0.0,0.0,1.0");
  EXPECT_EQ(temporaryItems(), 0u);

  const auto output = DotLottieFile::recolor(source, palette, 3);
  EXPECT_EQ(output.parent_path(), temporary());
  EXPECT_TRUE(output.filename().string().starts_with("modified_") &&
              output.filename().string().size() == std::string("modified_.lottie").size() + 36);
  const std::map<std::string, std::string> expected{
      {"animations/", ""},
      {"animations/a.json", recolored},
      {"images/", ""},
      {"images/img_0.png", picture},
      {"manifest.json", R"({"animations":[{"id":"a"}]})"}};
  EXPECT_EQ(contents(output), expected);
  EXPECT_EQ(std::system(("unzip -tqq '" + output.string() + "' > /dev/null").c_str()), 0);

  // The work folder stays behind; a second call gets new names.
  EXPECT_EQ(temporaryItems(), 2u);
  EXPECT_NE(DotLottieFile::recolor(source, palette, 3), output);
  EXPECT_EQ(temporaryItems(), 4u);

  // The JSON may lie deeper, in any letter case of its extension.
  writeArchive(source, {{"x/animations/a.JSON", animation}});
  EXPECT_EQ(contents(DotLottieFile::recolor(source, palette, 3)).at("x/animations/a.JSON"),
            recolored);
}

TEST_F(Recolor, RefusesBadSourcesBeforeWritingAnything) {
  EXPECT_EQ(failure({}), 1);
  EXPECT_EQ(failure({{"Animations/a.json", animation}}), 2);
  EXPECT_EQ(failure({{"animations/a.json", "{\"nm\":\"caf\xE9\",\"w\":1,\"h\":1}"}}), 300);
  EXPECT_EQ(failure({{"animations/a.json", animation}, {"a/../../escaped.txt", "x"}}), 12);
  EXPECT_EQ(temporaryItems(), 0u);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "escaped.txt"));
}

TEST_F(Recolor, EntryPathsAreAppendedToTheWorkFolderAndNeverReplaceEachOther) {
  // A rooted entry path lands inside the work folder like any other.
  const auto source = folder.path() / "rooted.lottie";
  writeArchive(source, {{"animations/a.json", animation}, {"/tmp/rooted.txt", "x"}});
  EXPECT_EQ(contents(DotLottieFile::recolor(source, palette, 3)).at("tmp/rooted.txt"), "x");

  // A second entry at the JSON's path fails as extracting onto an existing file does.
  writeArchive(source, {{"animations/a.json", animation}, {"animations/a.json", "{}"}});
  try {
    DotLottieFile::recolor(source, palette, 3);
    ADD_FAILURE() << "recoloured";
  } catch (const frameloom::ziploom::FileError& error) {
    EXPECT_EQ(error.code(), frameloom::ziploom::FileError::Code::fileWriteFileExists);
    EXPECT_EQ(error.path().filename(), "a.json");
  }
}

} // namespace

namespace {

TEST_F(Recolor, RemovingRecoloredCopiesLeavesOnlyWhatOthersWrote) {
  const auto source = folder.path() / "in.lottie";
  writeArchive(source, {{"manifest.json", R"({"animations":[{"id":"a"}]})"},
                       {"animations/a.json", animation}});
  frameloom::testing::writeFile(temporary() / "host.txt", "kept");
  frameloom::removeRecoloredCopies();
  DotLottieFile::recolor(source, palette, 3);
  DotLottieFile::recolor(source, palette, 3);
  ASSERT_EQ(temporaryItems(), 5u);

  EXPECT_EQ(frameloom::removeRecoloredCopies(), 4u);
  EXPECT_EQ(temporaryItems(), 1u);
  EXPECT_TRUE(std::filesystem::exists(temporary() / "host.txt"));
  EXPECT_EQ(frameloom::removeRecoloredCopies(), 0u);
}

} // namespace
