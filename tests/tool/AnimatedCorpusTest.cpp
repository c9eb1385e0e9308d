// `render` to animated WebP and GIF over the corpus of real animations.

#include "support/AnimatedPictures.h"
#include "support/Corpus.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <frameloom/platform/graphics/Png.h>

#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

namespace fs = std::filesystem;

// Every corpus animation as both formats: the decoders read the size back, and the first frame
// is what `render --frame 0` gives (exactly for lossless WebP; closely for GIF, whose one-bit
// transparency is kept out of the comparison by an opaque background).
TEST(AnimatedRenderCorpus, EveryAnimationDecodes) {
  TemporaryFolder temporary;
  for (const fs::path& path : corpusFiles(".lottie")) {
    for (const std::string extension : {"webp", "gif"}) {
      SCOPED_TRACE(path.filename().string() + " " + extension);
      const std::string options =
          "--size 64x64" + std::string(extension == "gif" ? " --background '#808080'" : "");
      const ToolRun result =
          runTool("render '" + path.string() + "' " + options + " --fps 10 --output a." + extension,
                  temporary.path());
      ASSERT_EQ(result.status, 0) << result.err;
      const fs::path output = temporary.path() / ("a." + extension);
      const DecodedAnimation decoded = extension == "gif" ? decodeGif(output) : decodeWebp(output);
      ASSERT_GE(decoded.frames.size(), 1u);
      EXPECT_EQ(std::pair(decoded.width, decoded.height), std::pair(64ul, 64ul));
      ASSERT_EQ(runTool("render '" + path.string() + "' " + options + " --frame 0 --output f.png",
                        temporary.path())
                    .status,
                0);
      const auto still = platform::readPng(temporary.path() / "f.png");
      if (extension == "webp") {
        // libwebp premultiplies with its own rounding.
        EXPECT_LE(largestDifference(*decoded.frames[0], *still), 2);
      } else {
        EXPECT_LT(meanDifference(*decoded.frames[0], *still), 4.0);
      }
    }
  }
}

} // namespace
} // namespace frameloom::testing
