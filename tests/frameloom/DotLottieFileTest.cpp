#include "frameloom/DotLottieFile.h"
#include "TestArchives.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using frameloom::DotLottieFile;
using frameloom::testing::ArchiveEntries;
using frameloom::testing::makeArchive;
using frameloom::testing::TemporaryFolder;
using PlayerCode = DotLottieFile::DotLottiePlayerError::Code;
using DecodingCode = DotLottieFile::LottieHead::DecodingError::Code;

namespace {

const std::string animation = R"({"v":"5.7","w":512,"h":256.5,"layers":[]})";

class SizeReader : public ::testing::Test {
protected:
  std::filesystem::path archive(const ArchiveEntries& entries) {
    const auto path = folder.path() / ("a" + std::to_string(count++) + ".lottie");
    makeArchive(path, entries);
    return path;
  }

  template <typename Error>
  static auto errorOf(const std::filesystem::path& path) {
    try {
      DotLottieFile file(path);
    } catch (const Error& error) {
      return error.code();
    }
    ADD_FAILURE() << "no error for " << path;
    return decltype(std::declval<Error>().code()){};
  }

  TemporaryFolder folder;
  int count = 0;
};

TEST_F(SizeReader, ReadsTheFirstAnimationInAnyLetterCase) {
  const DotLottieFile file(archive({{"manifest.json", "{}"},
                                    {"Animations/Main.JSON", animation},
                                    {"animations/b.json", R"({"w":1,"h":1})"}}));
  EXPECT_EQ(file.size(), (frameloom::platform::Size{512, 256.5}));
}

TEST_F(SizeReader, RefusesPicturesAndMissingAnimations) {
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(
                archive({{"animations/a.json", animation}, {"Images/img_0.png", "png"}})),
            PlayerCode::containsImages);
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(
                archive({{"images/", ""}, {"animations/a.json", animation}})),
            PlayerCode::containsImages);
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(archive({{"a.json", animation}})),
            PlayerCode::missingAnimationJSON);
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(
                archive({{"data/animations/a.json", animation}})),
            PlayerCode::missingAnimationJSON);
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(archive({})),
            PlayerCode::missingAnimationJSON);
}

TEST_F(SizeReader, TellsDecodingFailuresApart) {
  EXPECT_EQ(errorOf<DotLottieFile::LottieHead::DecodingError>(
                archive({{"animations/a.json", R"({"w":512})"}})),
            DecodingCode::missingKey);
  EXPECT_EQ(errorOf<DotLottieFile::LottieHead::DecodingError>(
                archive({{"animations/a.json", R"({"w":"512","h":1})"}})),
            DecodingCode::wrongType);
  EXPECT_EQ(errorOf<DotLottieFile::LottieHead::DecodingError>(
                archive({{"animations/a.json", R"({"w":1,"h":1} x)"}})),
            DecodingCode::notJSON);
}

TEST_F(SizeReader, RefusesWideEncodingsOnlyAfterDecoding) {
  // UTF-16LE with a byte-order mark decodes, but an animation must be UTF-8.
  std::string wide = "\xFF\xFE";
  for (const char c : std::string(R"({"w":2,"h":3})")) {
    wide += c;
    wide += '\0';
  }
  EXPECT_EQ(errorOf<DotLottieFile::DotLottiePlayerError>(archive({{"animations/a.json", wide}})),
            PlayerCode::invalidAnimationJSON);
}

TEST_F(SizeReader, PassesArchiveErrorsThrough) {
  frameloom::testing::writeFile(folder.path() / "not.lottie", "not a zip archive");
  EXPECT_ANY_THROW(DotLottieFile(folder.path() / "not.lottie"));
  try {
    DotLottieFile file(folder.path() / "not.lottie");
  } catch (const DotLottieFile::DotLottiePlayerError&) {
    ADD_FAILURE() << "an archive error became a DotLottiePlayerError";
  } catch (const std::exception&) {
  }
}

TEST(LottieHead, DecodesNumbersAndIgnoresNestedKeys) {
  const auto decode = [](const std::string& text) {
    return DotLottieFile::LottieHead::decode(
        std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
  };
  const auto head = decode(R"({"layers":[{"w":1,"h":2}],"w":-3,"h":1e2,"x":{"w":"no"}})");
  EXPECT_EQ(head.w, -3.0);
  EXPECT_EQ(head.h, 100.0);
  EXPECT_THROW(decode(R"([{"w":1,"h":2}])"), DotLottieFile::LottieHead::DecodingError);
  EXPECT_THROW(decode(R"({"w":null,"h":2})"), DotLottieFile::LottieHead::DecodingError);
  EXPECT_THROW(decode(std::string(100000, '[') + std::string(100000, ']')),
               DotLottieFile::LottieHead::DecodingError);
}

} // namespace
