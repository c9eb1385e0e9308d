#pragma once

// The floor Ziploom's extraction is measured against: each entry's stream read straight from the
// archive with fread, inflated by zlib when it is deflated, and CRC-32 taken over the output.

#include <frameloom/ziploom/Archive.h>

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <vector>

namespace bench {

struct BareStream {
  std::filesystem::path path;
  std::uint64_t offset, size;
  bool deflated;
};

// Where each file entry's data lies in the archive; read before the clock starts.
inline std::vector<BareStream> bareStreamsOf(const std::filesystem::path& archivePath) {
  std::vector<BareStream> streams;
  frameloom::ziploom::Archive archive(archivePath, frameloom::ziploom::Archive::AccessMode::read);
  for (const auto& entry : archive) {
    if (entry.type() != frameloom::ziploom::Entry::EntryType::file) {
      continue;
    }
    const auto& local = entry.localFileHeader;
    streams.push_back({entry.path(),
                       entry.centralDirectoryStructure.resolvedLocalHeaderOffset() + 30 +
                           local.fileNameLength + local.extraFieldLength,
                       entry.compressedSize(), entry.isCompressed()});
  }
  return streams;
}

// Reads `stream` from `in` in pieces of input.size() bytes, hands every piece of its entry's data
// to `consume` and returns the CRC-32 of that data.
template <typename Consume>
uLong bareInflate(FILE* in, const BareStream& stream, std::span<unsigned char> input,
                  std::span<unsigned char> output, Consume&& consume) {
  fseeko(in, static_cast<off_t>(stream.offset), SEEK_SET);
  uLong crc = crc32_z(0, nullptr, 0);
  z_stream z{};
  if (stream.deflated) {
    inflateInit2(&z, -MAX_WBITS);
  }
  std::uint64_t left = stream.size;
  int status = Z_OK;
  while (left > 0 && status != Z_STREAM_END) {
    const auto n = std::fread(input.data(), 1, std::min<std::uint64_t>(input.size(), left), in);
    if (n == 0) {
      break;
    }
    left -= n;
    if (!stream.deflated) {
      crc = crc32_z(crc, input.data(), n);
      consume(input.first(n));
      continue;
    }
    z.next_in = input.data();
    z.avail_in = static_cast<uInt>(n);
    do {
      z.next_out = output.data();
      z.avail_out = static_cast<uInt>(output.size());
      status = inflate(&z, Z_NO_FLUSH);
      const auto produced = output.size() - z.avail_out;
      crc = crc32_z(crc, output.data(), produced);
      consume(output.first(produced));
    } while (z.avail_in > 0 && status == Z_OK);
  }
  if (stream.deflated) {
    inflateEnd(&z);
  }
  return crc;
}

} // namespace bench
