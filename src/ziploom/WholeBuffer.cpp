#include "ziploom/WholeBuffer.h"

#include <libdeflate.h>

#include <memory>
#include <new>

namespace frameloom::ziploom::whole {

namespace {

struct DecompressorDeleter {
  void operator()(libdeflate_decompressor* decompressor) const {
    libdeflate_free_decompressor(decompressor);
  }
};

} // namespace

Deflater::Deflater(int level) : compressor_(libdeflate_alloc_compressor(level)) {
  if (compressor_ == nullptr) {
    throw std::bad_alloc();
  }
}

Deflater::~Deflater() {
  libdeflate_free_compressor(compressor_);
}

void Deflater::deflate(ByteView source, Bytes& output) {
  output.resize(libdeflate_deflate_compress_bound(compressor_, source.size()));
  // The bound always fits, so the result is never 0 ("did not fit").
  output.resize(libdeflate_deflate_compress(compressor_, source.data(), source.size(),
                                            output.data(), output.size()));
}

std::optional<Bytes> inflate(ByteView compressed, std::size_t capacity) {
  const std::unique_ptr<libdeflate_decompressor, DecompressorDeleter> decompressor(
      libdeflate_alloc_decompressor());
  if (!decompressor) {
    throw std::bad_alloc();
  }
  Bytes output(capacity);
  std::size_t consumed = 0;
  std::size_t produced = 0;
  // Asking for the counts lets the stream end before the input does and yield less than the
  // capacity, as a streaming inflate would.
  const auto result =
      libdeflate_deflate_decompress_ex(decompressor.get(), compressed.data(), compressed.size(),
                                       output.data(), output.size(), &consumed, &produced);
  if (result != LIBDEFLATE_SUCCESS) {
    return std::nullopt;
  }
  output.resize(produced);
  return output;
}

} // namespace frameloom::ziploom::whole
