#pragma once

#include "support/Archives.h"
#include "support/Files.h"
#include "support/TemporaryFolder.h"
#include <frameloom/ziploom/Archive.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

// Ziploom's own test support, next to the shared helpers: random contents, trees compared item by
// item, and the outside tools (Info-ZIP, Python's zipfile) tests compare with.
namespace frameloom::testing {

namespace fs = std::filesystem;

platform::Bytes randomBytes(std::size_t count, unsigned seed = 42);
// `count` bytes of words drawn at random from a small vocabulary: text on which deflate levels
// make visibly different output.
platform::Bytes wordText(std::size_t count, unsigned seed = 42);
// The entries' paths in central-directory order.
std::vector<std::string> paths(const ziploom::Archive& archive);

// Runs a shell command and returns its standard output; a test failure when it exits non-zero.
std::string run(const std::string& command);
// True when the command exits with status 0; its output is discarded.
bool succeeds(const std::string& command);
// The path as one shell word.
std::string quoted(const fs::path& path);
// The system's Python, which starts much faster than a version manager's shim in front of it.
std::string python();
bool infoZipAccepts(const fs::path& archive);
bool pythonAccepts(const fs::path& archive);

// The code of the `Error` the action throws; a test failure when it throws none.
template <typename Error, typename Action>
typename Error::Code errorOf(Action action) {
  try {
    action();
  } catch (const Error& error) {
    return error.code();
  }
  ADD_FAILURE() << "the expected error was not thrown";
  return {};
}

// What a tree holds, item by item: type, contents or link target, permissions and modification
// time in whole seconds rounded down to even (the resolution of ZIP dates).
struct Item {
  fs::file_type type;
  platform::Bytes contents;
  unsigned mode;
  long time;
  bool operator==(const Item&) const = default;
};
std::map<std::string, Item> snapshot(const fs::path& root);

} // namespace frameloom::testing
