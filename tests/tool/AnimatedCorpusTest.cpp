// `render` to animated WebP and GIF over the corpus of real animations.

#include "support/AnimatedPictures.h"
#include "support/Corpus.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

namespace fs = std::filesystem;

// Every corpus animation as both formats: the decoders read the frame count and size back.
TEST(AnimatedRenderCorpus, EveryAnimationDecodes) {
  TemporaryFolder temporary;
  for (const fs::path& path : corpusFiles(".lottie")) {
    for (const std::string extension : {"webp", "gif"}) {
      SCOPED_TRACE(path.filename().string() + " " + extension);
      const ToolRun result =
          runTool("render '" + path.string() + "' --size 64x64 --fps 10 --output a." + extension,
                  temporary.path());
      ASSERT_EQ(result.status, 0) << result.err;
      const fs::path output = temporary.path() / ("a." + extension);
      const DecodedAnimation decoded = extension == "gif" ? decodeGif(output) : decodeWebp(output);
      EXPECT_GE(decoded.frames.size(), 1u);
      EXPECT_EQ(std::pair(decoded.width, decoded.height), std::pair(64ul, 64ul));
    }
  }
}

} // namespace
} // namespace frameloom::testing
