#pragma once

// The built frameloom tool, run as a user would. FRAMELOOM_TOOL_PATH is defined by every test
// executable.

#include "support/Files.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
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
  const std::string command = "cd '" + folder.string() + "' && TMPDIR='" + folder.string() +
                              "' '" FRAMELOOM_TOOL_PATH "' " + arguments +
                              " >stdout.txt 2>stderr.txt";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(folder / "stdout.txt"),
          readText(folder / "stderr.txt")};
}

} // namespace frameloom::testing
