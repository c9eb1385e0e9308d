// Archives written by Info-ZIP's zip and by Python's zipfile must read back exactly as unzip
// and zipinfo see them.
#include "ArchiveBuilder.h"

#include "ziploom/Archive.h"
#include "ziploom/Compression.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace ziploom;
using namespace ziploom::testsupport;
using EntryType = Entry::EntryType;

namespace {

struct ListedEntry {
  std::string path;
  EntryType type = EntryType::file;
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
};

std::string after(const std::string& line, const std::string& label) {
  return line.substr(line.find(label) + label.size());
}

// The entries as `zipinfo -v` describes them, in central-directory order.
std::vector<ListedEntry> zipinfo(const std::filesystem::path& archive) {
  std::istringstream text(run("LC_ALL=C.UTF-8 zipinfo -v " + quoted(archive)));
  std::vector<ListedEntry> entries;
  std::string line;
  while (std::getline(text, line)) {
    if (line.starts_with("Central directory entry #")) {
      // The name is the first text after the dashes, except a note on bytes between entries.
      while (std::getline(text, line) && (line.empty() || line.starts_with("---") ||
                                          line.starts_with("  There are an extra"))) {
      }
      entries.push_back({.path = line.substr(2)});
      entries.back().type =
          entries.back().path.ends_with('/') ? EntryType::directory : EntryType::file;
    } else if (entries.empty()) {
      continue;
    } else if (line.find("32-bit CRC value (hex):") != std::string::npos) {
      entries.back().crc = static_cast<std::uint32_t>(std::stoul(after(line, ":"), nullptr, 16));
    } else if (line.starts_with("  compressed size:")) {
      entries.back().compressedSize = std::stoull(after(line, ":"));
    } else if (line.starts_with("  uncompressed size:")) {
      entries.back().uncompressedSize = std::stoull(after(line, ":"));
    } else if (line.starts_with("  Unix file attributes (")) {
      const auto mode = after(line, "octal):");
      const auto kind = mode.substr(mode.find_first_not_of(' '), 1);
      if (kind == "d") {
        entries.back().type = EntryType::directory;
      } else if (kind == "l") {
        entries.back().type = EntryType::symlink;
      } else if (kind == "-") {
        entries.back().type = EntryType::file;
      }
    }
  }
  return entries;
}

class Interop : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    if (!haveCommand("zip") || !haveCommand("unzip") || !haveCommand("zipinfo") ||
        !haveCommand("python3")) {
      return;
    }
    folder = new TemporaryFolder;
    const auto source = *folder / "source";
    std::filesystem::create_directories(source / "nested/deeper");
    std::filesystem::create_directories(source / "nested/empty");
    std::string text;
    for (int i = 0; i < 4000; ++i) {
      text += "{\"frame\": " + std::to_string(i) + ", \"colour\": [0.5, 0.25, 1]}\n";
    }
    writeFile(source / "text.json", bytesOf(text));
    Bytes noise(300000);
    std::uint32_t state = 12345;
    for (auto& byte : noise) {
      state = state * 1664525 + 1013904223;
      byte = static_cast<std::uint8_t>(state >> 24);
    }
    writeFile(source / "noise.bin", noise);
    writeFile(source / "empty.txt", {});
    writeFile(source / "nested/deeper/file.txt", bytesOf("deep\n"));
    std::filesystem::create_symlink("text.json", source / "link");
    std::filesystem::create_symlink("nested/deeper", source / "folder-link");

