#pragma once

#include <frameloom/ziploom/DataCallbacks.h>

#include <cstdint>
#include <optional>

struct libdeflate_compressor;

// Deflating and inflating an entry's data as one buffer, for entries small enough to hold in
// memory: a whole-buffer codec runs two to three times as fast as a streaming one and its output
// is no larger. Larger entries keep streaming (Compression.h), so memory stays bounded whatever
// the entry size. Each object is used by one thread at a time; nothing here throws except
// std::bad_alloc.
namespace frameloom::ziploom::whole {

// The largest entry (uncompressed, and compressed when inflating) handled as one buffer: source
// and result together then take about 32 MiB, well within what one entry may cost, while nearly
// every document, picture and archive member people zip fits.
inline constexpr std::uint64_t maximumSize = 16 * 1024 * 1024;

// Owns one compressor (its match finder takes a few hundred KiB, so it is kept for many entries).
// It takes the streaming compressor's levels (Compression.h), so that both paths make archives of
// the same kind and a given entry always compresses to the same bytes through this path.
class Deflater {
public:
  explicit Deflater(int level);
  ~Deflater();
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  // Raw deflate of `source` into `output` (resized to the compressed length).
  void deflate(ByteView source, Bytes& output);

private:
  libdeflate_compressor* compressor_;
};

// Inflates the raw deflate stream at the start of `compressed` into a buffer of at most
// `capacity` bytes. Nothing when the data is not one complete stream whose output fits: the
// caller then streams it, which reports the exact failure after the output that came before it.
std::optional<Bytes> inflate(ByteView compressed, std::size_t capacity);

} // namespace frameloom::ziploom::whole
