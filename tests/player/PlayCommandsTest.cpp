#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct ToolRun {
  int status = -1;
  std::string output;
};

ToolRun tool(const std::string& arguments) {
  ToolRun run;
  std::FILE* pipe = popen(("'" FRAMELOOM_TOOL_PATH "' " + arguments + " 2>&1").c_str(), "r");
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    run.output.append(buffer, n);
  }
  run.status = WEXITSTATUS(pclose(pipe));
  return run;
}

class PlayCommandsTest : public ::testing::Test {
protected:
  // Per process: ctest runs each test in a process of its own, possibly at the same time.
  fs::path folder = fs::temp_directory_path() / ("frameloom-play-test-" + std::to_string(getpid()));
  void TearDown() override { fs::remove_all(folder); }
};

TEST_F(PlayCommandsTest, DemoWritesEveryStageAndPlaysTheRecolouredCopy) {
  ToolRun demo = tool("demo --output '" + folder.string() + "'");
  ASSERT_EQ(demo.status, 0) << demo.output;
  EXPECT_THAT(demo.output, HasSubstr("size: 512 x 512\n"));
  for (auto name :
       {"demo.lottie", "demo-recoloured.lottie", "sheet-original.png", "sheet-recoloured.png"}) {
    EXPECT_TRUE(fs::is_regular_file(folder / name)) << name;
    EXPECT_THAT(demo.output, HasSubstr((folder / name).string())) << name;
  }
  EXPECT_TRUE(fs::is_regular_file(folder / "frames/frame-00001.png"));

  ToolRun play = tool("play '" + (folder / "demo.lottie").string() + "' --fps 30 --seconds 0.5");
  ASSERT_EQ(play.status, 0) << play.output;
  EXPECT_THAT(play.output,
              StartsWith("LottiePlayer: Loaded animation with 60.0 frames, duration: 2.0s\n"));
  EXPECT_THAT(play.output, HasSubstr("\ndelivered "));
}

TEST_F(PlayCommandsTest, MissingSourceFailsWithOneLine) {
  ToolRun play = tool("play '" + (folder / "missing.lottie").string() + "' --seconds 0.1");
  EXPECT_EQ(play.status, 1);
  EXPECT_THAT(play.output, HasSubstr("frameloom: cannot load an animation from "));
  EXPECT_EQ(tool("play").status, 2);
}

} // namespace
