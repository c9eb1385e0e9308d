#pragma once

#include <sys/wait.h>

#include <array>
#include <cstdio>
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
  const auto errPath = folder / "stderr.txt";
  const std::string command = "cd '" + folder.string() + "' && TMPDIR='" + folder.string() +
                              "' '" FRAMELOOM_TOOL_PATH "' " + arguments + " 2>'" +
                              errPath.string() + "'";
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return {-1, {}, "cannot start " + command};
  }
  std::string out;
  std::array<char, 4096> buffer;
  while (const std::size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    out.append(buffer.data(), n);
  }
  const int status = pclose(pipe);
  std::ifstream err(errPath);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out,
          std::string(std::istreambuf_iterator<char>(err), {})};
}

} // namespace frameloom::testing
