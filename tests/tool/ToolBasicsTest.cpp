// The tool's conventions shared by every command: usage errors, versions, standard streams.

#include "../renderer/LottieSamples.h"
#include "support/Archives.h"
#include "support/TemporaryFolder.h"
#include "support/ToolRun.h"

#include <frameloom/platform/graphics/Png.h>

#include <gtest/gtest.h>

namespace frameloom::testing {
namespace {

class ToolBasics : public ::testing::Test {
protected:
  void SetUp() override {
    writeArchive(folder / "in.lottie",
                 {{"animations/a.json", sampleLottie(20, 10, {{0, 0, 20, 10, {{0, {1, 0, 0}}}}})}});
  }
  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }

  TemporaryFolder temporary;
  const std::filesystem::path& folder = temporary.path();
};

TEST_F(ToolBasics, UsageErrorsAreOneLineWithSuggestionAndExitTwo) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"ifno x", "unknown command 'ifno'; did you mean 'info'? (see 'frameloom --help')"},
      {"-V", "unknown option '-V'; did you mean '--version'? (see 'frameloom --help')"},
      {"cache list", "unknown command 'cache list'; did you mean 'cache clear'? (see 'frameloom "
                     "cache --help')"},
      {"archive lsit a.zip", "unknown command 'archive lsit'; did you mean 'archive list'? (see "
                             "'frameloom archive --help')"},
      {"xyzzy", "unknown command 'xyzzy' (see 'frameloom --help')"},
      {"", "a command is required (see 'frameloom --help')"},
      {"render in.lottie --outptu x.png",
       "unknown option '--outptu'; did you mean '--output'? (see 'frameloom render --help')"},
      {"fetch example.com/a.lottie",
       "'example.com/a.lottie' is not an http(s) URL (see 'frameloom fetch --help')"},
      {"render ftp://example.com/a.lottie --output a.png",
       "'ftp://example.com/a.lottie' is neither a file nor an http(s) URL (see 'frameloom render "
       "--help')"},
      {"play in.lottie --seconds 90000",
       "--seconds: '90000' is not a number from 0 to 86400 (see 'frameloom play --help')"},
      {"render in.lottie --output a.bmp",
       "cannot tell the picture format of 'a.bmp': use .png, .webp, .gif or .apng, or --format (see "
       "'frameloom render --help')"},
  };
  for (const auto& [arguments, line] : cases) {
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_EQ(result.err, "frameloom: " + line + "\n") << arguments;
    EXPECT_EQ(result.out, "") << arguments;
  }
  // The same malformed colour is a usage error in every command that takes colours.
  for (const char* command : {"recolor in.lottie", "render in.lottie --output a.png",
                              "compare in.lottie --output a.png"}) {
    EXPECT_EQ(run(std::string(command) + " --colors red").status, 2) << command;
  }
}

TEST_F(ToolBasics, LibraryErrorsNameThePathOnce) {
  const ToolRun missing = run("info nothere.lottie");
  EXPECT_EQ(std::pair(missing.status, missing.err),
            std::pair(1, std::string("frameloom: nothere.lottie: No such file or directory\n")));
  const ToolRun archive = run("archive list nothere.zip");
  EXPECT_EQ(archive.status, 1);
  EXPECT_EQ(std::count(archive.err.begin(), archive.err.end(), '\n'), 1);
  EXPECT_NE(archive.err.find("nothere.zip"), std::string::npos) << archive.err;
}

TEST_F(ToolBasics, VersionNamesTheToolAndItsLibraries) {
  const ToolRun result = run("--version");
  EXPECT_EQ(result.status, 0);
  EXPECT_TRUE(result.out.starts_with("frameloom 1.0.0\n")) << result.out;
  for (const char* library : {"\nzlib ", "\nlibcurl ", "\nlibpng ", "\nlibwebp ", "\ngiflib "}) {
    EXPECT_NE(result.out.find(library), std::string::npos) << library;
  }
}

TEST_F(ToolBasics, StandardStreamsStandForFiles) {
  // A full standard output is a failure, whichever command wrote to it.
  for (const char* arguments : {"info in.lottie", "palette in.lottie", "--version"}) {
    const std::string command = "cd '" + folder.string() + "' && '" FRAMELOOM_TOOL_PATH "' " +
                                arguments + " >/dev/full 2>stderr.txt";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1) << arguments;
    EXPECT_TRUE(readText(folder / "stderr.txt").starts_with("frameloom: cannot write"))
        << arguments;
  }
  // "-" reads standard input and writes standard output.
  EXPECT_EQ(run("palette - <in.lottie").out, run("palette in.lottie").out);
  EXPECT_EQ(run("archive list - <in.lottie").out, run("archive list in.lottie").out);
  EXPECT_EQ(run("render in.lottie --size 20x10 --output -").status, 0);
  EXPECT_EQ(platform::readPng(folder / "stdout.txt")->pixel(5, 5),
            (platform::Rgba8{255, 0, 0, 255}));
  EXPECT_FALSE(std::filesystem::exists(folder / "-"));
}

// On a terminal (made by script(1)) work shows a bar with its rate and time left; --quiet
// silences it, and the library's log lines start on a line of their own, never inside the bar.
TEST_F(ToolBasics, ProgressBarsShowOnTerminalsAndStayOutOfLogLines) {
  auto onTerminal = [&](const std::string& arguments) {
    const std::string command = "cd '" + folder.string() + "' && script -qec \"'" +
                                FRAMELOOM_TOOL_PATH + "' " + arguments +
                                "\" /dev/null >terminal.txt";
    EXPECT_EQ(std::system(command.c_str()), 0) << arguments;
    return readText(folder / "terminal.txt");
  };
  const std::string sheet = onTerminal("render in.lottie --sheet 3x3 --output s.png");
  EXPECT_NE(sheet.find("render ["), std::string::npos) << sheet;
  EXPECT_NE(sheet.find("100% 18/18 steps"), std::string::npos) << sheet;
  EXPECT_EQ(onTerminal("render in.lottie --sheet 3x3 --output s.png --quiet").find('['),
            std::string::npos);
  const std::string play = onTerminal("play in.lottie --seconds 0.5");
  for (std::size_t at = play.find("LottiePlayer"); at != std::string::npos;
       at = play.find("LottiePlayer", at + 1)) {
    const bool ownLine = at == 0 || play[at - 1] == '\n' || play.compare(at - 3, 3, "\033[K") == 0;
    EXPECT_TRUE(ownLine) << play;
  }
  EXPECT_NE(play.find("play ["), std::string::npos) << play;
}

} // namespace
} // namespace frameloom::testing
