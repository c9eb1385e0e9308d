// Runs the built tool's render command on archives the test makes.

#include "platform/graphics/Png.h"

#include "../frameloom/TestArchives.h"
#include "../renderer/ArchiveSamples.h"
#include "../renderer/LottieSamples.h"
#include "ToolRun.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace frameloom::testing {
namespace {

using platform::readPng;
using platform::Rgba8;

class RenderCommand : public ::testing::Test {
protected:
  void SetUp() override {
    // Red until frame 30, then blue, on a 100 x 100 square with a green right half.
    const auto archive =
        makeZip({{"animations/a.json",
                  sampleLottie(100, 100,
                               {{50, 0, 50, 100, {{0, {0, 1, 0}}}},
                                {0, 0, 100, 100, {{0, {1, 0, 0}}, {30, {0, 0, 1}}}}})}});
    writeFile(folder / "in.lottie", std::string(archive.begin(), archive.end()));
  }

  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }

  TemporaryFolder temporary;
  const std::filesystem::path& folder = temporary.path();
};

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 green{0, 255, 0, 255};
constexpr Rgba8 blue{0, 0, 255, 255};

TEST_F(RenderCommand, WritesFramesAndSheets) {
  const ToolRun first = run("render in.lottie --output first.png");
  ASSERT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, "first.png\n");
  const auto image = readPng(folder / "first.png");
  EXPECT_EQ(image->width(), 250u);
  EXPECT_EQ(image->pixel(50, 125), red);
  EXPECT_EQ(image->pixel(200, 125), green);

  ASSERT_EQ(run("render in.lottie --frame 45 --size 60x30 --output late.png").status, 0);
  const auto late = readPng(folder / "late.png");
  EXPECT_EQ(late->width(), 60u);
  EXPECT_EQ(late->height(), 30u);
  EXPECT_EQ(late->pixel(20, 15), blue);
  EXPECT_EQ(late->pixel(5, 15), Rgba8{});

  // Sheets spread frames from the first to the last; colours recolour.
  const ToolRun sheet = run("render in.lottie --sheet 2x1 --size 10x10 --output sheet.png");
  ASSERT_EQ(sheet.status, 0) << sheet.err;
  const auto sheetImage = readPng(folder / "sheet.png");
  EXPECT_EQ(sheetImage->width(), 20u);
  EXPECT_EQ(sheetImage->height(), 10u);
  EXPECT_EQ(sheetImage->pixel(2, 5), red);
  EXPECT_EQ(sheetImage->pixel(12, 5), blue);

  const ToolRun recoloured =
      run("render in.lottie --colors '#ff0,#0ff' --size 10x10 --output recoloured.png");
  // The static green becomes the first colour; the keyframed colour is not a static one.
  ASSERT_EQ(recoloured.status, 0) << recoloured.err;
  const auto colours = readPng(folder / "recoloured.png");
  EXPECT_EQ(colours->pixel(8, 5), (Rgba8{255, 255, 0, 255}));
  EXPECT_EQ(colours->pixel(2, 5), red);
}

TEST_F(RenderCommand, FailuresExplainThemselvesAndWriteNothing) {
  const ToolRun missing = run("render missing.lottie --output out.png");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "Failed to load .lottie data from file://" +
                             (folder / "missing.lottie").string() + "\n");
  EXPECT_EQ(missing.err, "frameloom: cannot load missing.lottie\n");

  const ToolRun frame = run("render in.lottie --frame 61 --output out.png");
  EXPECT_EQ(frame.status, 1);
  EXPECT_EQ(frame.err, "frameloom: frame 61 is outside the animation's 0...60\n");

  for (const char* arguments : {"render in.lottie --size 0x10 --output out.png",
                                "render in.lottie --sheet 0x3 --output out.png",
                                "render in.lottie --colors red --output out.png"}) {
    const ToolRun bad = run(arguments);
    EXPECT_EQ(bad.status, 1) << arguments;
    EXPECT_TRUE(bad.err.starts_with("frameloom: ")) << bad.err;
  }
  EXPECT_EQ(run("render in.lottie --frame 1 --sheet 2x2 --output out.png").status, 2);
  EXPECT_FALSE(std::filesystem::exists(folder / "out.png"));
}

} // namespace
} // namespace frameloom::testing
