#include <frameloom/ziploom/Compression.h>

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <limits>

namespace frameloom::ziploom {

namespace {

// zlib counts a single step's input and output in `uInt`.
constexpr std::int64_t maximumBufferSize = std::numeric_limits<uInt>::max();
constexpr std::int64_t minimumInflateOutput = 65536;

enum class Direction { encode, decode };

// Owns an initialised zlib stream for raw deflate in one direction.
class DeflateStream {
public:
  DeflateStream(Direction direction, int level) : direction_(direction) {
    const int status =
        direction == Direction::encode
            ? deflateInit2(&stream_, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY)
            : inflateInit2(&stream_, -MAX_WBITS);
    if (status != Z_OK) {
      throw CompressionError(CompressionError::Code::invalidStream,
                             "The compression stream could not be initialised");
    }
  }
  ~DeflateStream() {
    if (direction_ == Direction::encode) {
      deflateEnd(&stream_);
    } else {
      inflateEnd(&stream_);
    }
  }
  DeflateStream(const DeflateStream&) = delete;
  DeflateStream& operator=(const DeflateStream&) = delete;

  z_stream& operator*() { return stream_; }
  z_stream* operator->() { return &stream_; }

  int process(bool finish) {
    return direction_ == Direction::encode ? deflate(&stream_, finish ? Z_FINISH : Z_NO_FLUSH)
                                           : inflate(&stream_, Z_NO_FLUSH);
  }

private:
  Direction direction_;
  z_stream stream_{};
};

[[noreturn]] void throwCorrupted() {
  throw CompressionError(CompressionError::Code::corruptedData,
                         "The compressed data is corrupted or truncated");
}

std::uint32_t process(Direction direction, int level, std::int64_t size, std::int64_t bufferSize,
                      bool skipCRC32, const Provider& provider, const Consumer& consumer) {
  if (level < fastestCompressionLevel || level > smallestCompressionLevel) {
    throw CompressionError(CompressionError::Code::invalidStream,
                           "The compression level must be from 1 to 9");
  }
  if (bufferSize <= 0 || bufferSize > maximumBufferSize || size < 0) {
    throw CompressionError(CompressionError::Code::invalidStream,
                           "The compression stream needs a positive buffer size and source size");
  }
  DeflateStream stream(direction, level);
  // Inflating into a larger buffer halves what zlib copies into its window and the number of
  // calls; the consumer still gets slices of at most bufferSize bytes.
  const auto outputSize = direction == Direction::decode
                              ? std::max<std::int64_t>(bufferSize, minimumInflateOutput)
                              : bufferSize;
  Bytes output(static_cast<std::size_t>(outputSize));
  Bytes chunk;
  std::int64_t position = 0;
  std::uint32_t checksum = 0;
  // Set once a chunk shorter than bufferSize arrived: the source is used up and the provider is
  // not asked again, so an input that ends early cannot keep the loop waiting for more.
  bool sourceEnded = false;

  for (;;) {
    if (stream->avail_in == 0 && !sourceEnded) {
      const std::int64_t count = std::clamp<std::int64_t>(size - position, 0, bufferSize);
      chunk = provider(position, count);
      if (static_cast<std::int64_t>(chunk.size()) > count) {
        chunk.resize(static_cast<std::size_t>(count));
      }
      position += static_cast<std::int64_t>(chunk.size());
      sourceEnded = static_cast<std::int64_t>(chunk.size()) < bufferSize;
      stream->next_in = chunk.data();
      stream->avail_in = static_cast<uInt>(chunk.size());
      if (direction == Direction::encode && !skipCRC32) {
        checksum = crc32(chunk, checksum);
      }
    }
    stream->next_out = output.data();
    stream->avail_out = static_cast<uInt>(outputSize);
    const uInt inputBefore = stream->avail_in;
    const int status = stream.process(sourceEnded);
    const auto produced = static_cast<std::size_t>(outputSize - stream->avail_out);
    const bool progressed = produced > 0 || stream->avail_in != inputBefore;
    if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) {
      throwCorrupted();
    }
    const auto slice = static_cast<std::size_t>(bufferSize);
    std::size_t offset = 0;
    do {
      const auto result = ByteView(output).subspan(offset, std::min(slice, produced - offset));
      consumer(result);
      if (direction == Direction::decode && !skipCRC32) {
        checksum = crc32(result, checksum);
      }
      offset += result.size();
    } while (offset < produced);
    if (status == Z_STREAM_END) {
      return checksum;
    }
    // Every step is handed fresh output space and, unless the source is used up, fresh input, so
    // a step that moves nothing means a deflate stream cut short; giving up here avoids a hang.
    if (!progressed) {
      throwCorrupted();
    }
  }
}

} // namespace

std::optional<CompressionMethod> makeCompressionMethod(std::uint16_t raw) {
  switch (raw) {
  case static_cast<std::uint16_t>(CompressionMethod::none):
    return CompressionMethod::none;
  case static_cast<std::uint16_t>(CompressionMethod::deflate):
    return CompressionMethod::deflate;
  default:
    return std::nullopt;
  }
}

std::uint32_t crc32(ByteView bytes, std::uint32_t checksum) {
  // A null buffer, which is what an empty vector may have, is not handed to the library.
  if (bytes.empty()) {
    return checksum;
  }
  return static_cast<std::uint32_t>(libdeflate_crc32(checksum, bytes.data(), bytes.size()));
}

std::uint32_t compress(std::int64_t size, std::int64_t bufferSize, const Provider& provider,
                       const Consumer& consumer, int level) {
  return process(Direction::encode, level, size, bufferSize, false, provider, consumer);
}

std::uint32_t decompress(std::int64_t size, std::int64_t bufferSize, bool skipCRC32,
                         const Provider& provider, const Consumer& consumer) {
  return process(Direction::decode, defaultCompressionLevel, size, bufferSize, skipCRC32, provider,
                 consumer);
}

} // namespace frameloom::ziploom
