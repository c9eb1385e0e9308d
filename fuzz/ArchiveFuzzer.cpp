// Opens the input as an in-memory archive, enumerates it and extracts every entry to a consumer
// that drops the bytes. Errors Ziploom reports are expected; anything else is a finding.
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto archive = frameloom::ziploom::Archive::make(frameloom::platform::Bytes(data, data + size),
                                                   frameloom::ziploom::Archive::AccessMode::read);
  if (!archive) {
    return 0;
  }
  for (const auto& entry : *archive) {
    (void)entry.fileAttributes();
    (void)entry.localRecordLength();
    try {
      archive->extract(entry, 4096, false, nullptr, [](frameloom::platform::ByteView) {});
    } catch (const frameloom::ziploom::ArchiveError&) {
    } catch (const frameloom::ziploom::DataError&) {
    } catch (const frameloom::ziploom::CompressionError&) {
    }
  }
  (void)(*archive)["animations/data.json"];
  return 0;
}
