// Opens the input as an in-memory archive, enumerates it and extracts every entry to a consumer
// that drops the bytes. Errors Ziploom reports are expected; anything else is a finding.
#include "ziploom/Archive.h"
#include "ziploom/Compression.h"
#include "ziploom/Errors.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto archive =
      ziploom::Archive::make(ziploom::Bytes(data, data + size), ziploom::Archive::AccessMode::read);
  if (!archive) {
    return 0;
  }
  for (const auto& entry : *archive) {
    (void)entry.fileAttributes();
    (void)entry.localRecordLength();
    try {
      archive->extract(entry, 4096, false, nullptr, [](ziploom::ByteView) {});
    } catch (const ziploom::ArchiveError&) {
    } catch (const ziploom::DataError&) {
    } catch (const ziploom::CompressionError&) {
    }
  }
  (void)(*archive)["animations/data.json"];
  return 0;
}
