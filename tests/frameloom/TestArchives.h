#pragma once

// Test helpers: a temporary folder removed on destruction, and ZIP archives written by Python's
// zipfile, so that the files under test are not made by the code under test.

#include <frameloom/ziploom/Archive.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace frameloom::testing {

class TemporaryFolder {
public:
  TemporaryFolder()
      : path_(std::filesystem::temp_directory_path() /
              ("frameloom-file-test-" + std::to_string(std::random_device()()))) {
    std::filesystem::create_directories(path_);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

private:
  std::filesystem::path path_;
};

inline void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

// Entry path and content, in archive order; a path ending in "/" is a folder entry.
using ArchiveEntries = std::vector<std::pair<std::string, std::string>>;

// Writes a deflated ZIP archive at `archive` holding exactly `entries`, names taken as given.
inline void makeArchive(const std::filesystem::path& archive, const ArchiveEntries& entries) {
  const std::filesystem::path staging = archive.string() + ".entries";
  // The Debian interpreter directly: wrappers on PATH can take seconds to start.
  std::string command = "/usr/bin/python3 -c 'import sys, zipfile\n"
                        "with zipfile.ZipFile(sys.argv[1], \"w\", zipfile.ZIP_DEFLATED) as z:\n"
                        "    for name, source in zip(sys.argv[2::2], sys.argv[3::2]):\n"
                        "        z.writestr(zipfile.ZipInfo(name), open(source, \"rb\").read())\n"
                        "' '" +
                        archive.string() + "'";
  for (std::size_t i = 0; i < entries.size(); ++i) {
    writeFile(staging / std::to_string(i), entries[i].second);
    command += " '" + entries[i].first + "' '" + (staging / std::to_string(i)).string() + "'";
  }
  std::filesystem::create_directories(staging);
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  std::filesystem::remove_all(staging);
}

// Entry paths and contents in archive order, read back with ziploom; `stored` expects every entry
// stored uncompressed.
inline ArchiveEntries entries(const std::filesystem::path& path, bool stored = false) {
  ArchiveEntries files;
  frameloom::ziploom::Archive archive(path, frameloom::ziploom::AccessMode::read);
  for (const auto& entry : archive) {
    EXPECT_TRUE(!stored || entry.localFileHeader.compressionMethod == 0) << entry.path();
    std::string& data = files.emplace_back(entry.path(), std::string()).second;
    archive.extract(entry,
                    [&data](frameloom::platform::ByteView c) { data.append(c.begin(), c.end()); });
  }
  return files;
}

} // namespace frameloom::testing
