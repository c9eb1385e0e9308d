#include "Support.h"

#include "support/Files.h"

#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string_view>

namespace frameloom::testing {

using platform::Bytes;
using ziploom::Archive;

std::vector<std::string> paths(const Archive& archive) {
  std::vector<std::string> result;
  for (const auto& entry : archive) {
    result.push_back(entry.path());
  }
  return result;
}

Bytes randomBytes(std::size_t count, unsigned seed) {
  std::mt19937 engine(seed);
  Bytes bytes(count);
  for (auto& byte : bytes) {
    byte = static_cast<std::uint8_t>(engine());
  }
  return bytes;
}

Bytes wordText(std::size_t count, unsigned seed) {
  static constexpr std::array<std::string_view, 12> words{
      "frame ", "loom ", "layer ", "shape ", "fill ", "stroke ",
      "mask ",  "key ",  "ease ",  "path ",  "time ", "colour\n"};
  std::mt19937 engine(seed);
  Bytes text;
  text.reserve(count + 8);
  while (text.size() < count) {
    const auto word = words[engine() % words.size()];
    text.insert(text.end(), word.begin(), word.end());
  }
  text.resize(count);
  return text;
}

std::string run(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    ADD_FAILURE() << "cannot run " << command;
    return output;
  }
  char buffer[65536];
  std::size_t read = 0;
  while ((read = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) {
    output.append(buffer, read);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return output;
}

bool succeeds(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

std::string quoted(const fs::path& path) {
  std::string word = "'";
  for (const char c : path.string()) {
    word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return word + "'";
}

std::string python() {
  return fs::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}

bool infoZipAccepts(const fs::path& archive) {
  return succeeds("unzip -tq " + quoted(archive));
}

bool pythonAccepts(const fs::path& archive) {
  return succeeds(python() +
                  " -c 'import sys, zipfile; "
                  "sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not None)' " +
                  quoted(archive));
}

std::map<std::string, Item> snapshot(const fs::path& root) {
  std::map<std::string, Item> items;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    struct stat status {};
    lstat(item.path().c_str(), &status);
    const auto type = item.symlink_status().type();
    Item entry{type, {}, status.st_mode & 07777u, status.st_mtim.tv_sec & ~1L};
    if (type == fs::file_type::regular) {
      entry.contents = readFile(item.path());
    } else if (type == fs::file_type::symlink) {
      entry.contents = bytesOf(fs::read_symlink(item.path()).string());
      // Linux cannot set a link's own permissions, and Info-ZIP leaves a link with the time it
      // was made.
      entry.mode = 0;
      entry.time = 0;
    }
    items[item.path().lexically_relative(root).string()] = entry;
  }
  return items;
}

} // namespace frameloom::testing
