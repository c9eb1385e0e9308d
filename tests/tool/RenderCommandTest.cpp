// Runs the built tool's render command on archives the test makes.

#include <frameloom/platform/graphics/Png.h>

#include "../renderer/LottieSamples.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

namespace frameloom::testing {
namespace {

using platform::Rgba8;
using Look = std::tuple<std::size_t, std::size_t, std::vector<Rgba8>>;

class RenderCommand : public ::testing::Test {
protected:
  void SetUp() override {
    // Red until frame 30, then blue, on a 100 x 100 square with a green right half.
    writeArchive(folder / "in.lottie",
                 {{"animations/a.json",
                   sampleLottie(100, 100,
                                {{50, 0, 50, 100, {{0, {0, 1, 0}}}},
                                 {0, 0, 100, 100, {{0, {1, 0, 0}}, {30, {0, 0, 1}}}}})}});
  }

  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }

  TemporaryFolder temporary;
  const std::filesystem::path& folder = temporary.path();
};

constexpr Rgba8 red{255, 0, 0, 255};
constexpr Rgba8 blue{0, 0, 255, 255};

TEST_F(RenderCommand, WritesFramesSheetsAndRecolouredFrames) {
  // Sheets spread frames from the first to the last. The static green becomes the first colour;
  // the keyframed colour is not a static one.
  const std::vector<std::tuple<std::string, std::vector<std::pair<int, int>>, Look>> cases{
      {"", {{50, 125}, {200, 125}}, {250, 250, {red, {0, 255, 0, 255}}}},
      {"--frame 45 --size 60x30", {{20, 15}, {5, 15}}, {60, 30, {blue, {}}}},
      {"--sheet 2x1 --size 10x10", {{2, 5}, {12, 5}}, {20, 10, {red, blue}}},
      {"--colors '#ff0,#0ff' --size 10x10", {{8, 5}, {2, 5}}, {10, 10, {{255, 255, 0, 255}, red}}},
  };
  for (const auto& [arguments, points, expected] : cases) {
    const ToolRun result = run("render in.lottie " + arguments + " --output out.png");
    ASSERT_EQ(std::pair(result.status, result.out), std::pair(0, std::string("out.png\n")))
        << arguments << result.err;
    const auto image = platform::readPng(folder / "out.png");
    std::vector<Rgba8> pixels;
    for (auto [x, y] : points) {
      pixels.push_back(image->pixel(x, y));
    }
    EXPECT_EQ(Look(image->width(), image->height(), pixels), expected) << arguments;
  }
}

TEST_F(RenderCommand, FailuresExplainThemselvesAndWriteNothing) {
  const ToolRun missing = run("render missing.lottie --output out.png");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "Failed to load .lottie data from file://" +
                             (folder / "missing.lottie").string() + "\n");
  EXPECT_EQ(missing.err, "frameloom: cannot load missing.lottie\n");
  const ToolRun frame = run("render in.lottie --frame 61 --output out.png");
  EXPECT_EQ(std::pair(frame.status, frame.err),
            std::pair(1, std::string("frameloom: frame 61 is outside the animation's 0...60\n")));
  // Malformed values and sheets that could not be drawn are usage errors, refused before any
  // frame is rendered.
  for (const char* arguments : {"--size 0x10", "--size 300", "--sheet 0x3", "--sheet 4",
                                "--colors red", "--size 4000x4000 --sheet 100x100",
                                "--size 2000x2000 --sheet 8x8", "--fps 0", "--format bmp"}) {
    const ToolRun bad = run("render in.lottie " + std::string(arguments) + " --output out.png");
    EXPECT_EQ(bad.status, 2) << arguments;
    EXPECT_TRUE(bad.err.starts_with("frameloom: ")) << bad.err;
    EXPECT_TRUE(bad.err.ends_with("(see 'frameloom render --help')\n")) << bad.err;
  }
  // Not a regular file: refused before a byte is read (reading would never end).
  EXPECT_EQ(run("render /dev/zero --output out.png").err, "frameloom: cannot load /dev/zero\n");
  EXPECT_EQ(run("render in.lottie --frame 1 --sheet 2x2 --output out.png").status, 2);
  EXPECT_FALSE(std::filesystem::exists(folder / "out.png"));
}

} // namespace
} // namespace frameloom::testing
