// Runs the size reader, the colour replacement and the recolouring over real animations that
// nobody here wrote, when they are present (FRAMELOOM_CORPUS, else /work/shared/corpus).

#include "TestArchives.h"
#include "frameloom/ColorMap.h"
#include "frameloom/DotLottieError.h"
#include "frameloom/DotLottieFile.h"
#include "ziploom/Archive.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

using frameloom::ColorComponents;
using frameloom::DotLottieFile;
using frameloom::testing::readFile;
using frameloom::testing::TemporaryFolder;

namespace {

const std::vector<ColorComponents> palette = {
    {0.9, 0.1, 0.1, 1.0}, {0.1, 0.8, 0.2, 1.0}, {0.2, 0.3, 0.9, 0.5}};

std::filesystem::path corpus() {
  const char* folder = std::getenv("FRAMELOOM_CORPUS");
  return folder ? folder : "/work/shared/corpus";
}

std::vector<std::filesystem::path> corpusFiles(const std::string& extension) {
  std::vector<std::filesystem::path> files;
  std::error_code error;
  for (const auto& item : std::filesystem::directory_iterator(corpus(), error)) {
    if (item.path().extension() == extension) {
      files.push_back(item.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Entry paths and contents, in archive order.
std::vector<std::pair<std::string, std::string>> entries(const std::filesystem::path& path) {
  std::vector<std::pair<std::string, std::string>> files;
  ziploom::Archive archive(path, ziploom::AccessMode::read);
  for (const auto& entry : archive) {
    std::string& data = files.emplace_back(entry.path(), std::string()).second;
    archive.extract(entry,
                    [&data](ziploom::ByteView chunk) { data.append(chunk.begin(), chunk.end()); });
  }
  return files;
}

// Walks the original and the recoloured document side by side: they must differ only in numeric
// arrays; a solid or text colour must have become the palette colour its source colour's place
// in the palette listing calls for, and every changed gradient number a palette component.
class ColorChecker {
public:
  explicit ColorChecker(const std::string& original) : sources_(DotLottieFile::palette(original)) {}

  void compare(const nlohmann::json& before, const nlohmann::json& after, const std::string& at) {
    if (before == after) {
      return;
    }
    ASSERT_EQ(before.type(), after.type()) << at;
    if (before.is_object()) {
      ASSERT_EQ(before.size(), after.size()) << at;
      for (auto item = before.begin(); item != before.end(); ++item) {
        ASSERT_TRUE(after.contains(item.key())) << at;
        compare(item.value(), after.at(item.key()), at + "/" + item.key());
      }
      return;
    }
    ASSERT_TRUE(before.is_array()) << "changed value at " << at;
    const bool numeric = std::all_of(before.begin(), before.end(),
                                     [](const nlohmann::json& j) { return j.is_number(); });
    if (!numeric) {
      ASSERT_EQ(before.size(), after.size()) << at;
      for (std::size_t i = 0; i < before.size(); ++i) {
        compare(before[i], after[i], at + "/" + std::to_string(i));
      }
      return;
    }
    ++changedArrays;
    if (before.size() != after.size()) {
      checkSolid(before.get<std::vector<double>>(), after.get<std::vector<double>>(), at);
    } else {
      for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i] != after[i]) {
          EXPECT_TRUE(isPaletteComponent(after[i].get<double>())) << at << "/" << i;
        }
      }
    }
  }

  int changedArrays = 0;

private:
  void checkSolid(const std::vector<double>& before, const std::vector<double>& after,
                  const std::string& at) {
    const std::string key = frameloom::colorKey(frameloom::normalizedRGBA(before));
    const auto found = std::find_if(sources_.begin(), sources_.end(),
                                    [&](const auto& color) { return color.key == key; });
    ASSERT_NE(found, sources_.end()) << at;
    const ColorComponents& expected =
        palette[static_cast<std::size_t>(found - sources_.begin()) % palette.size()];
    ASSERT_EQ(after.size(), 4u) << at;
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_NEAR(after[i], expected[i], 0.0005) << at;
    }
  }

  static bool isPaletteComponent(double value) {
    for (const auto& color : palette) {
      if (std::find(color.begin(), color.end(), value) != color.end()) {
        return true;
      }
    }
    return false;
  }

  std::vector<DotLottieFile::PaletteColor> sources_;
};

void checkRecolouredText(const std::string& original, const std::string& recoloured,
                         const std::string& name) {
  const auto before = nlohmann::json::parse(original, nullptr, false);
  const auto after = nlohmann::json::parse(recoloured, nullptr, false);
  ASSERT_FALSE(after.is_discarded()) << name << ": the recoloured JSON does not parse";
  ColorChecker checker(original);
  checker.compare(before, after, name);
  EXPECT_EQ(checker.changedArrays > 0, !DotLottieFile::palette(original).empty()) << name;
}

TEST(Corpus, ReplacesColoursInEveryDocument) {
  const auto files = corpusFiles(".json");
  if (files.empty()) {
    GTEST_SKIP() << "no corpus at " << corpus();
  }
  for (const auto& file : files) {
    const std::string text = readFile(file);
    checkRecolouredText(text, DotLottieFile::replaceColors(text, palette, 3),
                        file.filename().string());
  }
}

TEST(Corpus, ReadsSizesAndRecoloursEveryArchive) {
  const auto files = corpusFiles(".lottie");
  if (files.empty()) {
    GTEST_SKIP() << "no corpus at " << corpus();
  }
  TemporaryFolder temporary;
  setenv("TMPDIR", temporary.path().c_str(), 1);
  for (const auto& file : files) {
    SCOPED_TRACE(file.filename().string());
    const auto sourceEntries = entries(file);
    bool hasImages = false;
    const std::string* sizeJSON = nullptr;
    const std::string* recolorJSON = nullptr;
    std::string recolorPath;
    for (const auto& [path, data] : sourceEntries) {
      const std::string lower = lowercased(path);
      hasImages = hasImages || lower.starts_with("images/");
      if (!sizeJSON && lower.starts_with("animations/") && lower.ends_with(".json")) {
        sizeJSON = &data;
      }
      if (!recolorJSON && path.find("animations/") != std::string::npos &&
          lower.ends_with(".json")) {
        recolorJSON = &data;
        recolorPath = path;
      }
    }

    if (hasImages) {
      EXPECT_THROW(DotLottieFile{file}, DotLottieFile::DotLottiePlayerError);
    } else if (!sizeJSON) {
      EXPECT_THROW(DotLottieFile{file}, DotLottieFile::DotLottiePlayerError);
    } else {
      const auto head = nlohmann::json::parse(*sizeJSON);
      const DotLottieFile dotLottie(file);
      EXPECT_EQ(dotLottie.size().width, head.at("w").get<double>());
      EXPECT_EQ(dotLottie.size().height, head.at("h").get<double>());
    }

    if (!recolorJSON) {
      EXPECT_THROW(DotLottieFile::recolor(file, palette, 3), frameloom::DotLottieError);
      continue;
    }
    const auto output = DotLottieFile::recolor(file, palette, 3);
    EXPECT_EQ(std::system(("unzip -tqq '" + output.string() + "' > /dev/null").c_str()), 0);
    const auto ordered = entries(output);
    const std::map<std::string, std::string> outputEntries(ordered.begin(), ordered.end());
    for (const auto& [path, data] : sourceEntries) {
      ASSERT_EQ(outputEntries.count(path), 1u) << path;
      if (path != recolorPath) {
        EXPECT_EQ(outputEntries.at(path), data) << path;
      }
    }
    checkRecolouredText(*recolorJSON, outputEntries.at(recolorPath), recolorPath);
  }
  unsetenv("TMPDIR");
}

} // namespace
