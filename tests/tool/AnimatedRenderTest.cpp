// `render` to animated WebP and GIF: frames, sizes and timing, read back with the libraries'
// own decoders and compared with `render --frame` of the same frames.

#include "../renderer/LottieSamples.h"
#include "support/AnimatedPictures.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <frameloom/platform/graphics/Png.h>

#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

namespace fs = std::filesystem;

class AnimatedRender : public ::testing::Test {
protected:
  void SetUp() override {
    // 60 frames at 30 per second: red until frame 30, then blue, with a green right half and a
    // transparent bottom quarter.
    writeArchive(
        folder / "in.lottie",
        {{"animations/a.json", sampleLottie(40, 40,
                                            {{20, 0, 20, 30, {{0, {0, 1, 0}}}},
                                             {0, 0, 20, 30, {{0, {1, 0, 0}}, {30, {0, 0, 1}}}}})}});
  }
  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }
  std::shared_ptr<const platform::Image> still(const std::string& arguments) const {
    const ToolRun result = run("render in.lottie --size 40x40 " + arguments + " --output f.png");
    EXPECT_EQ(result.status, 0) << result.err;
    return platform::readPng(folder / "f.png");
  }

  TemporaryFolder temporary;
  const fs::path& folder = temporary.path();
};

TEST_F(AnimatedRender, FramesMatchStillRendersOfTheSameFrames) {
  struct Case {
    std::string options;
    std::size_t frames;
    int duration;
    int loop;
  };
  const std::vector<Case> cases{
      {"", 60, 2000, 0},
      {"--fps 10 --from 0 --to 60 --loop 2", 21, 2100, 2},
      {"--from 25 --to 35", 11, 367, 0},
  };
  for (const std::string extension : {"webp", "gif", "apng"}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(extension + " " + c.options);
      const ToolRun result =
          run("render in.lottie --size 40x40 " + c.options + " --output a." + extension);
      ASSERT_EQ(result.status, 0) << result.err;
      EXPECT_EQ(result.out, "a." + extension + "\n");
      const fs::path written = folder / ("a." + extension);
      const DecodedAnimation decoded = extension == "gif"    ? decodeGif(written)
                                       : extension == "apng" ? decodeApng(written)
                                                             : decodeWebp(written);
      // WebP merges a frame that repeats the one before into it; GIF and PNG keep every frame.
      if (extension != "webp") {
        EXPECT_EQ(decoded.frames.size(), c.frames);
      }
      EXPECT_EQ(std::pair(decoded.width, decoded.height), std::pair(40ul, 40ul));
      EXPECT_EQ(decoded.loopCount, c.loop);
      // GIF keeps time in centiseconds.
      EXPECT_NEAR(decoded.duration, c.duration, extension == "gif" ? 10 : 1);
    }
  }
  // Frame 30 is the sixth of "--from 25": every format gives what `render --frame 30` gives,
  // WebP and PNG exactly, GIF too since the frame has only a few colours.
  const auto reference = still("--frame 30");
  // Inside the sixth frame in both: WebP starts it at 167 ms, GIF at 170.
  const int sixth = 180;
  run("render in.lottie --size 40x40 --from 25 --to 35 --output a.webp");
  EXPECT_EQ(largestDifference(frameAt(decodeWebp(folder / "a.webp"), sixth), *reference), 0);
  run("render in.lottie --size 40x40 --from 25 --to 35 --output a.gif");
  EXPECT_EQ(largestDifference(frameAt(decodeGif(folder / "a.gif"), sixth), *reference), 0);
  run("render in.lottie --size 40x40 --from 25 --to 35 --output a.apng");
  EXPECT_EQ(largestDifference(frameAt(decodeApng(folder / "a.apng"), sixth), *reference), 0);
  EXPECT_NE(largestDifference(*still("--frame 5"), *reference), 0);
  EXPECT_EQ(reference->pixel(5, 35).a, 0);
}

TEST_F(AnimatedRender, BackgroundFillsTransparentPixels) {
  ASSERT_EQ(run("render in.lottie --size 40x40 --background '#fff' --output a.gif").status, 0);
  const auto frame = decodeGif(folder / "a.gif").frames.at(0);
  EXPECT_EQ(frame->pixel(5, 35), (platform::Rgba8{255, 255, 255, 255}));
  EXPECT_EQ(frame->pixel(5, 5), (platform::Rgba8{255, 0, 0, 255}));
  EXPECT_EQ(still("--background '#fff'")->pixel(5, 35), (platform::Rgba8{255, 255, 255, 255}));
}

TEST_F(AnimatedRender, RefusalsLeaveNoFile) {
  for (const char* arguments :
       {"--output a.gif --frame 3", "--output a.webp --sheet 2x2", "--output a.gif --fps 60",
        "--output a.webp --from 50 --to 10", "--output a.webp --to 99", "--output a.tiff"}) {
    const ToolRun result = run("render in.lottie " + std::string(arguments));
    EXPECT_EQ(result.status, 2) << arguments << result.err;
  }
  EXPECT_FALSE(fs::exists(folder / "a.gif"));
  EXPECT_FALSE(fs::exists(folder / "a.webp"));
}

} // namespace
} // namespace frameloom::testing
