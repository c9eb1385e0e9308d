// The tool against inputs made to hurt it: zip bombs, special files, damaged directories and
// signals in the middle of a write. Each run must end with one clear line and exit status 1,
// stay below 300 MB resident, and leave everything outside its output as it was.
#include "support/PeakMemory.h"
#include "support/ToolRun.h"

#include <frameloom/ziploom/Archive.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace frameloom::testing {
namespace {

namespace fs = std::filesystem;
using ziploom::Archive;

constexpr long residentBudgetKiB = 300 * 1024;

platform::Bytes readBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return platform::Bytes(std::istreambuf_iterator<char>(in), {});
}

// The largest resident size any child of this test has reached so far.
// Adds `size` bytes of `fill` under `path`, deflated.
void addFilled(Archive& archive, const std::string& path, std::int64_t size, std::uint8_t fill) {
  archive.addEntry(path, ziploom::Entry::EntryType::file, size, std::chrono::system_clock::now(),
                   0644, ziploom::CompressionMethod::deflate, 1 << 20, nullptr,
                   [fill](std::int64_t, std::int64_t count) {
                     return platform::Bytes(static_cast<std::size_t>(count), fill);
                   });
}

class HostileInput : public ::testing::Test {
protected:
  void SetUp() override {
    char pattern[] = "/tmp/frameloom-hostile-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder = pattern;
  }
  void TearDown() override { fs::remove_all(folder); }
  ToolRun run(const std::string& arguments) const { return runTool(arguments, folder); }
  // Everything in the folder but the tool's own output files, as names and sizes.
  std::vector<std::pair<std::string, std::uintmax_t>> contents() const {
    std::vector<std::pair<std::string, std::uintmax_t>> items;
    for (const auto& item : fs::recursive_directory_iterator(folder)) {
      const auto name = item.path().filename().string();
      if (name != "stdout.txt" && name != "stderr.txt") {
        items.emplace_back(item.path().string(), item.is_regular_file() ? item.file_size() : 0);
      }
    }
    std::sort(items.begin(), items.end());
    return items;
  }

  fs::path folder;
};

// An animation document of 65 MiB of spaces, just past the budget, packs into some 70 KB.
TEST_F(HostileInput, DocumentBombIsRefusedWithinTheMemoryBudget) {
  {
    Archive archive(folder / "bomb.lottie", Archive::AccessMode::create);
    addFilled(archive, "animations/a.json", std::int64_t{65} << 20, ' ');
  }
  const auto before = contents();
  for (const char* command : {"info", "palette", "recolor", "render"}) {
    SCOPED_TRACE(command);
    const std::string arguments = std::string(command) + " bomb.lottie" +
                                  (std::string(command) == "recolor" ? " --colors '#ff0000'" : "") +
                                  (std::string(command) == "render" ? " --output f.png" : "");
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_NE(result.err.find("bomb.lottie"), std::string::npos) << result.err;
    if (residentSizeIsMeaningful) {
      EXPECT_LT(childrensPeakKiB(), residentBudgetKiB);
    }
    EXPECT_EQ(contents(), before);
  }
}

TEST_F(HostileInput, EntryLongerThanDeclaredStopsThere) {
  {
    Archive archive(folder / "a.zip", Archive::AccessMode::create);
    addFilled(archive, "big", 1 << 20, 'x');
  }
  // The central record's uncompressed size, 24 bytes into the record, now says 1000.
  auto bytes = readBytes(folder / "a.zip");
  const std::size_t directory = bytes[bytes.size() - 6] | (bytes[bytes.size() - 5] << 8) |
                                (bytes[bytes.size() - 4] << 16) |
                                (static_cast<std::size_t>(bytes[bytes.size() - 3]) << 24);
  const std::uint8_t thousand[4] = {0xE8, 0x03, 0, 0};
  std::memcpy(&bytes[directory + 24], thousand, 4);
  std::ofstream(folder / "a.zip", std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));

  const ToolRun cat = run("archive cat a.zip big");
  EXPECT_EQ(cat.status, 1);
  EXPECT_EQ(cat.out.size(), 1000u);
  EXPECT_NE(cat.err.find("declared size"), std::string::npos) << cat.err;
  const ToolRun unzip = run("archive unzip a.zip out");
  EXPECT_EQ(unzip.status, 1);
  EXPECT_LE(fs::file_size(folder / "out" / "big"), 1000u);
}

