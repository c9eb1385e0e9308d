// Damaged archives must give an error or a short enumeration: never a crash, a hang or an
// out-of-bounds access (run under AddressSanitizer to see the latter).
#include "Support.h"

#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>

using namespace frameloom::ziploom;
using namespace frameloom::testing;

namespace {

// Opens, enumerates and extracts everything; returns the number of entries seen.
std::size_t readEverything(const Bytes& bytes) {
  auto archive = Archive::make(bytes, Archive::AccessMode::read);
  if (!archive) {
    return 0;
  }
  std::size_t count = 0;
  for (const auto& entry : *archive) {
    ++count;
    (void)entry.fileAttributes();
    try {
      archive->extract(entry, 512, false, nullptr, [](ByteView) {});
    } catch (const ArchiveError&) {
    } catch (const DataError&) {
    } catch (const CompressionError&) {
    }
  }
  (void)(*archive)["missing"];
  return count;
}

Bytes sample() {
  const auto text = bytesOf(std::string(300, 'a') + "bcdefg");
  return buildArchive(
      {{.name = "stored.txt", .data = bytesOf("plain")},
       {.name = "deflated.txt", .data = text, .deflate = true},
       {.name = "described", .data = text, .deflate = true, .dataDescriptor = true},
       {.name = "wide", .data = bytesOf("zip64"), .zip64 = true},
       {.name = "link", .data = bytesOf("stored.txt"), .externalAttributes = 0120777u << 16}},
      {.comment = bytesOf("comment"), .zip64End = true});
}

} // namespace

// Every truncation, and every byte damaged: among others, offsets and counts that point past the
// end, sizes that lie and signatures that are wrong.
TEST(MalformedArchive, EveryTruncationAndDamagedByteIsReadSafely) {
  const auto bytes = sample();
  ASSERT_EQ(readEverything(bytes), 5u);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    readEverything(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(i)));
    for (std::uint8_t value : {0x00, 0xFF, 0x7F, 0x80}) {
      auto damaged = bytes;
      damaged[i] = value;
      readEverything(damaged);
    }
  }
}
