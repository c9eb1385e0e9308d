#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace frameloom::testing {

// What one run of the built frameloom tool produced.
struct ToolRun {
  int status;
  std::string out;
  std::string err;
};

// Runs the tool with `arguments` (already quoted for the shell) inside `folder`, which is also
// its temporary directory, and collects its exit status and both output streams.
inline ToolRun runTool(const std::string& arguments, const std::filesystem::path& folder) {
  const auto read = [&folder](const char* name) {
    std::ifstream in(folder / name);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string command = "cd '" + folder.string() + "' && TMPDIR='" + folder.string() +
                              "' '" FRAMELOOM_TOOL_PATH "' " + arguments +
                              " >stdout.txt 2>stderr.txt";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read("stdout.txt"), read("stderr.txt")};
}

} // namespace frameloom::testing
