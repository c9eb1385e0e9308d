#include "Support.h"

#include <frameloom/ziploom/Compression.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

Consumer into(Bytes& output, std::size_t& largestChunk) {
  return [&](ByteView chunk) {
    largestChunk = std::max(largestChunk, chunk.size());
    output.insert(output.end(), chunk.begin(), chunk.end());
  };
}

std::int64_t sizeOf(const Bytes& bytes) {
  return static_cast<std::int64_t>(bytes.size());
}

} // namespace

// Sizes around the buffer size: a source that is an exact multiple is finished by an empty
// chunk. Random bytes make deflate's output grow past its input.
TEST(Compression, RoundTripsAcrossChunkBoundariesInBoundedChunks) {
  for (const std::size_t size : {0, 1, 1023, 1024, 1025, 3072, 50000}) {
    for (const Bytes& source : {randomBytes(size, 7), Bytes(size, 'f')}) {
      SCOPED_TRACE(size);
      Bytes packed, unpacked;
      std::size_t largestChunk = 0;
      const auto checksum =
          compress(sizeOf(source), 1024, providerFor(source), into(packed, largestChunk));
      EXPECT_EQ(checksum, crc32(source));
      EXPECT_EQ(decompress(sizeOf(packed), 1024, false, providerFor(packed),
                           into(unpacked, largestChunk)),
                checksum);
      EXPECT_EQ(unpacked, source);
      EXPECT_LE(largestChunk, 1024u);
      // Bytes after the end of the deflate stream are not read as data.
      packed.resize(packed.size() + 3000, 0xAB);
      unpacked.clear();
      decompress(sizeOf(packed), 512, true, providerFor(packed), into(unpacked, largestChunk));
      EXPECT_EQ(unpacked, source);
    }
  }
}

TEST(Compression, BadInputEndsInAnErrorNeverAHang) {
  Bytes packed;
  std::size_t largestChunk = 0;
  const auto source = randomBytes(20000, 3);
  compress(sizeOf(source), 4096, providerFor(source), into(packed, largestChunk));
  const Bytes truncated(packed.begin(), packed.begin() + sizeOf(packed) / 2);
  const Provider runsDry = [&](std::int64_t position, std::int64_t count) {
    return position >= 4096 ? Bytes{} : providerFor(packed)(position, count);
  };
  const Bytes garbage{0xFF, 0xFF, 0xFF, 0xFF}; // a block type that does not exist
  const std::vector<std::pair<std::int64_t, Provider>> cases{
      {sizeOf(truncated), providerFor(truncated)},
      {sizeOf(packed), runsDry},
      {4, providerFor(garbage)}};
  Bytes sink;
  for (const auto& [size, provider] : cases) {
    EXPECT_EQ(errorOf<CompressionError>(
                  [&] { decompress(size, 4096, false, provider, into(sink, largestChunk)); }),
              CompressionError::Code::corruptedData);
  }
  // An output buffer of no bytes could never make progress; levels go from 1 to 9.
  EXPECT_EQ(errorOf<CompressionError>(
                [&] { compress(4, 0, providerFor(garbage), into(sink, largestChunk)); }),
            CompressionError::Code::invalidStream);
  for (const int level : {0, 10}) {
    EXPECT_EQ(errorOf<CompressionError>([&] {
                compress(4, 4096, providerFor(garbage), into(sink, largestChunk), level);
              }),
              CompressionError::Code::invalidStream);
  }
}
