// Runs the size reader, the colour replacement and the recolouring over real animations that
// nobody here wrote, when they are present (FRAMELOOM_CORPUS, else /work/shared/corpus).

#include "TestArchives.h"
#include "frameloom/DotLottieError.h"
#include "frameloom/DotLottieFile.h"
#include "ziploom/Archive.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <map>

using frameloom::DotLottieFile;
using Palette = std::vector<DotLottieFile::PaletteColor>;

namespace {

const std::vector<frameloom::ColorComponents> palette = {
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

// The two documents may differ only in arrays of numbers; an array that changed length (three
// components in, four out) holds the palette colour its source colour's place calls for.
// Returns the number of changed arrays.
int compareColors(const nlohmann::json& before, const nlohmann::json& after, const Palette& sources,
                  const std::string& at) {
  if (before == after) {
    return 0;
  }
  if (before.is_array() &&
      std::all_of(before.begin(), before.end(), [](const auto& j) { return j.is_number(); })) {
    if (before.size() != after.size()) {
      const auto key =
          frameloom::colorKey(frameloom::normalizedRGBA(before.get<frameloom::ColorComponents>()));
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
  for (auto item = before.begin(); item != before.end(); ++item) {
    const std::string key = before.is_object() ? item.key() : std::to_string(item - before.begin());
    const auto other =
        before.is_object() ? after.find(key) : after.begin() + (item - before.begin());
    EXPECT_TRUE(other != after.end()) << at << "/" << key;
    changed += other == after.end() ? 0 : compareColors(*item, *other, sources, at + "/" + key);
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
  const auto entries = [](const std::filesystem::path& path) { // in archive order
    std::vector<std::pair<std::string, std::string>> files;
    ziploom::Archive archive(path, ziploom::AccessMode::read);
    for (const auto& entry : archive) {
      std::string& data = files.emplace_back(entry.path(), std::string()).second;
      archive.extract(entry, [&data](ziploom::ByteView c) { data.append(c.begin(), c.end()); });
    }
    return files;
  };
  const auto lower = [](std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), ::tolower);
    return text;
  };
  for (const auto& file : files) {
    SCOPED_TRACE(file.filename().string());
    const auto source = entries(file);
    // Whether the reader takes the file is its own tests' business; a size it reads must be the
    // first animation's.
    try {
      const auto sized = std::find_if(source.begin(), source.end(), [&](const auto& entry) {
        return lower(entry.first).starts_with("animations/") &&
               lower(entry.first).ends_with(".json");
      });
      const frameloom::platform::Size size = DotLottieFile(file).size();
      ASSERT_NE(sized, source.end());
      const auto head = nlohmann::json::parse(sized->second);
      EXPECT_EQ(size.width, head.at("w").get<double>());
      EXPECT_EQ(size.height, head.at("h").get<double>());
    } catch (const DotLottieFile::DotLottiePlayerError&) {
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
