// What the tool shows rather than prints: comparisons, swatches, labelled sheets and coloured
// palettes on a terminal.

#include "../renderer/LottieSamples.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <frameloom/platform/graphics/Png.h>

#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

using platform::Rgba8;

class Pictures : public ::testing::Test {
protected:
  void SetUp() override {
    // A static red and a static green half.
    writeArchive(folder / "in.lottie",
                 {{"animations/a.json", sampleLottie(40, 40,
                                                     {{20, 0, 20, 40, {{0, {0, 1, 0}}}},
                                                      {0, 0, 20, 40, {{0, {1, 0, 0}}}}})}});
  }
  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }

  TemporaryFolder temporary;
  const std::filesystem::path& folder = temporary.path();
};

TEST_F(Pictures, CompareShowsBothRowsAndTheSwatches) {
  const ToolRun result =
      run("compare in.lottie --colors '#00f,#fff' --size 40x40 --frames 3 --output c.png");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "c.png\n");
  const auto picture = platform::readPng(folder / "c.png");
  // Three frames wide; two rows of frames and two rows of 8-pixel swatches.
  ASSERT_EQ(std::pair(picture->width(), picture->height()), std::pair(120ul, 96ul));
  // The static green comes first in the palette, so it becomes blue and the red white.
  const std::vector<std::pair<std::pair<int, int>, Rgba8>> points{
      {{50, 10}, {255, 0, 0, 255}},     // original, second frame, left half
      {{70, 10}, {0, 255, 0, 255}},     // original, second frame, right half
      {{50, 50}, {255, 255, 255, 255}}, // recoloured, left half
      {{70, 50}, {0, 0, 255, 255}},     // recoloured, right half
      {{2, 82}, {0, 255, 0, 255}},      // the source palette, first swatch
      {{10, 82}, {255, 0, 0, 255}},     // the source palette, second swatch
      {{2, 90}, {0, 0, 255, 255}},      // the new colours, first swatch
      {{10, 90}, {255, 255, 255, 255}}, // the new colours, second swatch
  };
  for (const auto& [point, colour] : points) {
    EXPECT_EQ(picture->pixel(point.first, point.second), colour)
        << point.first << "," << point.second;
  }
  EXPECT_EQ(run("compare in.lottie --colors '#00f' --frames 0 --output c.png").status, 2);
}

TEST_F(Pictures, PaletteSwatchesAndTerminalColours) {
  const ToolRun listed = run("palette in.lottie --swatches s.png");
  ASSERT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.out.find('\033'), std::string::npos);
  const auto swatches = platform::readPng(folder / "s.png");
  EXPECT_EQ(std::pair(swatches->width(), swatches->height()), std::pair(64ul, 32ul));
  EXPECT_EQ(swatches->pixel(5, 5), (Rgba8{0, 255, 0, 255}));
  EXPECT_EQ(swatches->pixel(37, 5), (Rgba8{255, 0, 0, 255}));
  // On a terminal each line starts with a 24-bit swatch, unless NO_COLOR is set.
  auto onTerminal = [&](const std::string& environment) {
    const std::string command = "cd '" + folder.string() + "' && TERM=xterm " + environment +
                                " script -qec \"'" FRAMELOOM_TOOL_PATH
                                "' palette in.lottie\" /dev/null >terminal.txt";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return readText(folder / "terminal.txt");
  };
  EXPECT_NE(onTerminal("").find("\033[48;2;0;255;0m"), std::string::npos);
  EXPECT_EQ(onTerminal("NO_COLOR=1").find('\033'), std::string::npos);
}

TEST_F(Pictures, SheetCellsCarryTheirFrameNumbers) {
  ASSERT_EQ(run("render in.lottie --size 40x40 --sheet 2x1 --output s.png").status, 0);
  const auto sheet = platform::readPng(folder / "s.png");
  // The label's backing box darkens the bottom-left corner of each cell; the rest stays red.
  EXPECT_EQ(sheet->pixel(10, 10), (Rgba8{255, 0, 0, 255}));
  for (const int x : {1, 41}) {
    const Rgba8 corner = sheet->pixel(x, 39);
    EXPECT_LT(corner.r, 200) << x;
  }
}

TEST_F(Pictures, PlayWritesFramesAtTheSizeAsked) {
  const ToolRun result = run("play in.lottie --size 30x20 --seconds 0.3 --output frames");
  ASSERT_EQ(result.status, 0) << result.err;
  const auto frame = platform::readPng(folder / "frames/frame-00001.png");
  EXPECT_EQ(std::pair(frame->width(), frame->height()), std::pair(30ul, 20ul));
  EXPECT_EQ(run("play in.lottie --size 30 --seconds 0.3").status, 2);
}

} // namespace
} // namespace frameloom::testing
