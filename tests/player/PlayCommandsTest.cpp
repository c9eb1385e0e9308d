// Runs the built tool's play and demo commands as a user would.

#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(PlayCommands, DemoWritesEveryStageAndPlaysTheRecolouredCopy) {
  TemporaryFolder folder;
  const ToolRun demo = runTool("demo --output demo", folder.path());
  ASSERT_EQ(demo.status, 0) << demo.err;
  EXPECT_THAT(demo.out, HasSubstr("size: 512 x 512\n"));
  for (auto name : {"demo.lottie", "demo-recoloured.lottie", "sheet-original.png",
                    "sheet-recoloured.png", "frames/frame-00001.png"}) {
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path() / "demo" / name)) << name;
  }

  const ToolRun play = runTool("play demo/demo.lottie --fps 30 --seconds 0.5", folder.path());
  ASSERT_EQ(play.status, 0) << play.err;
  EXPECT_THAT(play.out,
              StartsWith("LottiePlayer: Loaded animation with 60.0 frames, duration: 2.0s\n"));
  EXPECT_THAT(play.out, HasSubstr("\ndelivered "));

  const ToolRun missing = runTool("play missing.lottie --seconds 0.1", folder.path());
  EXPECT_EQ(missing.status, 1);
  EXPECT_THAT(missing.err, StartsWith("frameloom: cannot load an animation from "));
  EXPECT_EQ(runTool("play", folder.path()).status, 2);
}

} // namespace
} // namespace frameloom::testing
