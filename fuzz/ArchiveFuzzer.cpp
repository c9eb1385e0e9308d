// Opens the input as an in-memory archive, enumerates it and extracts every entry to a consumer
// that drops the bytes; then adds an entry to it and removes one, and checks that the result
// still opens and, when the addition succeeded on an archive whose directory was whole, holds the
// added entry. Errors Ziploom reports are expected; anything else is a finding.
#include <frameloom/ziploom/Archive.h>
#include <frameloom/ziploom/Compression.h>
#include <frameloom/ziploom/Errors.h>

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace {

using frameloom::platform::Bytes;
using frameloom::ziploom::Archive;

constexpr auto addedPath = "fuzz/added.json";

template <typename Action>
bool succeeds(Action action) {
  try {
    action();
    return true;
  } catch (const frameloom::ziploom::ZiploomError&) {
    return false;
  }
}

void readEverything(Archive& archive) {
  for (const auto& entry : archive) {
    (void)entry.fileAttributes();
    (void)entry.localRecordLength();
    succeeds([&] { archive.extract(entry, 4096, false, nullptr, [](auto) {}); });
  }
  (void)archive["animations/data.json"];
}

void addAndRemove(const std::uint8_t* data, std::size_t size) {
  auto archive = Archive::make(Bytes(data, data + size), Archive::AccessMode::update);
  if (!archive) {
    return;
  }
  const bool whole = !archive->endsEarly();
  const bool added = succeeds([&] {
    archive->addEntry(addedPath, frameloom::ziploom::Entry::EntryType::file, 2,
                      std::chrono::system_clock::now(), 0644,
                      frameloom::ziploom::CompressionMethod::deflate, 4096, nullptr,
                      [](std::int64_t, std::int64_t count) {
                        return Bytes(static_cast<std::size_t>(count), '{');
                      });
  });
  const auto first = archive->begin();
  if (first != archive->end() && first->path() != addedPath) {
    const auto entry = *first;
    succeeds([&] { archive->remove(entry, 4096); });
  }
  const auto reopened = Archive::make(*archive->data(), Archive::AccessMode::read);
  if (!reopened || (added && whole && !(*reopened)[addedPath])) {
    __builtin_trap();
  }
  readEverything(*reopened);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto archive = Archive::make(Bytes(data, data + size), Archive::AccessMode::read);
  if (!archive) {
    return 0;
  }
  readEverything(*archive);
  addAndRemove(data, size);
  return 0;
}
