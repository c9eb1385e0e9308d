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
#include <cstdlib>
#include <map>

using frameloom::ColorComponents;
using frameloom::DotLottieFile;
using Palette = std::vector<DotLottieFile::PaletteColor>;

namespace {

const std::vector<ColorComponents> palette = {
    {0.9, 0.1, 0.1, 1.0}, {0.1, 0.8, 0.2, 1.0}, {0.2, 0.3, 0.9, 0.5}};

std::vector<std::filesystem::path> corpusFiles(const std::string& extension) {
  const char* folder = std::getenv("FRAMELOOM_CORPUS");
  std::vector<std::filesystem::path> files;
  std::error_code error;
  for (const auto& item :
       std::filesystem::directory_iterator(folder ? folder : "/work/shared/corpus", error)) {
    if (item.path().extension() == extension) {
      files.push_back(item.path());
    }
  }
  return files;
}

// Entry paths and contents, in archive order.
std::vector<std::pair<std::string, std::string>> entries(const std::filesystem::path& path) {
  std::vector<std::pair<std::string, std::string>> files;
  ziploom::Archive archive(path, ziploom::AccessMode::read);
  for (const auto& entry : archive) {
    std::string& data = files.emplace_back(entry.path(), std::string()).second;
    archive.extract(entry, [&data](ziploom::ByteView c) { data.append(c.begin(), c.end()); });
  }
  return files;
}

// The two documents must differ only in arrays of numbers. A colour array that changed length
// (three or four components in, four out) must hold the palette colour that its source colour's
// place in the palette listing calls for. Returns the number of changed arrays.
int compareColors(const nlohmann::json& before, const nlohmann::json& after, const Palette& sources,
                  const std::string& at) {
  if (before == after) {
    return 0;
  }
  if (before.is_array() &&
      std::all_of(before.begin(), before.end(), [](const auto& j) { return j.is_number(); })) {
    if (before.size() != after.size()) {
      const auto key =
          frameloom::colorKey(frameloom::normalizedRGBA(before.get<ColorComponents>()));
      const auto found = std::find_if(sources.begin(), sources.end(),
                                      [&](const auto& color) { return color.key == key; });
      EXPECT_TRUE(found != sources.end() && after.size() == 4) << at;
      const auto& expected = palette[static_cast<std::size_t>(found - sources.begin()) % 3];
      for (std::size_t i = 0; i < 4 && i < after.size(); ++i) {
        EXPECT_NEAR(after[i].get<double>(), expected[i], 0.0005) << at;
      }
    }
    return 1;
  }
  if (!before.is_structured() || before.type() != after.type() || before.size() != after.size()) {
    ADD_FAILURE() << "changed value at " << at;
    return 0;
  }
  int changed = 0;
  if (before.is_object()) {
    for (auto item = before.begin(); item != before.end(); ++item) {
      EXPECT_TRUE(after.contains(item.key())) << at << "/" << item.key();
      if (after.contains(item.key())) {
        changed += compareColors(*item, after.at(item.key()), sources, at + "/" + item.key());
      }
    }
  } else {
    for (std::size_t i = 0; i < before.size(); ++i) {
      changed += compareColors(before[i], after[i], sources, at + "/" + std::to_string(i));
    }
  }
  return changed;
}

void checkRecoloured(const std::string& original, const std::string& recoloured,
                     const std::string& name) {
  const auto after = nlohmann::json::parse(recoloured, nullptr, false);
  ASSERT_FALSE(after.is_discarded()) << name << ": the recoloured JSON does not parse";
  const Palette sources = DotLottieFile::palette(original);
  const int changed = compareColors(nlohmann::json::parse(original), after, sources, name);
  EXPECT_EQ(changed > 0, !sources.empty()) << name;
}

TEST(Corpus, ReplacesColoursInEveryDocument) {
  const auto files = corpusFiles(".json");
  if (files.empty()) {
    GTEST_SKIP() << "no corpus";
  }
  for (const auto& file : files) {
    const std::string text = frameloom::testing::readFile(file);
    checkRecoloured(text, DotLottieFile::replaceColors(text, palette, 3), file.filename());
  }
}

TEST(Corpus, ReadsSizesAndRecoloursEveryArchive) {
  const auto files = corpusFiles(".lottie");
  if (files.empty()) {
    GTEST_SKIP() << "no corpus";
  }
  frameloom::testing::TemporaryFolder temporary;
  setenv("TMPDIR", temporary.path().c_str(), 1);
  for (const auto& file : files) {
    SCOPED_TRACE(file.filename().string());
    const auto source = entries(file);
    const auto lower = [](std::string text) {
      std::transform(text.begin(), text.end(), text.begin(), ::tolower);
      return text;
    };
    const auto sized = std::find_if(source.begin(), source.end(), [&](const auto& entry) {
      return lower(entry.first).starts_with("animations/") && lower(entry.first).ends_with(".json");
    });
    if (std::any_of(source.begin(), source.end(),
                    [&](const auto& entry) { return lower(entry.first).starts_with("images/"); }) ||
        sized == source.end()) {
      EXPECT_THROW(DotLottieFile{file}, DotLottieFile::DotLottiePlayerError);
    } else {
      const auto head = nlohmann::json::parse(sized->second);
      EXPECT_EQ(
          DotLottieFile(file).size(),
          (frameloom::platform::Size{head.at("w").get<double>(), head.at("h").get<double>()}));
    }

    const auto json = std::find_if(source.begin(), source.end(), [&](const auto& entry) {
      return entry.first.find("animations/") != std::string::npos &&
             lower(entry.first).ends_with(".json");
    });
    if (json == source.end()) {
      EXPECT_THROW(DotLottieFile::recolor(file, palette, 3), frameloom::DotLottieError);
      continue;
    }
    const auto output = DotLottieFile::recolor(file, palette, 3);
    EXPECT_EQ(std::system(("unzip -tqq '" + output.string() + "' > /dev/null").c_str()), 0);
    const auto written = entries(output);
    const std::map<std::string, std::string> result(written.begin(), written.end());
    for (const auto& [path, data] : source) {
      ASSERT_EQ(result.count(path), 1u) << path;
      if (path != json->first) {
        EXPECT_EQ(result.at(path), data) << path;
      }
    }
    checkRecoloured(json->second, result.at(json->first), json->first);
  }
  unsetenv("TMPDIR");
}

} // namespace
