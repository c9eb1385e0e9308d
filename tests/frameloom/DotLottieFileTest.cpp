#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/files/DotLottieFile.h>
#include <frameloom/ziploom/Errors.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using frameloom::DotLottieFile;
using frameloom::testing::ArchiveEntries;
using PlayerCode = DotLottieFile::DotLottiePlayerError::Code;
using DecodingCode = DotLottieFile::LottieHead::DecodingError::Code;

namespace {

const std::string animation = R"({"v":"5.7","w":512,"h":256.5,"layers":[]})";

// The first animation in any letter case is read; pictures, a missing or misplaced animation,
// undecodable JSON and wide encodings are refused, each with its own code.
TEST(SizeReader, ReadsTheFirstAnimationOrTellsWhyNot) {
  std::string utf16 = "\xFF\xFE"; // decodes, but an animation must be UTF-8
  for (const char c : std::string(R"({"w":2,"h":3})")) {
    utf16 += {c, '\0'};
  }
  struct Case {
    ArchiveEntries entries;
    std::optional<PlayerCode> player = {};
    std::optional<DecodingCode> decoding = {};
  };
  const std::vector<Case> cases = {
      {{{"manifest.json", "{}"}, {"Animations/Main.JSON", animation}, {"animations/b.json", "{}"}}},
      {{{"animations/a.json", animation}, {"Images/img_0.png", "png"}}, PlayerCode::containsImages},
      {{{"images/", ""}, {"animations/a.json", animation}}, PlayerCode::containsImages},
      {{{"a.json", animation}}, PlayerCode::missingAnimationJSON},
      {{{"data/animations/a.json", animation}}, PlayerCode::missingAnimationJSON},
      {{}, PlayerCode::missingAnimationJSON},
      {{{"animations/a.json", utf16}}, PlayerCode::invalidAnimationJSON},
      {{{"animations/a.json", R"({"w":512})"}}, std::nullopt, DecodingCode::missingKey},
      {{{"animations/a.json", R"({"w":"512","h":1})"}}, std::nullopt, DecodingCode::wrongType},
      {{{"animations/a.json", R"({"w":1,"h":1} x)"}}, std::nullopt, DecodingCode::notJSON}};
  frameloom::testing::TemporaryFolder folder;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    const auto path = folder.path() / (std::to_string(i) + ".lottie");
    frameloom::testing::writeArchive(path, cases[i].entries);
    try {
      EXPECT_EQ(DotLottieFile(path).size(), (frameloom::platform::Size{512, 256.5}));
      EXPECT_FALSE(cases[i].player || cases[i].decoding);
    } catch (const DotLottieFile::DotLottiePlayerError& error) {
      EXPECT_EQ(std::optional(error.code()), cases[i].player);
    } catch (const DotLottieFile::LottieHead::DecodingError& error) {
      EXPECT_EQ(std::optional(error.code()), cases[i].decoding);
    }
  }
  // An archive error passes through as it is.
  frameloom::testing::writeFile(folder.path() / "not.lottie", "not a zip archive");
  EXPECT_THROW(DotLottieFile(folder.path() / "not.lottie"), frameloom::ziploom::ArchiveError);
}

TEST(LottieHead, DecodesTopLevelNumbersOnly) {
  const auto decode = [](const std::string& text) {
    return DotLottieFile::LottieHead::decode(
        std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  };
  const auto head = decode(R"({"layers":[{"w":1,"h":2}],"w":-3,"h":1e2,"x":{"w":"no"}})");
  EXPECT_TRUE(head.w == -3.0 && head.h == 100.0);
  for (const std::string& bad :
       std::vector<std::string>{R"([{"w":1,"h":2}])", R"({"w":null,"h":2})",
                                std::string(100000, '[') + std::string(100000, ']')}) {
    EXPECT_THROW(decode(bad), DotLottieFile::LottieHead::DecodingError) << bad.substr(0, 20);
  }
}

} // namespace
