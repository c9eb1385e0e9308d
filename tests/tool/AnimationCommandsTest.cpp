// Runs the built tool's animation commands on archives the test makes.

#include "ColorArguments.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace frameloom::testing {
namespace {

TEST(ColorArguments, ParsesTheThreeForms) {
  const auto colors = tool::parseColorList("#f00, #00FF0080,#336699");
  ASSERT_EQ(colors.size(), 3u);
  EXPECT_EQ(colors[0], (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(colors[1], (std::vector<double>{0, 1, 0, 128 / 255.0}));
  EXPECT_EQ(colors[2], (std::vector<double>{0x33 / 255.0, 0x66 / 255.0, 0x99 / 255.0, 1}));
  for (const char* bad : {"", "f00", "#f0", "#f00,", "#ff00gg", "#fffff", "#f00;#0f0"}) {
    EXPECT_THROW(tool::parseColorList(bad), std::invalid_argument) << bad;
  }
  EXPECT_EQ(tool::formatHexColor({1, 0.5, -1, 2}), "#FF8000FF");
  EXPECT_EQ(tool::formatHexColor({0.2, 0.4, 0.6}), "#336699FF");
}

TEST(AnimationCommands, InfoPaletteAndRecolor) {
  TemporaryFolder folder;
  writeArchive(folder.path() / "in.lottie",
               {{"animations/a.json", R"({"w":512,"h":256.5,"c":{"k":[1,0,0]},"x":)"
                                      R"({"c":{"k":[0,0,1,1]}},"y":{"c":{"k":[1,0,0,1]}}})"}});
  const auto out = [&folder](const std::string& arguments) {
    const ToolRun run = runTool(arguments, folder.path());
    EXPECT_EQ(run.status, 0) << arguments << run.err;
    return run.out;
  };
  EXPECT_EQ(out("info in.lottie"), "size: 512 x 256.5\nframes: 0\nduration: 0 s\n");
  EXPECT_EQ(out("palette in.lottie"), "#FF0000FF 1.0,0.0,0.0,1.0 2\n#0000FFFF 0.0,0.0,1.0,1.0 1\n");
  // recolor moves its copy to the output.
  EXPECT_EQ(out("recolor in.lottie --colors '#0f0' --output out.lottie"), "out.lottie\n");
  EXPECT_EQ(out("palette out.lottie"), "#00FF00FF 0.0,1.0,0.0,1.0 3\n");
}

} // namespace
} // namespace frameloom::testing
