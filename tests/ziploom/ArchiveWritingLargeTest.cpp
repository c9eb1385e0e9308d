#include "TreeSupport.h"

#include "ziploom/Archive.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <memory>

using namespace ziploom;
using namespace ziploom::testing;

namespace {

std::string output(const std::string& command) {
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  char buffer[4096];
  while (pipe && std::fgets(buffer, sizeof buffer, pipe.get()) != nullptr) {
    text += buffer;
  }
  return text;
}

} // namespace

// Entries past every 32-bit limit: a deflated one of more than 4 GiB of zeros (ZIP64 sizes), a
// stored one that pushes the next entry's offset and the central directory past 4 GiB.
TEST(ArchiveWritingLargeTest, EntriesBeyondFourGiBGetZIP64Records) {
  TemporaryFolder folder;
  const auto archivePath = folder / "large.zip";
  constexpr std::int64_t size = (std::int64_t{1} << 32) + 100;
  const Provider zeros = [](std::int64_t, std::int64_t count) {
    return Bytes(static_cast<std::size_t>(count), 0);
  };
  {
    Archive archive(archivePath, AccessMode::create);
    const auto now = std::chrono::system_clock::now();
    archive.addEntry("deflated zeros", Entry::EntryType::file, size, now, std::nullopt,
                     CompressionMethod::deflate, 1 << 20, nullptr, zeros);
    archive.addEntry("stored zeros", Entry::EntryType::file, size, now, std::nullopt,
                     CompressionMethod::none, 1 << 20, nullptr, zeros);
    const std::string last = "after four gigabytes";
    archive.addEntry("last", Entry::EntryType::file, static_cast<std::int64_t>(last.size()), now,
                     std::nullopt, CompressionMethod::none, 1 << 20, nullptr,
                     [&](std::int64_t, std::int64_t) { return Bytes(last.begin(), last.end()); });
  }

  const auto details = output("zipinfo -v " + shellQuoted(archivePath));
  EXPECT_NE(details.find("4294967396 bytes"), std::string::npos) << details;
  EXPECT_NE(details.find("PKWARE 64-bit sizes"), std::string::npos) << details;
  EXPECT_NE(details.find("minimum software version required to extract:   4.5"), std::string::npos)
      << details;

  const auto checked =
      output(python() +
             " -c 'import sys, zipfile\n"
             "z = zipfile.ZipFile(sys.argv[1])\n"
             "for i in z.infolist(): print(i.filename, i.file_size, i.header_offset > 2**32)\n"
             "print(z.read(\"last\").decode())' " +
             shellQuoted(archivePath));
  EXPECT_EQ(checked, "deflated zeros 4294967396 False\nstored zeros 4294967396 False\n"
                     "last 20 True\nafter four gigabytes\n");
  EXPECT_TRUE(infoZipAccepts(archivePath));
}
