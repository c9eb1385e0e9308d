// Archives written by Info-ZIP's zip and by Python's zipfile must read back, through the library
// and through the tool's archive commands, exactly as Python's zipfile and unzip see them.
#include "Support.h"
#include "support/Corpus.h"

#include <sstream>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

// One line per entry in central-directory order, as `frameloom archive list` prints it.
const char* const pythonListing = R"(
import stat, sys, zipfile
for i in zipfile.ZipFile(sys.argv[1]).infolist():
    unix = i.create_system in (3, 19)
    mode = i.external_attr >> 16
    link = unix and stat.S_ISLNK(mode)
    folder = i.filename.endswith("/") or (unix and stat.S_ISDIR(mode)) or (not unix and i.external_attr & 0x10)
    kind = "link" if link else "dir" if folder else "file"
    method = "deflate" if i.compress_type == 8 else "stored"
    line = "%s %s %d %d %08x %s\n" % (kind, method, i.file_size, i.compress_size, i.CRC, i.filename)
    sys.stdout.buffer.write(line.encode("utf-8")))";

class Interop : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    if (!succeeds("command -v zip && command -v unzip")) {
      return;
    }
    folder = new TemporaryFolder;
    const auto source = *folder / "source";
    fs::create_directories(source / "nested/deeper");
    fs::create_directories(source / "nested/empty");
    std::string text;
    for (int i = 0; i < 4000; ++i) {
      text += "{\"frame\": " + std::to_string(i) + ", \"colour\": [0.5, 0.25, 1]}\n";
    }
    writeFile(source / "text.json", bytesOf(text));
    writeFile(source / "noise.bin", randomBytes(300000));
    writeFile(source / "empty.txt", Bytes{});
    writeFile(source / "nested/deeper/file.txt", bytesOf("deep\n"));
    fs::create_symlink("text.json", source / "link");
    fs::create_symlink("nested/deeper", source / "folder-link");

    const auto cd = "cd " + quoted(source) + " && ";
    run(cd + "zip -qry0 ../zip-stored.zip .");
    run(cd + "zip -qry ../zip-deflated.zip .");
    // Writing to a pipe makes zip stream: sizes and CRC-32 go into data descriptors.
    run(cd + "zip -qr - . | cat > ../zip-streamed.zip");
    run(cd + "cat text.json | zip -q ../zip-stdin.zip -");
    run(python() + " " +
        quoted(fs::path(FRAMELOOM_SOURCE_DIR) / "tests/ziploom/data/make_python_archives.py") +
        " " + quoted(folder->path()));
  }

  static void TearDownTestSuite() {
    delete folder;
    folder = nullptr;
  }

  void SetUp() override {
    if (!folder) {
      GTEST_SKIP() << "needs zip and unzip";
    }
  }

  static inline TemporaryFolder* folder = nullptr;
};

// Every entry agrees with zipfile's listing and unzip -p, through the library and the tool.
void checkArchive(const fs::path& path) {
  SCOPED_TRACE(path.filename().string());
  const std::string tool = FRAMELOOM_TOOL_PATH;
  const auto listing = run(python() + " -c '" + pythonListing + "' " + quoted(path));
  EXPECT_EQ(run(tool + " archive list " + quoted(path)), listing);
  std::istringstream lines(listing);
  Archive archive(path, AccessMode::read);
  Bytes all;
  for (const auto& entry : archive) {
    std::string line;
    std::getline(lines, line);
    SCOPED_TRACE(line);
    Bytes bytes;
    const auto checksum = archive.extract(entry, 4096, false, nullptr, appendTo(bytes));
    EXPECT_EQ(checksum, crc32(bytes));
    char expected[32];
    std::snprintf(expected, sizeof expected, " %zu ", bytes.size());
    EXPECT_NE(line.find(expected), std::string::npos);
    std::snprintf(expected, sizeof expected, " %08x ", checksum);
    EXPECT_TRUE(line.ends_with(expected + entry.path()));
    if (entry.type() != Entry::EntryType::directory) {
      all.insert(all.end(), bytes.begin(), bytes.end());
    }
    if (line.starts_with("file") && entry.centralDirectoryStructure.hasUTF8Path() &&
        entry.path().find_first_of("[]*?\\") == std::string::npos) {
      EXPECT_EQ(run(tool + " archive cat " + quoted(path) + " " +
                    frameloom::testing::quoted(entry.path())),
                run("unzip -p " + quoted(path) + " " + frameloom::testing::quoted(entry.path())));
    }
  }
  EXPECT_EQ(all, bytesOf(run("unzip -p " + quoted(path))));
}

} // namespace

TEST_F(Interop, ArchivesOfZipAndPythonReadAsZipfileAndUnzipSeeThem) {
  for (const auto& item : fs::directory_iterator(folder->path())) {
    if (item.path().extension() == ".zip") {
      checkArchive(item.path());
    }
  }
  const Archive names(*folder / "py-cp437.zip", AccessMode::read);
  EXPECT_TRUE(names["cp437/na\xC3\xAFve \xC3\xA9t\xC3\xA9 \xE2\x96\x91\xE2\x96\x92.txt"]);
}

TEST_F(Interop, RealAnimationsReadAsZipfileAndUnzipSeeThem) {
  const auto archives = corpusFiles(".lottie");
  if (archives.empty()) {
    GTEST_SKIP() << "no corpus of animations";
  }
  for (const auto& archive : archives) {
    checkArchive(archive);
  }
}

TEST_F(Interop, ExtractedTreesMatchWhatUnzipMakes) {
  for (const auto* name : {"zip-deflated.zip", "zip-streamed.zip", "py-zip64-end.zip"}) {
    SCOPED_TRACE(name);
    const auto ours = *folder / (std::string(name) + ".ours");
    const auto theirs = *folder / (std::string(name) + ".unzip");
    Archive archive(*folder / name, AccessMode::read);
    for (const auto& entry : archive) {
      archive.extract(entry, ours / entry.path());
    }
    run("unzip -q " + quoted(*folder / name) + " -d " + quoted(theirs));
    EXPECT_EQ(run("diff -r --no-dereference " + quoted(ours) + " " + quoted(theirs)), "");
    const auto listing = "find . -printf '%p %y %m\\n' | sort";
    EXPECT_EQ(run("cd " + quoted(ours) + " && " + listing),
              run("cd " + quoted(theirs) + " && " + listing));
  }
}

TEST_F(Interop, ToolFailuresAreOneLineOnStandardError) {
  const std::string tool = FRAMELOOM_TOOL_PATH;
  const auto archive = *folder / "zip-deflated.zip";
  EXPECT_EQ(run(tool + " archive cat " + quoted(archive) + " no-such-entry 2>&1; echo status $?"),
            "frameloom: " + archive.string() + ": no entry no-such-entry\nstatus 1\n");
}
