// One entry of more than 4 GiB: ZIP64 sizes through enumeration and a streamed extraction whose
// memory stays bounded by the chunk size. Slow (minutes), so labelled "large".
#include "ArchiveBuilder.h"

#include "ziploom/Archive.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace ziploom;
using namespace ziploom::testsupport;

TEST(LargeEntry, ZerosBeyondFourGiBReadBackWithZIP64Sizes) {
  if (!haveCommand("zip") || !haveCommand("zipinfo")) {
    GTEST_SKIP() << "needs zip and zipinfo";
  }
  constexpr std::uint64_t size = (4ull << 30) + 12345;
  TemporaryFolder folder;
  const auto path = folder / "large.zip";
  // Read from a pipe, zip streams the entry with ZIP64 sizes.
  run("head -c " + std::to_string(size) + " /dev/zero | zip -q " + quoted(path) + " -");

  Archive archive(path, Archive::AccessMode::read);
  const auto entry = archive["-"];
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->uncompressedSize(), size);
  std::istringstream listing(run("zipinfo -v " + quoted(path)));
  std::string line;
  std::uint32_t listedCRC = 0;
  while (std::getline(listing, line)) {
    if (line.find("32-bit CRC value (hex):") != std::string::npos) {
      listedCRC =
          static_cast<std::uint32_t>(std::stoul(line.substr(line.find(':') + 1), nullptr, 16));
    }
  }
  EXPECT_EQ(entry->checksum(), listedCRC);

  std::uint64_t produced = 0;
  std::size_t largestChunk = 0;
  bool allZero = true;
  const auto checksum =
      archive.extract(*entry, defaultReadChunkSize, false, nullptr, [&](ByteView chunk) {
        produced += chunk.size();
        largestChunk = std::max(largestChunk, chunk.size());
        allZero = allZero && std::all_of(chunk.begin(), chunk.end(), [](auto b) { return b == 0; });
      });
  EXPECT_EQ(produced, size);
  EXPECT_EQ(checksum, listedCRC);
  EXPECT_LE(largestChunk, static_cast<std::size_t>(defaultReadChunkSize));
  EXPECT_TRUE(allZero);
}
