// Loads the real animations of the shared corpus through the actor, when the corpus is present.

#include "frameloom/DotLottieActor.h"
#include "platform/renderer/DotLottieArchive.h"
#include "platform/runtime/MainLoop.h"

#include "../renderer/ArchiveSamples.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace frameloom {
namespace {

using platform::MainLoop;

std::optional<std::filesystem::path> corpusFolder() {
  for (const std::filesystem::path& folder :
       {std::filesystem::path("/work/shared/corpus"),
        std::filesystem::path(FRAMELOOM_SOURCE_DIR) / ".." / "shared" / "corpus"}) {
    if (std::filesystem::is_directory(folder)) {
      return folder;
    }
  }
  return std::nullopt;
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Loads `file` at 250 x 250, checks its timeline against the document's and that its first,
// middle and last frames show something.
void checkAnimation(const std::filesystem::path& file, const std::string& document,
                    bool mayBeBlank) {
  SCOPED_TRACE(file.filename().string());
  const auto json = nlohmann::json::parse(document);
  const double frames = json["op"].get<double>() - json["ip"].get<double>();
  auto& actor = DotLottieActor::shared();
  const auto animation = MainLoop::shared().runUntilComplete(DotLottieActor::load(
      platform::Url::fromFilePath(file), platform::Size{250, 250}, std::nullopt));
  ASSERT_TRUE(animation);
  EXPECT_FLOAT_EQ(animation->totalFrames(), static_cast<float>(frames));
  EXPECT_FLOAT_EQ(animation->duration(), static_cast<float>(frames / json["fr"].get<double>()));
  for (const float frame : {0.0f, animation->totalFrames() / 2, animation->totalFrames() - 1}) {
    const auto image = MainLoop::shared().runUntilComplete(actor.seek(frame, animation));
    ASSERT_TRUE(image) << frame;
    EXPECT_EQ(image->width(), 250u);
    EXPECT_EQ(image->height(), 250u);
    if (!mayBeBlank) {
      EXPECT_FALSE(image->isFullyTransparent()) << "frame " << frame;
    }
  }
  MainLoop::shared().runUntilComplete(actor.destroy(animation));
}

TEST(ActorCorpusTest, EveryDotLottieAndSomeWrappedDocumentsLoadAndRender) {
  const auto corpus = corpusFolder();
  if (!corpus) {
    GTEST_SKIP() << "no corpus at /work/shared/corpus";
  }
  // Its pictures are WebP, which rlottie cannot decode, and it draws nothing else.
  const std::set<std::string> blank{"Issues__pr_2271.lottie"};
  int checked = 0;
  for (const auto& item : std::filesystem::directory_iterator(*corpus)) {
    if (item.path().extension() == ".lottie") {
      const auto document = platform::dotLottieAnimationDocument(readFile(item.path()));
      ASSERT_TRUE(document) << item.path();
      checkAnimation(item.path(), *document, blank.contains(item.path().filename().string()));
      ++checked;
    }
  }
  EXPECT_GT(checked, 0);

  const auto folder =
      std::filesystem::temp_directory_path() / ("frameloom-corpus-" + std::to_string(::getpid()));
  std::filesystem::create_directories(folder);
  for (const char* name : {"LottieLogo1.json", "LottieFiles__growth.json",
                           "Issues__issue_2206.json", "LottieFiles__gradient_shapes.json"}) {
    const auto bytes = readFile(*corpus / name);
    const std::string document(bytes.begin(), bytes.end());
    const auto wrapped = folder / (std::string(name) + ".lottie");
    const auto archive = testing::makeZip({{"manifest.json", R"({"animations":[{"id":"main"}]})"},
                                           {"animations/main.json", document}});
    std::ofstream(wrapped, std::ios::binary)
        .write(reinterpret_cast<const char*>(archive.data()),
               static_cast<std::streamsize>(archive.size()));
    checkAnimation(wrapped, document, false);
  }
  std::filesystem::remove_all(folder);
}

} // namespace
} // namespace frameloom
