#pragma once

#include "ziploom/Bytes.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>

// Bytes, folders, files and outside tools for the writing tests.
namespace ziploom::testing {

namespace fs = std::filesystem;

inline Bytes randomBytes(std::size_t count, unsigned seed = 42) {
  std::mt19937 engine(seed);
  Bytes bytes(count);
  for (auto& byte : bytes) {
    byte = static_cast<std::uint8_t>(engine());
  }
  return bytes;
}

// Serves the bytes of `source`, which must outlive it.
inline Provider providerFor(const Bytes& source) {
  return [&source](std::int64_t position, std::int64_t count) {
    return Bytes(source.begin() + position, source.begin() + position + count);
  };
}

// A fresh folder in the temporary directory, removed with its contents at the end of the test.
class TemporaryFolder {
public:
  TemporaryFolder() {
    auto name = (fs::temp_directory_path() / "ziploom-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary folder");
    }
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const fs::path& path() const { return path_; }
  fs::path operator/(const fs::path& name) const { return path_ / name; }

private:
  fs::path path_;
};

// The text as one shell word.
inline std::string shellQuoted(const fs::path& path) {
  std::string word = "'";
  for (const char c : path.string()) {
    word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return word + "'";
}

// Runs a shell command, its output discarded; true when it exits with status 0.
inline bool succeeds(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

inline bool infoZipAccepts(const fs::path& archive) {
  return succeeds("unzip -tq " + shellQuoted(archive));
}

// The system's Python starts much faster than a version manager's shim in front of it.
inline std::string python() {
  return fs::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}

inline bool pythonAccepts(const fs::path& archive) {
  return succeeds(python() +
                  " -c 'import sys, zipfile; "
                  "sys.exit(zipfile.ZipFile(sys.argv[1]).testzip() is not None)' " +
                  shellQuoted(archive));
}

inline Bytes readFile(const fs::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(stream), {});
}

inline void writeFile(const fs::path& path, const Bytes& bytes) {
  std::ofstream stream(path, std::ios::binary);
  stream.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

inline void writeFile(const fs::path& path, const std::string& text) {
  writeFile(path, Bytes(text.begin(), text.end()));
}

// What a tree holds, item by item: type, contents or link target, permissions and modification
// time in whole seconds rounded down to even (the resolution of ZIP dates).
struct Item {
  fs::file_type type;
  Bytes contents;
  unsigned mode;
  long time;
  bool operator==(const Item&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Item& item) {
    return stream << "type " << static_cast<int>(item.type) << ", " << item.contents.size()
                  << " bytes, mode " << std::oct << item.mode << std::dec << ", time " << item.time;
  }
};

inline std::map<std::string, Item> snapshot(const fs::path& root) {
  std::map<std::string, Item> items;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    struct stat status {};
    lstat(item.path().c_str(), &status);
    const auto type = item.symlink_status().type();
    Item entry{type, {}, status.st_mode & 07777u, status.st_mtim.tv_sec & ~1L};
    if (type == fs::file_type::regular) {
      entry.contents = readFile(item.path());
    } else if (type == fs::file_type::symlink) {
      const auto target = fs::read_symlink(item.path()).string();
      entry.contents.assign(target.begin(), target.end());
      // Linux cannot set a link's own permissions, and Info-ZIP leaves a link with the time it
      // was made.
      entry.mode = 0;
      entry.time = 0;
    }
    items[item.path().lexically_relative(root).string()] = entry;
  }
  return items;
}

} // namespace ziploom::testing
