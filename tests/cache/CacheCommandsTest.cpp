#include "frameloom/CacheKey.h"

#include "TestHttpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>

namespace frameloom {
namespace {
namespace fs = std::filesystem;

// Runs the tool with the caches directory set to `caches`; returns the exit status and the
// standard output followed by standard error.
std::pair<int, std::string> runTool(const fs::path& caches, const std::string& arguments) {
  const std::string command = "XDG_CACHE_HOME='" + caches.string() + "' '" + FRAMELOOM_TOOL_PATH +
                              "' " + arguments + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  std::string output;
  char buffer[4096];
  while (std::size_t count = std::fread(buffer, 1, sizeof buffer, pipe)) {
    output.append(buffer, count);
  }
  const int status = ::pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(CacheCommandsTest, FetchDownloadsThenServesFromDiskAndClearEmptiesTheFolder) {
  const fs::path caches =
      fs::temp_directory_path() / ("frameloom-tool-" + std::to_string(::getpid()));
  const fs::path folder = caches / "LottieCache";
  fs::remove_all(caches);
  std::string url;
  {
    testing::TestHttpServer server;
    url = server.url("/bytes/4321/tool.lottie");
    EXPECT_EQ(runTool(caches, "fetch '" + url + "'"),
              std::pair(0, "4321 bytes, cached at " + (folder / cacheKey(url)).string() + "\n"));
  }
  auto [status, output] = runTool(caches, "fetch '" + url + "'"); // the server is gone
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, ::testing::StartsWith("4321 bytes"));

  std::tie(status, output) = runTool(caches, "fetch 'http://127.0.0.1:1/a.lottie'");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output,
              ::testing::MatchesRegex("frameloom: http://127.0.0.1:1/a.lottie: Network error: .*"));

  EXPECT_EQ(runTool(caches, "cache clear"), std::pair(0, std::string()));
  EXPECT_TRUE(fs::is_empty(folder));
  fs::remove_all(caches);
}

} // namespace
} // namespace frameloom
