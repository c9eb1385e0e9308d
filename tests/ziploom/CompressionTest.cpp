#include "TreeSupport.h"

#include "ziploom/Compression.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string_view>

using namespace ziploom;
using namespace ziploom::testing;

namespace {

// Text-like bytes that deflate well, so streams span several output buffers and input chunks.
Bytes compressibleBytes(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i) {
    bytes[i] = static_cast<std::uint8_t>("frameloom "[i % 10] + (i / 997) % 3);
  }
  return bytes;
}

struct Pipe {
  Bytes output;
  std::size_t largestChunk = 0;
  Consumer consumer() {
    return [this](ByteView chunk) {
      largestChunk = std::max(largestChunk, chunk.size());
      output.insert(output.end(), chunk.begin(), chunk.end());
    };
  }
};

Bytes deflated(const Bytes& source) {
  Pipe pipe;
  compress(static_cast<std::int64_t>(source.size()), 4096, providerFor(source), pipe.consumer());
  return pipe.output;
}

CompressionError::Code errorCode(const std::function<void()>& action) {
  try {
    action();
  } catch (const CompressionError& error) {
    return error.code();
  }
  throw std::logic_error("no CompressionError was thrown");
}

} // namespace

TEST(CompressionTest, Crc32MatchesTheZipChecksumAndContinuesAcrossChunks) {
  constexpr std::string_view check = "123456789";
  const Bytes bytes(check.begin(), check.end());
  EXPECT_EQ(crc32(bytes), 0xCBF43926u);
  EXPECT_EQ(crc32(ByteView(bytes).subspan(4), crc32(ByteView(bytes).first(4))), 0xCBF43926u);
  EXPECT_EQ(crc32({}), 0u);
  EXPECT_EQ(crc32(Bytes{}, 0xCBF43926u), 0xCBF43926u);
}

TEST(CompressionTest, RoundTripsAcrossChunkBoundaries) {
  constexpr std::int64_t bufferSize = 1024;
  for (const std::size_t size : {0, 1, 1023, 1024, 1025, 3072, 50000}) {
    for (const Bytes& source : {randomBytes(size, 7), compressibleBytes(size)}) {
      SCOPED_TRACE(size);
      Pipe packed;
      const auto sourceChecksum = compress(static_cast<std::int64_t>(source.size()), bufferSize,
                                           providerFor(source), packed.consumer());
      EXPECT_EQ(sourceChecksum, crc32(source));
      EXPECT_LE(packed.largestChunk, static_cast<std::size_t>(bufferSize));

      Pipe unpacked;
      const auto outputChecksum =
          decompress(static_cast<std::int64_t>(packed.output.size()), bufferSize, false,
                     providerFor(packed.output), unpacked.consumer());
      EXPECT_EQ(unpacked.output, source);
      EXPECT_EQ(outputChecksum, sourceChecksum);
      EXPECT_LE(unpacked.largestChunk, static_cast<std::size_t>(bufferSize));
    }
  }
}

TEST(CompressionTest, AsksForBoundedChunksAndFinishesAnExactMultipleWithAnEmptyOne) {
  const Bytes source = compressibleBytes(2048);
  std::vector<std::pair<std::int64_t, std::int64_t>> calls;
  const Provider recording = [&](std::int64_t position, std::int64_t count) {
    calls.emplace_back(position, count);
    return providerFor(source)(position, count);
  };
  compress(2048, 1024, recording, [](ByteView) {});
  const std::vector<std::pair<std::int64_t, std::int64_t>> expected{
      {0, 1024}, {1024, 1024}, {2048, 0}};
  EXPECT_EQ(calls, expected);
}

TEST(CompressionTest, InflationStopsAtTheEndOfTheDeflateStream) {
  const Bytes source = compressibleBytes(5000);
  Bytes packed = deflated(source);
  const auto streamSize = packed.size();
  packed.resize(streamSize + 3000, 0xAB);

  Pipe unpacked;
  EXPECT_EQ(decompress(static_cast<std::int64_t>(packed.size()), 512, true, providerFor(packed),
                       unpacked.consumer()),
            0u);
  EXPECT_EQ(unpacked.output, source);
}

TEST(CompressionTest, BadInputEndsInAnErrorNeverAHang) {
  const Bytes source = randomBytes(20000, 3);
  const Bytes packed = deflated(source);

  // Cut short by the size, and by a provider that runs dry early or delivers nothing at all.
  const Bytes truncated(packed.begin(), packed.begin() + packed.size() / 2);
  const Provider runsDry = [&](std::int64_t position, std::int64_t count) {
    return position >= 4096 ? Bytes{} : providerFor(packed)(position, count);
  };
  const Provider empty = [](std::int64_t, std::int64_t) { return Bytes{}; };
  Pipe sink;
  EXPECT_EQ(errorCode([&] {
              decompress(static_cast<std::int64_t>(truncated.size()), 4096, false,
                         providerFor(truncated), sink.consumer());
            }),
            CompressionError::Code::corruptedData);
  EXPECT_EQ(errorCode([&] {
              decompress(static_cast<std::int64_t>(packed.size()), 4096, false, runsDry,
                         sink.consumer());
            }),
            CompressionError::Code::corruptedData);
  EXPECT_EQ(errorCode([&] { decompress(1000, 4096, false, empty, sink.consumer()); }),
            CompressionError::Code::corruptedData);

  // A block type that does not exist.
  const Bytes garbage{0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(errorCode([&] { decompress(4, 4096, false, providerFor(garbage), sink.consumer()); }),
            CompressionError::Code::corruptedData);
  // An output buffer of no bytes could never make progress.
  EXPECT_EQ(errorCode([&] { compress(4, 0, providerFor(garbage), sink.consumer()); }),
            CompressionError::Code::invalidStream);
}