TEST_F(HostileInput, SpecialFilesAreRefusedBeforeAnyRead) {
  ASSERT_EQ(mkfifo((folder / "pipe.lottie").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo((folder / "pipe.json").c_str(), 0600), 0);
  for (const char* arguments :
       {"info pipe.lottie", "palette pipe.lottie", "recolor pipe.lottie --colors '#ff0000'",
        "render pipe.lottie --output f.png", "archive list pipe.lottie",
        "archive unzip pipe.lottie out", "archive list /dev/zero", "palette /dev/zero",
        "palette pipe.json"}) {
    SCOPED_TRACE(arguments);
    const ToolRun result = run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_FALSE(fs::exists(folder / "out"));
    if (residentSizeIsMeaningful) {
      EXPECT_LT(childrensPeakKiB(), residentBudgetKiB);
    }
  }
}

TEST_F(HostileInput, DamagedDirectoryIsAnError) {
  {
    Archive archive(folder / "a.zip", Archive::AccessMode::create);
    addFilled(archive, "one", 10, 'x');
    addFilled(archive, "two", 10, 'y');
  }
  // The end record's two entry counts, 10 and 8 bytes before its end, now claim 3.
  auto bytes = readBytes(folder / "a.zip");
  bytes[bytes.size() - 12] = 3;
  bytes[bytes.size() - 14] = 3;
  std::ofstream(folder / "a.zip", std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));

  const ToolRun list = run("archive list a.zip");
  EXPECT_EQ(list.status, 1);
  EXPECT_NE(list.out.find(" two\n"), std::string::npos);
  EXPECT_NE(list.err.find("a.zip: the central directory is damaged"), std::string::npos)
      << list.err;
  const ToolRun unzip = run("archive unzip a.zip out");
  EXPECT_EQ(unzip.status, 1);
  EXPECT_FALSE(fs::exists(folder / "out"));
}

// Starts the tool with `arguments`, waits until `growing` has grown past `size` (the write is
// under way), interrupts it with `signal` and returns its exit status.
int interruptWhileWriting(const std::vector<std::string>& arguments, const fs::path& growing,
                          std::uintmax_t size, int signal, const fs::path& folder) {
  const pid_t child = fork();
  if (child == 0) {
    chdir(folder.c_str());
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 2);
    std::vector<char*> argv{const_cast<char*>(FRAMELOOM_TOOL_PATH)};
    for (const auto& argument : arguments) {
      argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    execv(FRAMELOOM_TOOL_PATH, argv.data());
    _exit(127);
  }
  std::error_code error;
  while (!fs::exists(growing, error) || fs::file_size(growing, error) <= size) {
    if (waitpid(child, nullptr, WNOHANG) != 0) {
      ADD_FAILURE() << "the tool ended before it could be interrupted";
      return -1;
    }
    usleep(1000);
  }
  kill(child, signal);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(HostileInput, SignalDuringAWriteLeavesTheArchiveAsItWas) {
  {
    Archive archive(folder / "a.zip", Archive::AccessMode::create);
    addFilled(archive, "kept", 1000, 'k');
  }
  // A sparse 1 GiB file: nothing on disk, but seconds of copying.
  {
    std::ofstream(folder / "large").close();
    fs::resize_file(folder / "large", std::uintmax_t{1} << 30);
  }
  const auto original = readBytes(folder / "a.zip");
  for (const int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    EXPECT_EQ(interruptWhileWriting({"archive", "add", "a.zip", "large", "large"}, folder / "a.zip",
                                    original.size(), signal, folder),
              1);
    EXPECT_EQ(readBytes(folder / "a.zip"), original);
  }
  EXPECT_EQ(interruptWhileWriting({"archive", "zip", "large", "new.zip"}, folder / "new.zip", 0,
                                  SIGINT, folder),
            1);
  EXPECT_FALSE(fs::exists(folder / "new.zip"));
}

} // namespace
} // namespace frameloom::testing
