// Entries and archives past every 32-bit limit. Minutes of work and gigabytes of disk, so these
// carry the "large" label.
#include "Support.h"

using namespace frameloom::ziploom;
using namespace frameloom::testing;

// A deflated entry of more than 4 GiB (ZIP64 sizes), then a stored one that pushes the next
// entry's offset and the central directory past 4 GiB. Info-ZIP and Python read them, and the
// library streams them back in bounded chunks.
TEST(LargeEntry, EntriesBeyondFourGiBGetZIP64Records) {
  TemporaryFolder folder;
  const auto archivePath = folder / "large.zip";
  constexpr std::uint64_t beyond4GiB = (4ull << 30) + 12345;
  const auto size = static_cast<std::int64_t>(beyond4GiB);
  const Provider zeros = [](std::int64_t, std::int64_t count) {
    return Bytes(static_cast<std::size_t>(count), 0);
  };
  {
    Archive archive(archivePath, AccessMode::create);
    const auto now = std::chrono::system_clock::now();
    for (const auto method : {CompressionMethod::deflate, CompressionMethod::none}) {
      archive.addEntry(method == CompressionMethod::none ? "stored" : "deflated",
                       Entry::EntryType::file, size, now, std::nullopt, method, 1 << 20, nullptr,
                       zeros);
    }
    const auto last = bytesOf("after four gigabytes");
    archive.addEntry("last", Entry::EntryType::file, static_cast<std::int64_t>(last.size()), now,
                     std::nullopt, CompressionMethod::none, 1 << 20, nullptr, providerFor(last));
  }
  const auto details = run("zipinfo -v " + quoted(archivePath));
  EXPECT_NE(details.find("PKWARE 64-bit sizes"), std::string::npos) << details;
  EXPECT_NE(details.find("minimum software version required to extract:   4.5"), std::string::npos);
  EXPECT_EQ(run(python() +
                " -c 'import sys, zipfile\n"
                "z = zipfile.ZipFile(sys.argv[1])\n"
                "for i in z.infolist(): print(i.filename, i.file_size, i.header_offset > 2**32)\n"
                "print(z.read(\"last\").decode())' " +
                quoted(archivePath)),
            "deflated 4294979641 False\nstored 4294979641 False\nlast 20 True\n"
            "after four gigabytes\n");
  EXPECT_TRUE(infoZipAccepts(archivePath));

  Archive archive(archivePath, AccessMode::read);
  for (const auto* name : {"deflated", "stored"}) {
    std::uint64_t produced = 0;
    std::size_t largestChunk = 0;
    bool allZero = true;
    const auto entry = *archive[name];
    EXPECT_EQ(archive.extract(entry, defaultReadChunkSize, false, nullptr,
                              [&](ByteView chunk) {
                                produced += chunk.size();
                                largestChunk = std::max(largestChunk, chunk.size());
                                allZero = allZero && std::all_of(chunk.begin(), chunk.end(),
                                                                 [](auto b) { return b == 0; });
                              }),
              entry.checksum());
    EXPECT_EQ(produced, beyond4GiB);
    EXPECT_LE(largestChunk, static_cast<std::size_t>(defaultReadChunkSize));
    EXPECT_TRUE(allZero);
  }
}
