// Archives written by Info-ZIP's zip and by Python's zipfile must read back exactly as unzip
// and zipinfo see them.
#include "ArchiveBuilder.h"

#include "ziploom/Archive.h"
#include "ziploom/Compression.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
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

  static inline TemporaryFolder* folder = nullptr;
};

const char* typeName(EntryType type) {
  return type == EntryType::directory ? "dir" : type == EntryType::symlink ? "link" : "file";
}

// Every entry, read through the library and through `frameloom archive list` and `cat`, agrees
// with zipinfo and unzip -p.
void checkArchive(const std::filesystem::path& path) {
  SCOPED_TRACE(path.filename().string());
  const std::string tool = FRAMELOOM_TOOL_PATH;
  const auto expected = zipinfo(path);
  std::istringstream listing(run(tool + " archive list " + quoted(path)));
  Archive archive(path, Archive::AccessMode::read);
  std::size_t index = 0;
  Bytes all;
  for (const auto& entry : archive) {
    ASSERT_LT(index, expected.size());
    const auto& listed = expected[index++];
    SCOPED_TRACE(listed.path);
    // zipinfo shows names without the UTF-8 flag as the raw bytes.
    const auto utf8 = entry.centralDirectoryStructure.hasUTF8Path();
    EXPECT_EQ(utf8 ? bytesOf(entry.path()) : entry.centralDirectoryStructure.fileNameData,
              bytesOf(listed.path));
    EXPECT_EQ(entry.type(), listed.type);
    Bytes bytes;
    const auto checksum = archive.extract(entry, 4096, false, nullptr, [&](ByteView chunk) {
      bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    });
    EXPECT_EQ(checksum, crc32(bytes));
    if (entry.type() != EntryType::directory) {
      EXPECT_EQ(checksum, listed.crc);
      all.insert(all.end(), bytes.begin(), bytes.end());
    }

    char line[64];
    std::snprintf(line, sizeof line, "%s %s %llu %llu %08x ", typeName(listed.type),
                  entry.isCompressed() ? "deflate" : "stored",
                  static_cast<unsigned long long>(listed.uncompressedSize),
                  static_cast<unsigned long long>(listed.compressedSize), listed.crc);
    std::string listedLine;
    std::getline(listing, listedLine);
    EXPECT_EQ(listedLine, line + entry.path());
    if (listed.type == EntryType::file && utf8 && entry.path() == listed.path &&
        listed.path.find_first_of("[]*?\\") == std::string::npos) {
      EXPECT_EQ(run(tool + " archive cat " + quoted(path) + " " + testsupport::quoted(listed.path)),
                run("unzip -p " + quoted(path) + " " + testsupport::quoted(listed.path)));
    }
  }
  EXPECT_EQ(index, expected.size());
  EXPECT_EQ(all, bytesOf(run("unzip -p " + quoted(path))));
}

} // namespace

TEST_F(Interop, ArchivesOfZipAndPythonReadAsUnzipAndZipinfoSeeThem) {
  for (const auto& item : std::filesystem::directory_iterator(folder->path())) {
    if (item.path().extension() == ".zip") {
      checkArchive(item.path());
    }
  }
  const Archive names(*folder / "py-cp437.zip", Archive::AccessMode::read);
  EXPECT_TRUE(names["cp437/na\xC3\xAFve \xC3\xA9t\xC3\xA9 \xE2\x96\x91\xE2\x96\x92.txt"]);
}

TEST_F(Interop, RealAnimationsReadAsUnzipAndZipinfoSeeThem) {
  const char* shared = std::getenv("FRAMELOOM_CORPUS");
  const std::filesystem::path corpus = shared ? shared : "/work/shared/corpus";
  if (!std::filesystem::is_directory(corpus)) {
    GTEST_SKIP() << "no corpus of animations at " << corpus;
  }
  for (const auto& item : std::filesystem::directory_iterator(corpus)) {
    if (item.path().extension() == ".lottie") {
      checkArchive(item.path());
    }
  }
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

TEST_F(Interop, ToolFailuresAreOneLineOnStandardError) {
  const std::string tool = FRAMELOOM_TOOL_PATH;
  const auto archive = quoted(*folder / "zip-deflated.zip");
  EXPECT_EQ(run(tool + " archive cat " + archive + " no-such-entry 2>&1; echo status $?"),
            "frameloom: " + (*folder / "zip-deflated.zip").string() +
                ": no entry no-such-entry\nstatus 1\n");
  const auto notArchive = *folder / "source" / "text.json";
  EXPECT_EQ(run(tool + " archive list " + quoted(notArchive) + " 2>&1; echo status $?"),
            "frameloom: " + notArchive.string() +
                ": not a ZIP archive: no end of central directory record\nstatus 1\n");
}