    const auto cd = "cd " + quoted(source) + " && ";
    run(cd + "zip -qry0 ../zip-stored.zip .");
    run(cd + "zip -qry ../zip-deflated.zip .");
    // Writing to a pipe makes zip stream: sizes and CRC-32 go into data descriptors.
    run(cd + "zip -qr - . | cat > ../zip-streamed.zip");
    run(cd + "cat text.json | zip -q ../zip-stdin.zip -");
    run("python3 " +
        quoted(std::filesystem::path(FRAMELOOM_SOURCE_DIR) /
               "tests/ziploom/data/make_python_archives.py") +
        " " + quoted(folder->path()));
  }

  static void TearDownTestSuite() {
    delete folder;
    folder = nullptr;
  }

  void SetUp() override {
    if (!folder) {
      GTEST_SKIP() << "needs zip, unzip, zipinfo and python3";
    }
  }

  // Every entry agrees with zipinfo, and the bytes of all entries with unzip -p.
  static void checkAgainstInfoZIP(const std::filesystem::path& path) {
    SCOPED_TRACE(path.filename().string());
    Archive archive(path, Archive::AccessMode::read);
    const auto expected = zipinfo(path);
    std::size_t index = 0;
    Bytes all;
    for (const auto& entry : archive) {
      ASSERT_LT(index, expected.size());
      const auto& listed = expected[index++];
      SCOPED_TRACE(listed.path);
      // zipinfo shows names without the UTF-8 flag as the raw bytes.
      if (entry.centralDirectoryStructure.hasUTF8Path()) {
        EXPECT_EQ(entry.path(), listed.path);
      } else {
        EXPECT_EQ(entry.centralDirectoryStructure.fileNameData, bytesOf(listed.path));
      }
      EXPECT_EQ(entry.type(), listed.type);
      EXPECT_EQ(entry.checksum(), listed.crc);
      EXPECT_EQ(entry.compressedSize(), listed.compressedSize);
      EXPECT_EQ(entry.uncompressedSize(), listed.uncompressedSize);
      Bytes bytes;
      const auto checksum = archive.extract(entry, 4096, false, nullptr, [&](ByteView chunk) {
        bytes.insert(bytes.end(), chunk.begin(), chunk.end());
      });
      EXPECT_EQ(checksum, crc32(bytes));
      if (entry.type() != EntryType::directory) {
        EXPECT_EQ(checksum, listed.crc);
        all.insert(all.end(), bytes.begin(), bytes.end());
      }
    }
    EXPECT_EQ(index, expected.size());
    EXPECT_EQ(all, bytesOf(run("unzip -p " + quoted(path))));
  }

  static inline TemporaryFolder* folder = nullptr;
};

} // namespace

TEST_F(Interop, InfoZIPArchivesReadAsUnzipReadsThem) {
  for (const auto* name :
       {"zip-stored.zip", "zip-deflated.zip", "zip-streamed.zip", "zip-stdin.zip"}) {
    checkAgainstInfoZIP(*folder / name);
  }
}

TEST_F(Interop, PythonArchivesReadAsUnzipReadsThem) {
  for (const auto* name :
       {"py-zip64-extras.zip", "py-zip64-end.zip", "py-names.zip", "py-cp437.zip"}) {
    checkAgainstInfoZIP(*folder / name);
  }
  const Archive names(*folder / "py-cp437.zip", Archive::AccessMode::read);
  EXPECT_TRUE(names["cp437/na\xC3\xAFve \xC3\xA9t\xC3\xA9 \xE2\x96\x91\xE2\x96\x92.txt"]);
}

TEST_F(Interop, StreamedEntriesFindTheirDataDescriptors) {
  const Archive archive(*folder / "zip-streamed.zip", Archive::AccessMode::read);
  const auto entry = archive["noise.bin"];
  ASSERT_TRUE(entry);
  EXPECT_TRUE(entry->centralDirectoryStructure.hasDataDescriptor());
  EXPECT_TRUE(entry->dataDescriptor || entry->zip64DataDescriptor);
}

TEST_F(Interop, ExtractedTreesMatchWhatUnzipMakes) {
  for (const auto* name : {"zip-deflated.zip", "zip-streamed.zip", "py-zip64-end.zip"}) {
    SCOPED_TRACE(name);
    const auto ours = *folder / (std::string(name) + ".ours");
    const auto theirs = *folder / (std::string(name) + ".unzip");
    Archive archive(*folder / name, Archive::AccessMode::read);
    for (const auto& entry : archive) {
      archive.extract(entry, ours / entry.path());
    }
    run("unzip -q " + quoted(*folder / name) + " -d " + quoted(theirs));
    EXPECT_EQ(run("diff -r --no-dereference " + quoted(ours) + " " + quoted(theirs)), "");
    EXPECT_EQ(run("cd " + quoted(ours) + " && find . -printf '%p %y %m\\n' | sort"),
              run("cd " + quoted(theirs) + " && find . -printf '%p %y %m\\n' | sort"));
  }
}
