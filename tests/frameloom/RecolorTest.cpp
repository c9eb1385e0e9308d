#include "TestArchives.h"
#include "frameloom/DotLottieError.h"
#include "frameloom/DotLottieFile.h"
#include "ziploom/Archive.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

using frameloom::DotLottieError;
using frameloom::DotLottieFile;
using frameloom::testing::makeArchive;
using frameloom::testing::readFile;
using frameloom::testing::TemporaryFolder;
using frameloom::testing::writeFile;

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
    std::map<std::string, std::string> files;
    ziploom::Archive archive(path, ziploom::AccessMode::read);
    for (const auto& entry : archive) {
      EXPECT_EQ(entry.localFileHeader.compressionMethod, 0) << entry.path();
      std::string& data = files[entry.path()];
      archive.extract(
          entry, [&data](ziploom::ByteView chunk) { data.append(chunk.begin(), chunk.end()); });
    }
    return files;
  }

  template <typename Action>
  static int domainCode(Action action) {
    try {
      action();
    } catch (const DotLottieError& error) {
      return static_cast<int>(error.code());
    }
    return -1;
  }

  TemporaryFolder folder;
};

TEST_F(Recolor, RewritesTheJSONAndCarriesEverythingElseOver) {
  const auto source = folder.path() / "in.lottie";
  const std::string picture("\x89PNG\r\n\x1a\n\0\1\2", 11);
  makeArchive(source, {{"manifest.json", R"({"animations":[{"id":"a"}]})"},
                       {"animations/", ""},
                       {"animations/a.json", animation},
                       {"images/img_0.png", picture}});

  const auto output = DotLottieFile::recolor(source, palette, 3);
  EXPECT_EQ(output.parent_path(), temporary());
  EXPECT_TRUE(output.filename().string().starts_with("modified_"));
  EXPECT_EQ(output.filename().string().size(), std::string("modified_.lottie").size() + 36);

  const auto files = contents(output);
  EXPECT_EQ(files.at("animations/a.json"), recolored);
  EXPECT_EQ(files.at("manifest.json"), R"({"animations":[{"id":"a"}]})");
  EXPECT_EQ(files.at("images/img_0.png"), picture);
  EXPECT_TRUE(files.count("animations/") == 1 && files.count("images/") == 1);
  EXPECT_EQ(std::system(("unzip -tqq '" + output.string() + "' > /dev/null").c_str()), 0);

  // The work folder stays behind with the unpacked files; a second call gets new names.
  EXPECT_EQ(temporaryItems(), 2u);
  const auto second = DotLottieFile::recolor(source, palette, 3);
  EXPECT_NE(second, output);
  EXPECT_EQ(temporaryItems(), 4u);
}

TEST_F(Recolor, FindsTheJSONByItsOwnRule) {
  const auto nested = folder.path() / "nested.lottie";
  makeArchive(nested, {{"x/animations/a.JSON", animation}});
  EXPECT_EQ(contents(DotLottieFile::recolor(nested, palette, 3)).at("x/animations/a.JSON"),
            recolored);

  const auto capital = folder.path() / "capital.lottie";
  makeArchive(capital, {{"Animations/a.json", animation}});
  EXPECT_EQ(domainCode([&] { DotLottieFile::recolor(capital, palette, 3); }), 2);
}

TEST_F(Recolor, RefusesBadSourcesBeforeWritingAnything) {
  writeFile(folder.path() / "not.lottie", "PK but not really");
  EXPECT_EQ(domainCode([&] { DotLottieFile::recolor(folder.path() / "not.lottie", palette, 3); }),
            1);

  const auto latin1 = folder.path() / "latin1.lottie";
  makeArchive(latin1, {{"animations/a.json", "{\"nm\":\"caf\xE9\",\"w\":1,\"h\":1}"}});
  EXPECT_EQ(domainCode([&] { DotLottieFile::recolor(latin1, palette, 3); }), 300);

  const auto escaping = folder.path() / "escaping.lottie";
  makeArchive(escaping, {{"animations/a.json", animation}, {"a/../../escaped.txt", "x"}});
  EXPECT_EQ(domainCode([&] { DotLottieFile::recolor(escaping, palette, 3); }), 12);
  const auto rooted = folder.path() / "rooted.lottie";
  makeArchive(rooted, {{"animations/a.json", animation}, {"/tmp/rooted.txt", "x"}});
  EXPECT_EQ(domainCode([&] { DotLottieFile::recolor(rooted, palette, 3); }), 12);

  EXPECT_EQ(temporaryItems(), 0u);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "escaped.txt"));
}

TEST_F(Recolor, ListsThePaletteOfTheSameJSON) {
  const auto source = folder.path() / "in.lottie";
  makeArchive(source, {{"animations/a.json", animation}});
  const auto colors = DotLottieFile::readPalette(source);
  ASSERT_EQ(colors.size(), 1u);
  EXPECT_EQ(colors[0].key, "1.0,0.0,0.0,1.0");
  EXPECT_EQ(temporaryItems(), 0u);
}

} // namespace
