#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

// The bytes of a ZIP archive holding the given entries in the given order (deflated, no folder
// entries), made by Info-ZIP's zip so that the archives do not depend on the code under test.
// Entry paths must not contain single quotes.
inline std::vector<std::uint8_t>
makeZip(const std::vector<std::pair<std::string, std::string>>& entries) {
  if (entries.empty()) {
    // zip refuses to make an empty archive: an end of central directory record alone is one.
    std::vector<std::uint8_t> empty(22, 0);
    empty[0] = 'P';
    empty[1] = 'K';
    empty[2] = 5;
    empty[3] = 6;
    return empty;
  }
  static int made = 0;
  const auto folder =
      std::filesystem::temp_directory_path() /
      ("frameloom-zip-" + std::to_string(::getpid()) + "-" + std::to_string(++made));
  std::string paths;
  for (const auto& [path, contents] : entries) {
    std::filesystem::create_directories((folder / "in" / path).parent_path());
    std::ofstream(folder / "in" / path, std::ios::binary) << contents;
    paths += " '" + path + "'";
  }
  const std::string command =
      "cd '" + (folder / "in").string() + "' && zip -q -X -D ../out.zip" + paths;
  if (std::system(command.c_str()) != 0) {
    throw std::runtime_error("zip could not make the archive");
  }
  std::ifstream in(folder / "out.zip", std::ios::binary);
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
  std::filesystem::remove_all(folder);
  return bytes;
}

} // namespace frameloom::testing
