#include "ziploom/WholeBuffer.h"
#include "Support.h"
#include "ziploom/EntryPreparation.h"

#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>
#include <frameloom/ziploom/FileSystem.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

Bytes inflated(ByteView packed) {
  Bytes output;
  decompress(
      static_cast<std::int64_t>(packed.size()), 4096, true,
      [&](std::int64_t position, std::int64_t count) {
        const auto start = std::min<std::size_t>(packed.size(), position);
        const auto end = std::min<std::size_t>(packed.size(), start + count);
        return Bytes(packed.begin() + start, packed.begin() + end);
      },
      [&](ByteView chunk) { output.insert(output.end(), chunk.begin(), chunk.end()); });
  return output;
}

// Files of every kind the folder zipper meets, small ones and one that spans many chunks.
void fillFolder(const fs::path& root) {
  fs::create_directories(root / "sub" / "empty");
  writeFile(root / "a.txt", std::string(5000, 'a'));
  writeFile(root / "empty", std::string());
  writeFile(root / "sub" / "random", randomBytes(300'000, 5));
  writeFile(root / "sub" / "text", std::string(1'000'000, 'x'));
  fs::create_symlink("a.txt", root / "link");
}

} // namespace

// Whole-buffer output is plain raw deflate, and the inflater stops at the stream's end, refuses
// output beyond its capacity and incomplete streams, so the caller can fall back to streaming.
TEST(WholeBuffer, DeflatesAndInflatesOneBufferWithinItsCapacity) {
  whole::Deflater deflater(defaultCompressionLevel);
  for (const auto& source : {Bytes{}, randomBytes(70'000, 3), Bytes(200'000, 'z')}) {
    SCOPED_TRACE(source.size());
    Bytes packed;
    deflater.deflate(source, packed);
    EXPECT_EQ(inflated(packed), source);
    auto trailed = packed;
    trailed.insert(trailed.end(), 100, 0xAB);
    EXPECT_EQ(whole::inflate(trailed, source.size()), source);
    if (!source.empty()) {
      EXPECT_FALSE(whole::inflate(packed, source.size() - 1));
      EXPECT_FALSE(whole::inflate(ByteView(packed).first(packed.size() / 2), source.size()));
    }
  }
}

// Workers prepare regular files only, in any order, while the writer takes them in list order;
// anything else (folders, links, missing files) is left to the writer.
TEST(WholeBuffer, PreparerHandsOverRegularFilesInOrderAndLeavesTheRest) {
  TemporaryFolder folder;
  fillFolder(folder.path());
  const std::vector<std::string> names{"a.txt",      "sub",   "link",    "missing",
                                       "sub/random", "empty", "sub/text"};
  std::vector<fs::path> urls;
  for (const auto& name : names) {
    urls.push_back(folder / name);
  }
  preparation::Preparer preparer(urls, defaultCompressionLevel);
  for (std::size_t index = 0; index < names.size(); ++index) {
    SCOPED_TRACE(names[index]);
    const auto prepared = preparer.take(index);
    if (!fs::is_regular_file(fs::symlink_status(urls[index]))) {
      EXPECT_FALSE(prepared);
      continue;
    }
    ASSERT_TRUE(prepared);
    const auto contents = readFile(urls[index]);
    EXPECT_EQ(prepared->status.size, static_cast<std::int64_t>(contents.size()));
    EXPECT_EQ(prepared->checksum, crc32(contents));
    EXPECT_EQ(inflated(prepared->compressed), contents);
  }
  // Given up early, with items still unclaimed, it stops without waiting for them.
  preparation::Preparer abandoned(std::vector<fs::path>(50, folder / "sub" / "text"),
                                  defaultCompressionLevel);
  EXPECT_TRUE(abandoned.take(0));
}

// Zipping a folder compresses entries at once on several threads; the archive is byte for byte
// the one made by adding the same items one at a time, and other tools read it.
TEST(WholeBuffer, FolderZippedAtOnceEqualsEntriesAddedOneByOne) {
  TemporaryFolder folder;
  const auto source = folder / "source";
  fillFolder(source);
  const auto together = folder / "together.zip";
  zipItem(source, together, false, CompressionMethod::deflate);

  const auto oneByOne = folder / "one-by-one.zip";
  {
    Archive archive(oneByOne, AccessMode::create);
    for (const auto* name :
         {"a.txt", "empty", "link", "sub", "sub/empty", "sub/random", "sub/text"}) {
      archive.addEntry(name, Archive::FileURL{source / name}, CompressionMethod::deflate);
    }
  }
  EXPECT_EQ(readFile(together), readFile(oneByOne));
  EXPECT_TRUE(infoZipAccepts(together));
  EXPECT_TRUE(pythonAccepts(together));

  const auto unzipped = folder / "unzipped";
  unzipItem(together, unzipped);
  EXPECT_EQ(snapshot(unzipped), snapshot(source));
}
