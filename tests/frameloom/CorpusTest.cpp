// Runs the colour replacement and the recolouring over real animations that nobody here wrote,
// when they are present.

#include "support/Corpus.h"
#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/files/DotLottieError.h>
#include <frameloom/files/DotLottieFile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <strings.h>

using frameloom::DotLottieFile;

namespace {

const std::vector<frameloom::ColorComponents> palette = {
    {0.9, 0.1, 0.1, 1.0}, {0.1, 0.8, 0.2, 1.0}, {0.2, 0.3, 0.9, 0.5}};

// The document with every array of numbers taken out: all that recolouring may change.
nlohmann::json withoutNumberArrays(nlohmann::json value) {
  if (value.is_array() &&
      std::all_of(value.begin(), value.end(), [](const auto& item) { return item.is_number(); })) {
    return nullptr;
  }
  for (auto& item : value) {
    if (item.is_structured()) {
      item = withoutNumberArrays(std::move(item));
    }
  }
  return value;
}

// Only arrays of numbers changed, the recoloured text holds as many colour values, and all of
// them are palette colours (a gradient stop without alpha keeps an opaque one).
void checkRecoloured(const std::string& original, const std::string& recoloured,
                     const std::string& name) {
  const auto after = nlohmann::json::parse(recoloured, nullptr, false);
  ASSERT_FALSE(after.is_discarded()) << name << ": the recoloured JSON does not parse";
  EXPECT_EQ(withoutNumberArrays(nlohmann::json::parse(original)), withoutNumberArrays(after))
      << name;
  std::size_t before = 0;
  for (const auto& color : DotLottieFile::palette(original)) {
    before += color.uses;
  }
  for (const auto& color : DotLottieFile::palette(recoloured)) {
    EXPECT_TRUE(std::ranges::any_of(palette,
                                    [&](const auto& c) {
                                      return color.key == frameloom::colorKey(c) ||
                                             color.key == frameloom::colorKey(std::vector<double>{
                                                              c[0], c[1], c[2]});
                                    }))
        << name << ": " << color.key;
    before -= color.uses;
  }
  EXPECT_EQ(before, 0u) << name;
}

TEST(Corpus, EveryDocumentRecoloursAsText) {
  const auto documents = frameloom::testing::corpusFiles(".json");
  if (documents.empty()) {
    GTEST_SKIP() << "no corpus";
  }
  for (const auto& document : documents) {
    const std::string text = frameloom::testing::readText(document);
    checkRecoloured(text, DotLottieFile::replaceColors(text, palette, 3),
                    document.filename().string());
  }
}

// Its other entries come out byte for byte, its animation JSON recoloured, and the archive
// passes unzip's test; an archive without animation JSON is refused.
TEST(Corpus, EveryArchiveRecoloursAsFile) {
  const auto archives = frameloom::testing::corpusFiles(".lottie");
  if (archives.empty()) {
    GTEST_SKIP() << "no corpus";
  }
  frameloom::testing::TemporaryFolder temporary;
  setenv("TMPDIR", temporary.path().c_str(), 1);
  for (const auto& archive : archives) {
    const std::string name = archive.filename().string();
    const auto source = frameloom::testing::entriesOf(archive);
    const auto json = std::ranges::find_if(source, [](const auto& entry) {
      const auto& path = entry.first;
      return path.find("animations/") != std::string::npos && path.size() > 5 &&
             strcasecmp(path.c_str() + path.size() - 5, ".json") == 0;
    });
    if (json == source.end()) {
      EXPECT_THROW(DotLottieFile::recolor(archive, palette, 3), frameloom::DotLottieError);
      continue;
    }
    const auto output = DotLottieFile::recolor(archive, palette, 3);
    EXPECT_EQ(std::system(("unzip -tqq '" + output.string() + "' > /dev/null").c_str()), 0);
    const auto written = frameloom::testing::entriesOf(output);
    const std::map<std::string, std::string> result(written.begin(), written.end());
    for (const auto& [path, data] : source) {
      ASSERT_EQ(result.count(path), 1u) << name << ": " << path;
      if (path == json->first) {
        checkRecoloured(data, result.at(path), name);
      } else {
        EXPECT_EQ(result.at(path), data) << name << ": " << path;
      }
    }
  }
  unsetenv("TMPDIR");
}

} // namespace
